// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Buffered output to a descriptor, which waits for its reader only when it is asked to.
///
///   Output output(STDOUT_FILENO);
///   output.write("one line\n");
///   output.finish();
///   if (const auto failure = output.failure()) complain("standard output: " + *failure);
///
/// What the reader has not taken is kept in a queue. When that is full, whole texts are dropped and
/// their lines counted until half of the queue is free, so that a reader that does not read can
/// neither hold up the main queue nor fill the memory. The program must ignore SIGPIPE and SIGXFSZ.
/// Not thread-safe.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Zephly::tools {

class Output {
 public:
  enum class State {
    open,
    closed,  ///< the reader has closed the pipe (`| head`); further output is dropped
    failed,  ///< another error, see error(); further output is dropped
  };

  /// write() flushes when this many bytes are pending.
  static constexpr std::size_t bufferSize = 65'536;
  /// Most bytes in the queue: a minute of a session as JSON lines.
  static constexpr std::size_t usualCapacity = 4UL * 1024 * 1024;
  /// How long the end of a command waits for a reader.
  static constexpr std::chrono::seconds lastPatience{2};

  /// Does not own `descriptor`.
  explicit Output(int descriptor, std::size_t capacity = usualCapacity)
      : descriptor_(descriptor), capacity_(capacity) {}

  /// Takes the whole text, or drops it when the queue is full. Never waits.
  void write(std::string_view text);
  /// Whether write() drops texts now. Never waits.
  bool isFull();
  /// The same for the last text of a command, which is taken even if the queue is full.
  void writeLast(std::string_view text);
  /// Writes the queue to the descriptor until the reader takes nothing for `patience`. True when
  /// nothing is left.
  bool flush(std::chrono::milliseconds patience = std::chrono::milliseconds::zero());
  /// The last call: gives up when the reader has taken nothing for `limit`, and counts what is left
  /// as dropped. True when nothing was left.
  bool finish(std::chrono::milliseconds limit = lastPatience);

  State state() const { return state_; }
  /// The reason of the state `failed`.
  const std::string& error() const { return error_; }
  std::size_t pending() const { return queue_.size() - taken_; }
  /// How long the reader has taken nothing of what is pending.
  std::chrono::steady_clock::duration stalledFor() const;
  /// Lines that were dropped because the reader did not take them.
  std::uint64_t droppedLines() const { return droppedLines_; }
  /// Why output is missing, in words; empty when nothing is, and when the reader closed the pipe.
  std::optional<std::string> failure() const;

 private:
  void append(std::string_view text);
  std::size_t nextPiece() const;
  void end(int errorNumber);

  int descriptor_;
  std::size_t capacity_;
  std::string queue_;
  std::size_t taken_ = 0;  // bytes at the front of queue_ that have been written
  bool dropping_ = false;  // from a full queue until it is half empty
  // When the reader last took something, or the queue was last empty.
  std::chrono::steady_clock::time_point lastTaken_ = std::chrono::steady_clock::now();
  State state_ = State::open;
  std::string error_;
  std::uint64_t droppedLines_ = 0;
};

}  // namespace Zephly::tools
