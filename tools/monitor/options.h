#pragma once
/// @file
/// What a subcommand that shows a session can be told about its output.

#include <filesystem>
#include <optional>

namespace CLI {
class App;
}

namespace Zephly::monitor {

/// What comes of a session that is watched.
struct OutputOptions {
  bool json = false;
  std::optional<std::filesystem::path> diagnostics;  ///< gets every diagnostic line
  bool requireAll = false;
};

/// Declares the options on `command`; parsing writes them into `options`, which must live as long.
/// A value that cannot be accepted ends the parsing with a CLI::ParseError of one line.
void addOutputOptions(CLI::App& command, OutputOptions& options);

}  // namespace Zephly::monitor
