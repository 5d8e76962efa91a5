// SPDX-License-Identifier: MIT
#include <tools/export/export_command.h>

#include <tools/common/option_values.h>
#include <tools/common/output.h>
#include <tools/common/progress.h>
#include <tools/common/terminal.h>
#include <tools/export/end_signals.h>
#include <tools/export/exporter.h>

#include <CLI/CLI.hpp>

#include <unistd.h>

#include <chrono>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Zephly::exporting {

namespace {

// A status line on a terminal.
class ExportStatus {
 public:
  explicit ExportStatus(Reports reports)
      : errors_(STDERR_FILENO),
        progress_(errors_, reports == Reports::all && tools::isDrawableTerminal(STDERR_FILENO)) {}
  ExportStatus(const ExportStatus&) = delete;
  ExportStatus& operator=(const ExportStatus&) = delete;
  ~ExportStatus() { progress_.end(); }

  void show(Stage stage, double part) {
    using Clock = std::chrono::steady_clock;
    constexpr std::chrono::milliseconds between{200};
    const auto now = Clock::now();
    if (shown_ == stage && now < next_) return;
    shown_ = stage;
    next_ = now + between;
    const std::string what = stage == Stage::reading ? "Reading the capture: " : "Writing: ";
    progress_.status(what + std::to_string(static_cast<int>(100 * part)) + " %");
  }

 private:
  tools::Output errors_;
  tools::Progress progress_;
  std::optional<Stage> shown_;
  std::chrono::steady_clock::time_point next_;
};

std::vector<std::string> exportWithProgress(ExportOptions options, Reports reports) {
  ExportStatus status(reports);
  options.progress = [&](Stage stage, double part) { status.show(stage, part); };
  return exportCapture(options);
}

}  // namespace

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
  tools::addFlag(command, "--edf-vitals", options.edfForm.vitals,
                 "Add the beats and breaths to the annotations of the EDF+ file")
      ->needs(edf);
  tools::addValue(command, "--csv", "DIRECTORY",
                  "Write a CSV file for each stream, and for beats, breaths and vitals, into this "
                  "directory, which is new or empty",
                  [&](const std::string& text) { options.csv = tools::fileValue("--csv", text); });
}

int runExport(ExportOptions options, const std::string& who, Reports reports) {
  const EndSignals signals;
  options.interrupted = [asked = options.interrupted] { return asked() || EndSignals::came(); };
  std::vector<WrittenFile> files;
  options.written = [&](const WrittenFile& file) { files.push_back(file); };
  std::vector<std::string> complaints = exportWithProgress(std::move(options), reports);
  if (reports == Reports::all) {
    tools::Output output(STDOUT_FILENO);
    output.write(writtenText(files));
    output.finish();
    if (const auto failure = output.failure()) {
      complaints.push_back("standard output: " + *failure);
    }
  }
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
      "The file and the directory appear when they are complete; after an error or Ctrl-C, not at "
      "all.\n"
      "--force replaces a directory that holds nothing but CSV files of an earlier export.\n"
      "A damaged capture is exported up to the damage. docs/export.md describes signals, columns "
      "and\n"
      "times.\n"
      "Exit code: 0 success; 1 file not written, or capture unusable or damaged; 2 wrong options.");
  const auto options = std::make_shared<ExportOptions>();
  tools::addValue(*command, "FILE", "", "The capture (.zcap)", [options](const std::string& text) {
    options->capture = tools::fileValue("FILE", text);
  })->required();
  addTargets(*command, *options);
  const auto overwrite = std::make_shared<bool>(false);
  tools::addFlag(*command, "--force", *overwrite,
                 "Replace an existing EDF+ file, and CSV files of an earlier export");
  const auto quiet = std::make_shared<bool>(false);
  tools::addFlag(*command, "--quiet", *quiet, "Write neither progress nor a list of the files");
  return {command, [options, overwrite, quiet] {
            if (*overwrite) options->existing = Existing::replaced;
            if (!options->edf && !options->csv) {
              throw CLI::RequiredError("--edf FILE, --csv DIRECTORY or both");
            }
            return runExport(*options, "export", *quiet ? Reports::none : Reports::all);
          }};
}

}  // namespace Zephly::exporting
