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
      "Write a CSV file for each stream into this directory, which is created if need be",
      [&](const std::string& text) { options.csv = tools::fileValue("--csv", text); });
}

int runExport(ExportOptions options, const std::string& who) {
  // A limit of the file's size is an error like a full disk.
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
      "Signals, columns and how samples get their times: see docs/export.md. A file appears when\n"
      "it is complete, and not at all when something goes wrong before, or after Ctrl-C. Of a\n"
      "capture that is cut or damaged, what stands before is written.\n"
      "Exit code: 0 when everything was written; 1 when a file could not be written, or the\n"
      "capture is cut, damaged or none; 2 for options that are not understood.");
  const auto options = std::make_shared<ExportOptions>();
  tools::addValue(*command, "FILE", "", "The capture (.zcap)", [options](const std::string& text) {
    options->capture = tools::fileValue("FILE", text);
  })->required();
  addTargets(*command, *options);
  command
      ->add_flag_callback(
          "--force", [options] { options->existing = Existing::replaced; },
          "Replace files that are there already")
      ->disable_flag_override();
  return {command, [options] {
            if (!options->edf && !options->csv) {
              throw CLI::RequiredError("--edf FILE, --csv DIRECTORY or both");
            }
            return runExport(*options, "export");
          }};
}

}  // namespace Zephly::exporting
