// SPDX-License-Identifier: MIT
#include <tools/common/output.h>

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <system_error>

namespace Zephly::tools {

void Output::write(std::string_view text) {
  if (state_ != State::open) return;
  buffer_ += text;
  if (buffer_.size() >= bufferSize) drain(patience);
}

bool Output::flush() { return drain(patience); }

bool Output::finish(std::chrono::milliseconds limit) { return drain(limit); }

// A pipe that is writable for poll() accepts PIPE_BUF bytes without blocking, hence the pieces. The
// descriptor stays in blocking mode, because other processes may share it.
bool Output::drain(std::chrono::milliseconds limit) {
  std::size_t done = 0;
  while (state_ == State::open && done < buffer_.size()) {
    pollfd writable{.fd = descriptor_, .events = POLLOUT, .revents = 0};
    const int ready = ::poll(&writable, 1, static_cast<int>(limit.count()));
    if (ready == 0) break;
    if (ready < 0) {
      if (errno == EINTR) continue;
      end(errno);
      break;
    }
    const std::size_t piece = std::min<std::size_t>(buffer_.size() - done, PIPE_BUF);
    const ssize_t written = ::write(descriptor_, buffer_.data() + done, piece);
    if (written >= 0) {
      done += static_cast<std::size_t>(written);
    } else if (errno != EINTR && errno != EAGAIN) {
      end(errno);
    }
  }
  buffer_.erase(0, done);
  return buffer_.empty();
}

void Output::end(int errorNumber) {
  state_ = errorNumber == EPIPE ? State::closed : State::failed;
  if (state_ == State::failed) error_ = std::generic_category().message(errorNumber);
  buffer_.clear();
}

}  // namespace Zephly::tools
