// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The program's own output to a file descriptor, buffered. It does not use std::cout, which
/// belongs to the kit's diagnostic lines.
///
///   Output output(STDOUT_FILENO);
///   output.write("one line\n");
///   output.flush();
///   if (output.state() == Output::State::closed) quitQuietly();
///
/// A reader that does not read cannot block the program: each call waits a short time and keeps the
/// rest for later, so that signals are still handled. The program must ignore SIGPIPE. Not
/// thread-safe.

#include <chrono>
#include <cstddef>
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

  /// write() flushes when this many bytes are buffered.
  static constexpr std::size_t bufferSize = 65'536;
  /// How long write() and flush() wait for a reader.
  static constexpr std::chrono::milliseconds patience{100};

  /// How long the end of a command waits for a reader.
  static constexpr std::chrono::seconds lastPatience{2};

  /// Does not own `descriptor`.
  explicit Output(int descriptor) : descriptor_(descriptor) {}

  void write(std::string_view text);
  /// Writes the buffer to the descriptor. False when a part of it is left for a later call.
  bool flush();
  /// The same at the end of the program: gives up after `limit` without progress.
  bool finish(std::chrono::milliseconds limit = lastPatience);

  State state() const { return state_; }
  /// The system's message for the error of the state `failed`.
  const std::string& error() const { return error_; }
  std::size_t pending() const { return buffer_.size(); }

 private:
  bool drain(std::chrono::milliseconds limit);
  void end(int errorNumber);

  int descriptor_;
  std::string buffer_;
  State state_ = State::open;
  std::string error_;
};

}  // namespace Zephly::tools
