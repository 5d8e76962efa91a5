#pragma once
/// @file
/// What `zephly monitor` can be told on the command line.

#include <tools/watch/source_options.h>

#include <filesystem>
#include <optional>

namespace CLI {
class App;
}

namespace Zephly::monitor {

struct Options {
  watch::SourceOptions source;
  bool json = false;
  std::optional<std::filesystem::path> diagnostics;  ///< gets every diagnostic line
  bool requireAll = false;
};

/// Declares the options on `command`; parsing writes them into `options`, which must live as long.
/// A value that cannot be accepted ends the parsing with a CLI::ParseError of one line.
void addOptions(CLI::App& command, Options& options);

}  // namespace Zephly::monitor
