// SPDX-License-Identifier: MIT
#include <tools/replay/replay_command.h>

#include <tools/monitor/options.h>
#include <tools/monitor/watching.h>
#include <tools/watch/source_options.h>

#include <CLI/CLI.hpp>

#include <functional>
#include <memory>
#include <string_view>
#include <utility>

namespace Zephly::replay {

tools::Command addReplayCommand(CLI::App& program) {
  CLI::App* command = program.add_subcommand(
      "replay", "Play a capture: the recorded notifications through the kit");
  command->footer(
      "The kit gets the recorded callbacks and reports the same results, bit for bit (see\n"
      "docs/replay.md). A capture that is cut or damaged is played up to the damage.\n"
      "The output is that of zephly monitor (see docs/monitor-json.md).\n"
      "Exit code: 0 when the capture was played, also after Ctrl-C or SIGTERM; 1 when it is cut,\n"
      "damaged or not a capture, when the session did not ask for what was recorded, when\n"
      "something is missing with --require-all, or a file cannot be used; 2 for wrong options.");
  const auto source = std::make_shared<watch::SourceOptions>();
  const auto output = std::make_shared<monitor::OutputOptions>();
  watch::addCaptureOptions(*command, *source);
  monitor::addOutputOptions(*command, *output);
  return {command, [source, output] { return monitor::watchSession("replay", *source, *output); }};
}

}  // namespace Zephly::replay
