// SPDX-License-Identifier: MIT
#include <tools/export/export_command.h>

#include <tools/common/option_values.h>
#include <tools/export/end_signals.h>
#include <tools/export/exporter.h>

#include <CLI/CLI.hpp>

#include <iostream>
#include <memory>
#include <string>

namespace Zephly::exporting {

void addTargets(CLI::App& command, ExportOptions& options) {
  CLI::Option* edf = tools::addValue(
      command, "--edf", "FILE", "Write an EDF+ file (see docs/export.md)",
      [&](const std::string& text) { options.edf = tools::fileValue("--edf", text); });
  tools::addFlag(command, "--edf-discontinuous", options.edfForm.discontinuous,
                 "Leave gaps out of the EDF+ file (EDF+D; default: fill them with zeros)")
      ->needs(edf);
  tools::addFlag(command, "--utc", options.edfForm.utc,
                 "Write the start of the EDF+ file in UTC (default: in local time)")
      ->needs(edf);
  tools::addValue(command, "--csv", "DIRECTORY",
                  "Write a CSV file for each stream into this directory",
                  [&](const std::string& text) { options.csv = tools::fileValue("--csv", text); });
}

int runExport(ExportOptions options, const std::string& who) {
  const EndSignals signals;
  options.interrupted = [asked = options.interrupted] { return asked() || EndSignals::came(); };
  const auto complaints = exportCapture(options);
  for (const std::string& complaint : complaints) {
    std::cerr << "zephly " << who << ": " << complaint << '\n';
  }
  return complaints.empty() ? tools::exitDone : tools::exitFailed;
}

tools::Command addExportCommand(CLI::App& program) {
  CLI::App* command = program.add_subcommand("export", "Convert a capture to EDF+ and CSV");
  command->footer(
      "Examples:\n"
      "  zephly export walk.zcap --csv walk       write walk/ecg.csv, walk/respiration.csv and so "
      "on\n"
      "  zephly export walk.zcap --edf walk.edf   write an EDF+ file\n"
      "\n"
      "docs/export.md describes signals, columns and times. After an error or Ctrl-C nothing is "
      "written.\n"
      "A damaged capture is exported up to the damage.\n"
      "Exit code: 0 success; 1 file not written, or capture unusable or damaged; 2 wrong options.");
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
