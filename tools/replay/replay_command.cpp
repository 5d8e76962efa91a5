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
  CLI::App* command = program.add_subcommand("replay", "Play a capture through the kit");
  command->footer(
      "Examples:\n"
      "  zephly replay walk.zcap                           play it at the recorded speed\n"
      "  zephly replay walk.zcap --fast --json > out.json  write everything that the kit reports\n"
      "\n"
      "The kit reports the same results as in the recorded session, bit for bit (docs/replay.md). "
      "A\n"
      "damaged capture is played up to the damage.\n"
      "Exit code: 0 success; 1 capture unusable or damaged, data missing or not written; 2 wrong "
      "options.");
  const auto source = std::make_shared<watch::SourceOptions>();
  const auto output = std::make_shared<monitor::OutputOptions>();
  watch::addCaptureOptions(*command, *source);
  monitor::addOutputOptions(*command, *output);
  return {command, [source, output] { return monitor::watchSession("replay", *source, *output); }};
}

}  // namespace Zephly::replay
