// SPDX-License-Identifier: MIT
#include <tools/export/exporter.h>

#include <capture/text.h>
#include <hosts/replay/capture_player.h>
#include <hosts/replay/survey.h>
#include <tools/export/csv_files.h>
#include <tools/export/edf_file.h>

#include <stdexcept>
#include <system_error>

namespace Zephly::exporting {

namespace {

using namespace std::chrono_literals;

// Later, times within the session would overflow a 64-bit count of nanoseconds.
constexpr timing::Nanoseconds latestBegin = 8'000'000'000s;  // the year 2223

std::string about(const ExportOptions& options, const std::string& what) {
  return capture::printable(options.capture.string()) + ": " + what;
}

void checkBegin(const ExportOptions& options, const capture::Preamble& preamble) {
  if (preamble.began >= timing::Nanoseconds::zero() && preamble.began <= latestBegin) return;
  throw std::runtime_error(about(options, "the date in its head is none"));
}

void checkInterruption(const ExportOptions& options) {
  if (options.interrupted()) throw std::runtime_error("interrupted; nothing was exported");
}

}  // namespace

void checkTargets(const ExportOptions& options) {
  if (options.edf) {
    std::error_code absent;
    if (std::filesystem::equivalent(options.capture, *options.edf, absent)) {
      throw cannotWrite(*options.edf, "it is the capture itself");
    }
    const PendingFile probe(*options.edf, options.existing);
  }
  if (options.csv) CsvFiles::check(*options.csv, options.existing);
}

std::vector<std::string> exportCapture(const ExportOptions& options) {
  checkTargets(options);
  replay::CapturePlayer first(options.capture);
  const capture::Preamble preamble = first.preamble();
  checkBegin(options, preamble);
  replay::Survey survey;
  replay::Played played = first.play([&](const replay::PlayedRecord& record) {
    checkInterruption(options);
    survey.take(record);
  });
  const replay::Timeline timeline = survey.finish(played.duration);

  std::optional<EdfFile> edf;
  if (options.edf) edf.emplace(*options.edf, options.existing, timeline, preamble, options.edfForm);
  std::optional<CsvFiles> csv;
  if (options.csv) csv.emplace(*options.csv, options.existing, timeline, preamble.began);
  replay::CapturePlayer second(options.capture);
  const replay::Played again = second.play(
      [&](const replay::PlayedRecord& record) {
        checkInterruption(options);
        if (edf) edf->take(record);
        if (csv) csv->take(record);
      },
      played.records);
  if (again.records != played.records) {
    throw std::runtime_error(about(options, "it has changed while it was read"));
  }
  if (edf) edf->publish();
  if (csv) csv->publish();
  if (edf && !edf->isDated()) {
    played.complaints.push_back(about(options, "EDF+ has no such date as " +
                                                   dateText(preamble.began) +
                                                   "; the file says 1 January 1985, 00:00"));
  }
  return played.complaints;
}

}  // namespace Zephly::exporting
