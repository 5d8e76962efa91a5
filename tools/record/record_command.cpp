// SPDX-License-Identifier: MIT
#include <tools/record/record_command.h>

#include <tools/export/export_command.h>
#include <tools/record/options.h>
#include <tools/record/recording_session.h>

#include <CLI/CLI.hpp>

#include <csignal>
#include <memory>

namespace Zephly::record {

namespace {

int recordAndExport(Options& options) {
  exporting::ExportOptions& exports = options.exports;
  if (!exports.edf && !exports.csv) return RecordingSession(options).run();
  exports.capture = options.file;
  exports.existing =
      options.overwrite ? exporting::Existing::replaced : exporting::Existing::refused;
  // Before the recording, not an hour later.
  exporting::checkTargets(exports);
  const int recorded = RecordingSession(options).run();
  const int exported = exporting::runExport(exports, "record");
  return recorded != tools::exitDone ? recorded : exported;
}

}  // namespace

tools::Command addRecordCommand(CLI::App& program) {
  CLI::App* command = program.add_subcommand("record", "Write a session to a file while it runs");
  command->footer(
      "Every notification and every event of the connection is written to FILE as it arrives. If\n"
      "the program is killed, only the record being written is lost (see docs/capture-format.md).\n"
      "Ends with --duration, Ctrl-C or SIGTERM. After a write error the session continues without\n"
      "recording, and the file stays readable. --edf and --csv work as in zephly export, when the\n"
      "recording has ended.\n"
      "Exit code: 0 when everything was recorded; 1 when something was not, no strap was connected,\n"
      "a stream is missing with --require-all, or the file cannot be created; 2 for wrong options.");
  const auto options = std::make_shared<Options>();
  addOptions(*command, *options);
  return {command, [options] {
            watch::checkTogether(options->source);
            // Output and the writer report a reader that has gone and a limit of the file size.
            static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
            static_cast<void>(std::signal(SIGXFSZ, SIG_IGN));
            return recordAndExport(*options);
          }};
}

}  // namespace Zephly::record
