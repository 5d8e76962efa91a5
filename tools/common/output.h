#pragma once
/// @file
/// Where a program's own output goes: a file descriptor, buffered, never through std::cout (which
/// belongs to the kit's diagnostic lines).
///
///   Output output(STDOUT_FILENO);
///   output.write("one line\n");
///   output.flush();
///   if (output.state() == Output::State::closed) quitQuietly();
///
/// A reader that does not read never hangs the program: each call waits a short while and keeps the
/// rest for later, so that signals are still heard. The program must ignore SIGPIPE. Not
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
    closed,  ///< the reader has gone (`| head`); what is written is dropped
    failed,  ///< anything else, see error(); what is written is dropped
  };

  /// Bytes that are kept before write() passes them on by itself.
  static constexpr std::size_t bufferSize = 65'536;
  /// How long write() and flush() wait for a reader.
  static constexpr std::chrono::milliseconds patience{100};

  /// How long the end of a command waits for one.
  static constexpr std::chrono::seconds lastPatience{2};

  /// Does not own `descriptor`.
  explicit Output(int descriptor) : descriptor_(descriptor) {}

  void write(std::string_view text);
  /// Passes on what was written. False when something is left (to be tried again later).
  bool flush();
  /// The same with all the patience of the last chance: gives up when nothing moved for `limit`.
  bool finish(std::chrono::milliseconds limit = lastPatience);

  State state() const { return state_; }
  /// What the system said when the state became `failed`.
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
