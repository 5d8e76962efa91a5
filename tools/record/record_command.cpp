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
  // Not an hour later.
  exporting::checkTargets(exports);
  const int recorded = RecordingSession(options).run();
  const int exported = exporting::runExport(exports, "record");
  return recorded != tools::exitDone ? recorded : exported;
}

}  // namespace

tools::Command addRecordCommand(CLI::App& program) {
  CLI::App* command = program.add_subcommand("record", "Write a session to a file while it runs");
  command->footer(
      "FILE gets every notification and every event of the connection as it comes, in a format\n"
      "that loses nothing but the record in flight when the program is killed (see\n"
      "docs/capture-format.md). It ends with --duration, Ctrl-C or SIGTERM. A file that can be\n"
      "written no more is left whole, and the session goes on without it.\n"
      "Exit code: 0 when everything was recorded; 1 when something was not, or the file cannot\n"
      "be had; 2 for options that are not understood. --edf and --csv are those of zephly export,\n"
      "and write when the recording has ended.");
  const auto options = std::make_shared<Options>();
  addOptions(*command, *options);
  return {command, [options] {
            watch::checkTogether(options->source);
            // A reader that goes away is seen by Output, a file that may not grow by the writer.
            static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
            static_cast<void>(std::signal(SIGXFSZ, SIG_IGN));
            return recordAndExport(*options);
          }};
}

}  // namespace Zephly::record
