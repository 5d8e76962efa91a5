// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The capabilities of standard output.

#include <tools/monitor/canvas.h>

#include <functional>

namespace Zephly::monitor {

struct TerminalKind {
  bool terminal = false;  ///< it is a terminal
  bool drawable = false;  ///< its cursor can be moved: TERM is set and not "dumb"
  bool unicode = false;   ///< the locale's encoding is UTF-8
  Colors colors = Colors::none;
};

/// An environment variable's value, or null.
using Environment = std::function<const char*(const char*)>;

TerminalKind terminalKind(int descriptor);
/// The same for a terminal (or none) in the given environment.
TerminalKind terminalKind(bool terminal, const Environment& environment);

}  // namespace Zephly::monitor
