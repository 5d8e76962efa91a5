// SPDX-License-Identifier: MIT
#include <tools/common/output.h>

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <system_error>

namespace Zephly::tools {

namespace {

std::uint64_t linesIn(std::string_view text) {
  return static_cast<std::uint64_t>(std::count(text.begin(), text.end(), '\n'));
}

// How often a call is repeated that may succeed at once.
constexpr int mostRepetitions = 10;

}  // namespace

void Output::write(std::string_view text) {
  const bool full = isFull();
  if (state_ != State::open) return;
  if (full) {
    droppedLines_ += linesIn(text);
    return;
  }
  append(text);
}

bool Output::isFull() {
  const std::size_t limit = dropping_ ? capacity_ / 2 : capacity_;
  if (pending() > limit) flush();
  dropping_ = pending() > limit;
  return dropping_;
}

void Output::writeLast(std::string_view text) {
  if (state_ == State::open) append(text);
}

void Output::append(std::string_view text) {
  if (pending() == 0) lastTaken_ = std::chrono::steady_clock::now();
  queue_ += text;
  if (pending() >= bufferSize) flush();
}

bool Output::finish(std::chrono::milliseconds limit) {
  if (flush(limit)) return true;
  droppedLines_ += linesIn(std::string_view(queue_).substr(taken_));
  queue_.clear();
  taken_ = 0;
  return false;
}

// A pipe that is writable for poll() accepts PIPE_BUF bytes without blocking, hence the pieces. The
// descriptor stays in blocking mode, because other processes may share it.
bool Output::flush(std::chrono::milliseconds patience) {
  int failures = 0;
  while (state_ == State::open && pending() > 0) {
    pollfd writable{.fd = descriptor_, .events = POLLOUT, .revents = 0};
    const int ready = ::poll(&writable, 1, static_cast<int>(patience.count()));
    if (ready == 0) break;
    if (ready < 0) {
      if (errno == EINTR || (errno == ENOMEM && ++failures < mostRepetitions)) continue;
      end(errno);
      break;
    }
    const ssize_t written = ::write(descriptor_, queue_.data() + taken_, nextPiece());
    if (written >= 0) {
      taken_ += static_cast<std::size_t>(written);
      lastTaken_ = std::chrono::steady_clock::now();
    } else if (errno != EINTR && errno != EAGAIN) {
      end(errno);
    }
  }
  // Not after each piece: each time, the rest is moved to the front.
  if (taken_ >= queue_.size() / 2) {
    queue_.erase(0, taken_);
    taken_ = 0;
  }
  return pending() == 0;
}

// Ends behind a line if it can, so that a reader that stops has received whole lines.
std::size_t Output::nextPiece() const {
  const std::string_view rest = std::string_view(queue_).substr(taken_, PIPE_BUF);
  const std::size_t lastEnd = rest.rfind('\n');
  return lastEnd == std::string_view::npos ? rest.size() : lastEnd + 1;
}

void Output::end(int errorNumber) {
  state_ = errorNumber == EPIPE ? State::closed : State::failed;
  if (state_ == State::failed) {
    // The program's main() puts a descriptor that cannot be written in the place of a closed one.
    error_ = errorNumber == EBADF ? "it is closed" : std::generic_category().message(errorNumber);
  }
  queue_.clear();
  taken_ = 0;
}

std::chrono::steady_clock::duration Output::stalledFor() const {
  if (pending() == 0) return {};
  return std::chrono::steady_clock::now() - lastTaken_;
}

std::optional<std::string> Output::failure() const {
  if (state_ == State::failed) return error_;
  if (state_ == State::closed || droppedLines_ == 0) return std::nullopt;
  return std::to_string(droppedLines_) + (droppedLines_ == 1 ? " line was" : " lines were") +
         " lost because the reader is too slow";
}

}  // namespace Zephly::tools
