// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The options for the output of a subcommand that shows a session.

#include <filesystem>
#include <optional>

namespace CLI {
class App;
}

namespace Zephly::monitor {

/// How a session is shown.
struct OutputOptions {
  bool json = false;
  std::optional<std::filesystem::path> diagnostics;  ///< gets every diagnostic line
  bool overwrite = false;                            ///< replaces an existing file
  bool requireAll = false;
};

/// Declares the options on `command`; parsing writes them into `options`, which must live as long.
/// A wrong value ends the parsing with a CLI::ParseError of one line.
void addOutputOptions(CLI::App& command, OutputOptions& options);

}  // namespace Zephly::monitor
