// SPDX-License-Identifier: MIT
#include <tools/monitor/monitor.h>

#include <tools/monitor/options.h>
#include <tools/monitor/watching.h>
#include <tools/watch/source_options.h>

#include <CLI/CLI.hpp>

#include <functional>
#include <memory>
#include <string_view>
#include <utility>

namespace Zephly::monitor {

tools::Command addMonitorCommand(CLI::App& program) {
  CLI::App* command =
      program.add_subcommand("monitor", "Show a strap in the terminal, or write JSON lines");
  command->footer(
      "Examples:\n"
      "  zephly monitor                                      watch the strap in Bluetooth range\n"
      "  zephly monitor --simulated --json --duration 10m    write a simulated session as JSON "
      "lines\n"
      "\n"
      "On a terminal it shows a screen; q or Ctrl-C ends it. docs/monitor-json.md describes the "
      "JSON\n"
      "lines.\n"
      "Exit code: 0 success; 1 no strap, or data lost, missing or not written; 2 wrong options.");
  const auto source = std::make_shared<watch::SourceOptions>();
  const auto output = std::make_shared<OutputOptions>();
  watch::addSourceOptions(*command, *source);
  addOutputOptions(*command, *output);
  return {command, [source, output] {
            watch::checkTogether(*source);
            watch::loadRecording(*source);
            return watchSession("monitor", *source, *output);
          }};
}

}  // namespace Zephly::monitor
