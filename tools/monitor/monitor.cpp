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
  CLI::App* command = program.add_subcommand(
      "monitor", "Watch a strap: connection, electrodes, traces, values, repetitions");
  command->footer(
      "Watches the strap in Bluetooth range, or a simulated one. It reports what Bluetooth lacks\n"
      "and continues automatically when that is available.\n"
      "On a terminal it shows a screen; q or Ctrl-C ends it. Otherwise it writes one JSON object\n"
      "per line (see docs/monitor-json.md). The last output is a summary.\n"
      "Exit code: 0 when nothing was lost, also after Ctrl-C or SIGTERM; 1 when no strap was\n"
      "connected, something was lost, is missing with --require-all, or a file cannot be used;\n"
      "2 for wrong options.");
  const auto source = std::make_shared<watch::SourceOptions>();
  const auto output = std::make_shared<OutputOptions>();
  watch::addSourceOptions(*command, *source);
  addOutputOptions(*command, *output);
  return {command, [source, output] {
            watch::checkTogether(*source);
            return watchSession("monitor", *source, *output);
          }};
}

}  // namespace Zephly::monitor
