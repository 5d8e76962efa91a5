#pragma once
/// @file
/// What `zephly record` can be told on the command line.

#include <tools/export/exporter.h>
#include <tools/watch/source_options.h>

#include <filesystem>

namespace CLI {
class App;
}

namespace Zephly::record {

struct Options {
  std::filesystem::path file;
  bool overwrite = false;
  watch::SourceOptions source;
  exporting::ExportOptions exports;  ///< what is made of the file when it is complete
};

/// Declares the options on `command`; parsing writes them into `options`, which must live as long.
/// A value that cannot be accepted ends the parsing with a CLI::ParseError of one line.
void addOptions(CLI::App& command, Options& options);

}  // namespace Zephly::record
