// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Draws on the terminal: on the alternate screen without a cursor. The terminal is restored
/// however the program ends.
///
///   Screen screen(output, Colors::ansi);
///   screen.show(canvas);     // again and again; only rows that have changed are written
///
/// While it exists, the terminal neither echoes keys nor collects them into lines. A fatal error
/// (SIGABRT) restores the terminal too. One at a time in a process.

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

/// The size of the terminal behind `descriptor`; 80 x 24 when it is unknown.
TerminalSize terminalSize(int descriptor);

class Screen {
 public:
  /// Writes to `output`; changes the mode of standard input when that is a terminal.
  Screen(tools::Output& output, Colors colors);
  Screen(const Screen&) = delete;
  Screen& operator=(const Screen&) = delete;
  ~Screen();

  /// One write: the rows that differ from those shown before.
  void show(const Canvas& canvas);
  /// The next show() writes all rows: after a change of size.
  void forget() { shown_.clear(); }

  /// Restores the terminal until resume(), for a stopped job.
  void suspend();
  void resume();

 private:
  tools::Output& output_;
  Colors colors_;
  std::vector<std::string> shown_;
  bool active_ = false;
};

}  // namespace Zephly::monitor
