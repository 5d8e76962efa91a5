// SPDX-License-Identifier: MIT
#include <tools/report/report_command.h>

#include <tools/common/option_values.h>
#include <tools/common/output.h>
#include <tools/common/progress.h>
#include <tools/common/terminal.h>
#include <tools/export/end_signals.h>
#include <tools/export/pending_file.h>
#include <tools/export/written_file.h>
#include <tools/report/capture_report.h>
#include <tools/report/report_json.h>
#include <tools/view/assets.h>

#include <CLI/CLI.hpp>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace Zephly::reporting {

namespace {

struct ReportOptions {
  std::filesystem::path capture;
  std::optional<std::filesystem::path> out;  // empty: beside the capture
  std::optional<std::string> title;          // empty: the name of the capture
  bool force = false;
};

std::filesystem::path outputOf(const ReportOptions& options) {
  if (options.out) return *options.out;
  std::filesystem::path path = options.capture;
  if (path.extension() == ".zcap") return path.replace_extension(".html");
  return path += ".html";
}

// A status line on a terminal, and the end at Ctrl-C.
class ReportStatus {
 public:
  ReportStatus() : progress_(errors_, tools::isDrawableTerminal(STDERR_FILENO)) {}
  ReportStatus(const ReportStatus&) = delete;
  ReportStatus& operator=(const ReportStatus&) = delete;
  ~ReportStatus() { progress_.end(); }

  void show(double part) {
    if (exporting::EndSignals::came()) throw std::runtime_error("interrupted; nothing was written");
    const int percent = static_cast<int>(100 * part);
    if (percent == shown_) return;
    shown_ = percent;
    progress_.status("Reading: " + std::to_string(percent) + " %");
  }

 private:
  tools::Output errors_{STDERR_FILENO};
  tools::Progress progress_;
  int shown_ = -1;
};

int runReport(const ReportOptions& options) {
  const view::ReportPage page = view::reportPage();
  if (page.before.empty()) throw std::runtime_error(view::noPage);
  const exporting::EndSignals signals;
  CaptureReport report;
  recorders::CaptureInput input(options.capture, /*searchBack=*/false, &report);
  const std::filesystem::path path = outputOf(options);
  tools::refuseInput(path, options.capture);
  exporting::PendingFile file(
      path, options.force ? exporting::Existing::replaced : exporting::Existing::refused);
  std::vector<std::string> complaints;
  {
    ReportStatus status;
    complaints = input.play(report, [&](double part) { status.show(part); });
  }
  const std::string title =
      options.title.value_or(options.capture.filename().replace_extension().string());
  const std::string json = embeddable(report.json(input.about(), complaints, title).text());
  file.write(page.before);
  file.write(json);
  file.write(page.after);
  file.publish();
  tools::Output output(STDOUT_FILENO);
  output.write(
      exporting::writtenText({{.path = path,
                               .bytes = page.before.size() + json.size() + page.after.size(),
                               .span = exporting::WrittenFile::Span{{}, input.about().duration}}}));
  output.finish();
  if (const auto failure = output.failure()) complaints.push_back("standard output: " + *failure);
  for (const std::string& complaint : complaints) {
    std::cerr << "zephly report: " << complaint << '\n';
  }
  return complaints.empty() ? tools::exitDone : tools::exitFailed;
}

}  // namespace

tools::Command addReportCommand(CLI::App& program) {
  CLI::App* command = program.add_subcommand("report", "Write a capture as a page to look at");
  command->footer(
      "Examples:\n"
      "  zephly report walk.zcap                          write walk.html\n"
      "  zephly report walk.zcap --out night.html --title \"Night 3\"\n"
      "\n"
      "The page is one file that needs no network: open it in a browser, print it, send it.\n"
      "Not a medical device. docs/report.md describes the page.\n"
      "The file appears when it is complete; after an error or Ctrl-C, not at all.\n"
      "A damaged capture is shown up to the damage, and the page says so.\n"
      "Exit code: 0 success; 1 file not written, or capture unusable or damaged; 2 wrong options.");
  const auto options = std::make_shared<ReportOptions>();
  tools::addValue(*command, "FILE", "", "The capture (.zcap)", [options](const std::string& text) {
    options->capture = tools::fileValue("FILE", text);
  })->required();
  tools::addValue(
      *command, "--out", "FILE",
      "The page (default: the name of the capture with .html, beside it)",
      [options](const std::string& text) { options->out = tools::fileValue("--out", text); });
  tools::addValue(*command, "--title", "TEXT", "The heading (default: the name of the capture)",
                  [options](const std::string& text) { options->title = text; });
  tools::addFlag(*command, "--force", options->force, "Replace an existing file");
  return {command, [options] { return runReport(*options); }};
}

}  // namespace Zephly::reporting
