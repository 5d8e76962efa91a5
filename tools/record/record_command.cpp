// SPDX-License-Identifier: MIT
#include <tools/record/record_command.h>

#include <tools/common/output_path.h>
#include <tools/export/export_command.h>
#include <tools/record/options.h>
#include <tools/record/recording_session.h>

#include <CLI/CLI.hpp>

#include <memory>

namespace Zephly::record {

namespace {

int recordAndExport(Options& options) {
  options.file = tools::outputTarget(options.file);
  exporting::ExportOptions& exports = options.exports;
  if (options.source.recording) {
    tools::refuseInput(options.file, *options.source.recording);
    if (exports.edf) tools::refuseInput(*exports.edf, *options.source.recording);
  }
  if (!exports.edf && !exports.csv) {
    watch::loadRecording(options.source);
    return RecordingSession(options).run();
  }
  exports.capture = options.file;
  exports.existing =
      options.overwrite ? exporting::Existing::replaced : exporting::Existing::refused;
  // Before the recording, not an hour later.
  exporting::checkTargets(exports);
  watch::loadRecording(options.source);
  RecordingSession session(options);
  const int recorded = session.run();
  if (!session.hasCapture()) return recorded;
  const int exported = exporting::runExport(exports, "record");
  return recorded != tools::exitDone ? recorded : exported;
}

}  // namespace

tools::Command addRecordCommand(CLI::App& program) {
  CLI::App* command = program.add_subcommand("record", "Record a session to a file");
  command->footer(
      "Examples:\n"
      "  zephly record walk.zcap                                  record until Ctrl-C\n"
      "  zephly record night.zcap --duration 8h --edf night.edf   and write an EDF+ file at the "
      "end\n"
      "\n"
      "Each notification is written as it arrives: a crash loses at most the record being "
      "written.\n"
      "On a full disk the recording continues in walk.2.zcap as soon as there is space.\n"
      "--force replaces a file only once a strap was connected.\n"
      "Exit code: 0 success; 1 no strap, or data not recorded or not written; 2 wrong options.");
  const auto options = std::make_shared<Options>();
  addOptions(*command, *options);
  return {command, [options] {
            watch::checkTogether(options->source);
            return recordAndExport(*options);
          }};
}

}  // namespace Zephly::record
