#pragma once
/// @file
/// The terminal as a place to draw on: an alternate screen without a cursor, given back as it was
/// however the program ends.
///
///   Screen screen(output, Colors::ansi);
///   screen.show(canvas);     // again and again; only rows that have changed are written
///
/// While it lives, keys are neither shown nor collected into lines. A fatal error (SIGABRT) gives
/// the terminal back too. One at a time in a process.

#include <tools/common/output.h>
#include <tools/monitor/canvas.h>

#include <cstddef>
#include <string>
#include <vector>

namespace Zephly::monitor {

struct TerminalSize {
  std::size_t width = 80;
  std::size_t height = 24;
  friend bool operator==(const TerminalSize&, const TerminalSize&) = default;
};

/// What the terminal behind `descriptor` says, 80 x 24 when it says nothing.
TerminalSize terminalSize(int descriptor);

class Screen {
 public:
  /// Writes to `output`; takes the keyboard from standard input when that is a terminal.
  Screen(tools::Output& output, Colors colors);
  Screen(const Screen&) = delete;
  Screen& operator=(const Screen&) = delete;
  ~Screen();

  /// One write: the rows that differ from those shown before.
  void show(const Canvas& canvas);
  /// Everything is written again with the next show(): after a change of size.
  void forget() { shown_.clear(); }

  /// Gives the terminal back until resume(), for a stopped job.
  void suspend();
  void resume();

 private:
  tools::Output& output_;
  Colors colors_;
  std::vector<std::string> shown_;
  bool active_ = false;
};

}  // namespace Zephly::monitor
