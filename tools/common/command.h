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
inline constexpr int exitFailed = 1;     ///< it was tried and something went wrong
inline constexpr int exitBadOption = 2;  ///< nothing was tried

struct Command {
  const CLI::App* options;
  /// Runs it when its options have been parsed; returns the exit code. May throw CLI::ParseError
  /// for options that do not go together, and std::exception for what went wrong.
  std::function<int()> run;
};

}  // namespace Zephly::tools
