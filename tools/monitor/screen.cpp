// SPDX-License-Identifier: MIT
#include <tools/monitor/screen.h>

#include <tools/monitor/held_errors.h>

#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <new>
#include <string_view>
#include <utility>

namespace Zephly::monitor {

namespace {

// Alternate screen, no cursor, no line wrap; and the reverse.
constexpr std::string_view enterSequence = "\x1b[?1049h\x1b[?25l\x1b[?7l\x1b[2J";
constexpr std::string_view leaveSequence = "\x1b[0m\x1b[?7h\x1b[?25h\x1b[?1049l";

// Global, because the handler of SIGABRT has no other access to them.
bool keyboardTaken = false;
termios keyboardBefore{};
using Handler = void (*)(int);
Handler abortHandlerBefore = SIG_DFL;

void giveKeyboardBack() {
  if (keyboardTaken) ::tcsetattr(STDIN_FILENO, TCSADRAIN, &keyboardBefore);
  keyboardTaken = false;
}

void takeKeyboard() {
  // Not in the background, where tcsetattr() would stop the program with SIGTTOU.
  if (::isatty(STDIN_FILENO) == 0 || ::tcgetpgrp(STDIN_FILENO) != ::getpgrp()) return;
  if (::tcgetattr(STDIN_FILENO, &keyboardBefore) != 0) return;
  termios quiet = keyboardBefore;
  quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO | ICANON);
  keyboardTaken = ::tcsetattr(STDIN_FILENO, TCSADRAIN, &quiet) == 0;
}

// The terminal is standard output. Without a report of a failure: the program is ending.
void leaveDirectly() {
  [[maybe_unused]] const auto written =
      ::write(STDOUT_FILENO, leaveSequence.data(), leaveSequence.size());
}

// Only async-signal-safe calls. abort() ends the program when this returns.
void giveTerminalBackOnAbort(int signal) {
  giveKeyboardBack();
  leaveDirectly();
  held_errors::release();
  static_cast<void>(std::signal(signal, SIG_DFL));
  static_cast<void>(::raise(signal));
}

}  // namespace

TerminalSize terminalSize(int descriptor) {
  winsize size{};
  if (::ioctl(descriptor, TIOCGWINSZ, &size) != 0 || size.ws_col == 0 || size.ws_row == 0) {
    return {};
  }
  return {size.ws_col, size.ws_row};
}

Screen::Screen(tools::Output& output, Colors colors) : output_(output), colors_(colors) {
  resume();
}

Screen::~Screen() { suspend(); }

void Screen::resume() {
  if (active_) return;
  active_ = true;
  shown_.clear();
  abortHandlerBefore = std::signal(SIGABRT, giveTerminalBackOnAbort);
  takeKeyboard();
  held_errors::hold();
  output_.write(enterSequence);
  output_.flush();
}

void Screen::suspend() {
  if (!active_) return;
  active_ = false;
  bool queued = true;
  try {
    output_.write(leaveSequence);
  } catch (const std::bad_alloc&) {
    queued = false;
  }
  const bool flushed = output_.flush(std::chrono::seconds(1));
  // Not to a terminal that takes nothing: that would wait.
  if (!queued ? flushed : output_.state() == tools::Output::State::failed) leaveDirectly();
  giveKeyboardBack();
  held_errors::release();
  static_cast<void>(std::signal(SIGABRT, abortHandlerBefore));
}

void Screen::show(const Canvas& canvas) {
  // The terminal does not read: skip this picture until it has received the previous one.
  if (!active_ || output_.pending() > 0) {
    output_.flush();
    return;
  }
  std::string text;
  if (shown_.size() != canvas.height()) {
    shown_.assign(canvas.height(), "");
    text += "\x1b[2J";
  }
  for (std::size_t row = 0; row < canvas.height(); ++row) {
    std::string line = canvas.ansiRow(row, colors_);
    if (line == shown_[row]) continue;
    text += "\x1b[" + std::to_string(row + 1) + ";1H" + line + "\x1b[K";
    shown_[row] = std::move(line);
  }
  if (text.empty()) return;
  output_.write(text);
  output_.flush();
}

}  // namespace Zephly::monitor
