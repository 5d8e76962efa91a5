// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A subcommand of the program.

#include <functional>

namespace CLI {
class App;
}

namespace Zephly::tools {

// Exit codes of every subcommand.
inline constexpr int exitDone = 0;
inline constexpr int exitFailed = 1;     ///< an error while it ran
inline constexpr int exitBadOption = 2;  ///< it was not run

struct Command {
  const CLI::App* options;
  /// Runs it when its options have been parsed; returns the exit code. May throw CLI::ParseError
  /// for options that cannot be combined, and std::exception with one line for an error.
  std::function<int()> run;
};

}  // namespace Zephly::tools
