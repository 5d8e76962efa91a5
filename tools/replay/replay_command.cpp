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
      "The kit is told what it was told when the capture was made, and reports the same again, "
      "bit\n"
      "for bit (see docs/replay.md). A capture that is cut or damaged is played up to there.\n"
      "What is shown, and how, is that of zephly monitor (see docs/monitor-json.md).\n"
      "Exit code: 0 when the capture was played, also after Ctrl-C or SIGTERM; 1 when it is cut,\n"
      "damaged or none, when the session did not ask for what was recorded, when something is\n"
      "missing with --require-all, or a file cannot be used; 2 for options that are not\n"
      "understood.");
  const auto source = std::make_shared<watch::SourceOptions>();
  const auto output = std::make_shared<monitor::OutputOptions>();
  watch::addCaptureOptions(*command, *source);
  monitor::addOutputOptions(*command, *output);
  return {command, [source, output] {
            return monitor::watchSession(
                "replay", *output,
                [&](main_queue::MainQueue& queue, std::function<void(std::string_view)> report,
                    std::function<void()> ended) {
                  return watch::makeSource(queue, *source, std::move(report), std::move(ended));
                });
          }};
}

}  // namespace Zephly::replay
