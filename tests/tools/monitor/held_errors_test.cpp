// SPDX-License-Identifier: MIT
#include <tools/monitor/held_errors.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <string>
#include <system_error>

namespace Zephly::monitor {
namespace {

// Makes a new terminal the standard error.
class TerminalAsErrors {
 public:
  TerminalAsErrors() : before_(::dup(STDERR_FILENO)) {
    if (::openpty(&reader_, &terminal_, nullptr, nullptr, nullptr) != 0) {
      throw std::system_error(errno, std::generic_category(), "no pseudo-terminal");
    }
    ::dup2(terminal_, STDERR_FILENO);
  }
  TerminalAsErrors(const TerminalAsErrors&) = delete;
  TerminalAsErrors& operator=(const TerminalAsErrors&) = delete;
  ~TerminalAsErrors() {
    ::dup2(before_, STDERR_FILENO);
    for (const int descriptor : {before_, reader_, terminal_}) ::close(descriptor);
  }

  // The text shown since the last call.
  std::string shown() const {
    std::string text;
    pollfd readable{.fd = reader_, .events = POLLIN, .revents = 0};
    while (::poll(&readable, 1, 0) > 0) {
      std::array<char, 256> part{};
      const ssize_t count = ::read(reader_, part.data(), part.size());
      if (count <= 0) break;
      text.append(part.data(), static_cast<std::size_t>(count));
    }
    return text;
  }

 private:
  int before_;
  int reader_ = -1;
  int terminal_ = -1;
};

TEST(HeldErrorsTest, AreShownWhenTheyAreReleased) {
  const TerminalAsErrors terminal;
  held_errors::hold();
  ASSERT_GE(std::fputs("last words\n", stderr), 0);
  EXPECT_EQ(terminal.shown(), "");
  held_errors::release();
  EXPECT_EQ(terminal.shown(), "last words\r\n");
  ASSERT_GE(std::fputs("later\n", stderr), 0);
  EXPECT_EQ(terminal.shown(), "later\r\n");
  held_errors::release();
  EXPECT_EQ(terminal.shown(), "");
}

TEST(HeldErrorsTest, AreHeldOnceAndOnlyOnATerminal) {
  held_errors::hold();  // a file or a pipe, when tests run: nothing to hold
  held_errors::release();
  const TerminalAsErrors terminal;
  held_errors::hold();
  held_errors::hold();
  ASSERT_GE(std::fputs("once\n", stderr), 0);
  held_errors::release();
  EXPECT_EQ(terminal.shown(), "once\r\n");
}

}  // namespace
}  // namespace Zephly::monitor
