// SPDX-License-Identifier: MIT
#include <tools/monitor/options.h>

#include <tools/common/option_values.h>

#include <CLI/CLI.hpp>

#include <string>

namespace Zephly::monitor {

using tools::addFlag;
using tools::addValue;

void addOutputOptions(CLI::App& command, OutputOptions& options) {
  addFlag(command, "--json", options.json,
          "Write one JSON object per line (the default when standard output is not a terminal)");
  addValue(command, "--diagnostics", "FILE", "Write the kit's own diagnostic lines to a file",
           [&](const std::string& text) {
             options.diagnostics = tools::fileValue("--diagnostics", text);
           });
  addFlag(command, "--require-all", options.requireAll,
          "Exit with 1 unless every kind of callback arrived and nothing was lost");
}

}  // namespace Zephly::monitor
