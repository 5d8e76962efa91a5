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
          "Write JSON lines (default unless standard output is a terminal)");
  addValue(command, "--diagnostics", "FILE",
           "Write the diagnostic lines of the kit and of Bluetooth to a file",
           [&](const std::string& text) {
             options.diagnostics = tools::fileValue("--diagnostics", text);
           });
  addFlag(command, "--force", options.overwrite, "Replace an existing file");
  addFlag(command, "--require-all", options.requireAll,
          "Exit with 1 unless every kind of callback was called");
}

}  // namespace Zephly::monitor
