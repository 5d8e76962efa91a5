// SPDX-License-Identifier: MIT
#include <tools/export/export_command.h>

#include <tools/common/option_values.h>
#include <tools/export/end_signals.h>
#include <tools/export/exporter.h>

#include <CLI/CLI.hpp>

#include <csignal>
#include <iostream>
#include <memory>
#include <string>

namespace Zephly::exporting {

void addTargets(CLI::App& command, ExportOptions& options) {
  tools::addValue(command, "--edf", "FILE", "Write an EDF+ file (see docs/export.md)",
                  [&](const std::string& text) { options.edf = tools::fileValue("--edf", text); });
  tools::addValue(
      command, "--csv", "DIRECTORY",
      "Write a CSV file for each stream into this directory, which is created if it does not exist",
      [&](const std::string& text) { options.csv = tools::fileValue("--csv", text); });
}

int runExport(ExportOptions options, const std::string& who) {
  // A limit of the file size becomes a write error, like a full disk.
  static_cast<void>(std::signal(SIGXFSZ, SIG_IGN));
  const EndSignals signals;
  options.interrupted = [asked = options.interrupted] { return asked() || EndSignals::came(); };
  const auto complaints = exportCapture(options);
  for (const std::string& complaint : complaints) {
    std::cerr << "zephly " << who << ": " << complaint << '\n';
  }
  return complaints.empty() ? tools::exitDone : tools::exitFailed;
}

tools::Command addExportCommand(CLI::App& program) {
  CLI::App* command =
      program.add_subcommand("export", "Write a capture as EDF+ and CSV, for other programs");
  command->footer(
      "docs/export.md describes signals, columns and the times of samples. A file appears when it\n"
      "is complete, and not at all after an error or Ctrl-C. Of a capture that is cut or damaged,\n"
      "everything before the damage is written.\n"
      "Exit code: 0 when everything was written; 1 when a file could not be written, or the\n"
      "capture is cut, damaged or not a capture; 2 for wrong options.");
  const auto options = std::make_shared<ExportOptions>();
  tools::addValue(*command, "FILE", "", "The capture (.zcap)", [options](const std::string& text) {
    options->capture = tools::fileValue("FILE", text);
  })->required();
  addTargets(*command, *options);
  const auto overwrite = std::make_shared<bool>(false);
  tools::addFlag(*command, "--force", *overwrite, "Replace existing files");
  return {command, [options, overwrite] {
            if (*overwrite) options->existing = Existing::replaced;
            if (!options->edf && !options->csv) {
              throw CLI::RequiredError("--edf FILE, --csv DIRECTORY or both");
            }
            return runExport(*options, "export");
          }};
}

}  // namespace Zephly::exporting
