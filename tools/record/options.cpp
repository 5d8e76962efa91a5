// SPDX-License-Identifier: MIT
#include <tools/record/options.h>

#include <tools/common/option_values.h>
#include <tools/export/export_command.h>

#include <CLI/CLI.hpp>

#include <string>

namespace Zephly::record {

namespace {

std::filesystem::path captureName(const std::string& text) {
  // Records are synchronized with the disk, and what cannot be written whole is cut off again.
  if (text == "-") {
    tools::rejectValue("FILE", "the name of a file, because a pipe cannot hold a capture", text);
  }
  return tools::fileValue("FILE", text);
}

}  // namespace

void addOptions(CLI::App& command, Options& options) {
  tools::addValue(command, "FILE", "", "The capture to write (.zcap)",
                  [&](const std::string& text) { options.file = captureName(text); })
      ->required();
  watch::addSourceOptions(command, options.source);
  exporting::addTargets(command, options.exports);
  tools::addFlag(command, "--force", options.overwrite, "Replace existing files");
  tools::addFlag(command, "--require-all", options.requireAll,
                 "Exit with 1 unless samples of every stream were recorded");
}

}  // namespace Zephly::record
