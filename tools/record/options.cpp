// SPDX-License-Identifier: MIT
#include <tools/record/options.h>

#include <tools/common/option_values.h>
#include <tools/export/export_command.h>

#include <CLI/CLI.hpp>

#include <string>

namespace Zephly::record {

void addOptions(CLI::App& command, Options& options) {
  tools::addValue(command, "FILE", "FILE", "The capture to write, usually with the ending .zcap",
                  [&](const std::string& text) { options.file = tools::fileValue("FILE", text); })
      ->required();
  watch::addSourceOptions(command, options.source);
  exporting::addTargets(command, options.exports);
  tools::addFlag(command, "--force", options.overwrite, "Replace existing files");
}

}  // namespace Zephly::record
