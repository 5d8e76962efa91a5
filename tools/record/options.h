// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The options of `zephly record`.

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
  bool requireAll = false;  ///< every stream of the strap
  watch::SourceOptions source;
  exporting::ExportOptions exports;  ///< of the complete recording
};

/// Declares the options on `command`; parsing writes them into `options`, which must live as long.
/// A wrong value ends the parsing with a CLI::ParseError of one line.
void addOptions(CLI::App& command, Options& options);

}  // namespace Zephly::record
