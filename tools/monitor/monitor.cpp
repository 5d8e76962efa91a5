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
      "The strap is the one that this machine's Bluetooth hears, or a simulated one. What is\n"
      "missing for Bluetooth is told, and it begins to work when it is there.\n"
      "On a terminal it shows a screen; q or Ctrl-C ends it. Otherwise it writes one JSON object\n"
      "a line (see docs/monitor-json.md). A summary comes last.\n"
      "Exit code: 0 when nothing was lost, also after Ctrl-C or SIGTERM; 1 when something was\n"
      "lost, is missing with --require-all, or a file cannot be used; 2 for options that are\n"
      "not understood.");
  const auto source = std::make_shared<watch::SourceOptions>();
  const auto output = std::make_shared<OutputOptions>();
  watch::addSourceOptions(*command, *source);
  addOutputOptions(*command, *output);
  return {command, [source, output] {
            watch::checkTogether(*source);
            return watchSession(
                "monitor", *output,
                [&](main_queue::MainQueue& queue, std::function<void(std::string_view)> report,
                    std::function<void()> ended) {
                  return watch::makeSource(queue, *source, std::move(report), std::move(ended));
                });
          }};
}

}  // namespace Zephly::monitor
