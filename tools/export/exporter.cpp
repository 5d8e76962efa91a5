// SPDX-License-Identifier: MIT
#include <tools/export/exporter.h>

#include <capture/text.h>
#include <hosts/replay/capture_player.h>
#include <hosts/replay/capture_vitals.h>
#include <hosts/replay/survey.h>
#include <tools/export/csv_files.h>
#include <tools/export/edf_file.h>

#include <algorithm>
#include <stdexcept>
#include <system_error>

namespace Zephly::exporting {

namespace {

using namespace std::chrono_literals;

// Later, times within the session would overflow a 64-bit count of nanoseconds.
constexpr timing::Nanoseconds latestBegin = 8'000'000'000s;  // the year 2223

std::string about(const std::filesystem::path& capture, const std::string& what) {
  return capture::printable(capture.string()) + ": " + what;
}

// The directory of CSV files is replaced as a whole, so it must not hold another file.
void refuseInside(const std::filesystem::path& directory, const std::filesystem::path& file,
                  const std::string& what) {
  std::error_code error;
  const auto place = [&error](const std::filesystem::path& path) {
    const auto real = std::filesystem::weakly_canonical(path, error);
    return real.has_filename() ? real : real.parent_path();
  };
  const std::filesystem::path outer = place(directory);
  const std::filesystem::path inner = place(file);
  const auto [end, rest] = std::mismatch(outer.begin(), outer.end(), inner.begin(), inner.end());
  if (error || end != outer.end()) return;
  throw cannotWrite(directory, what + " is to be there; name another directory");
}

void checkInterruption(const ExportOptions& options) {
  if (options.interrupted()) throw std::runtime_error("interrupted; nothing was exported");
}

// An EDF+ file needs all annotations before its first sample.
void findVitals(const ExportOptions& options, const replay::Timeline& timeline,
                std::uint64_t records, vitals::Receiver& receiver) {
  replay::CaptureVitals vitals(timeline, receiver);
  replay::CapturePlayer player(options.capture);
  player.play(
      [&](const replay::PlayedRecord& record) {
        checkInterruption(options);
        options.progress(Stage::reading, player.part());
        vitals.take(record);
      },
      records);
  vitals.finish();
}

}  // namespace

void checkBegin(const std::filesystem::path& capture, const capture::Preamble& preamble) {
  if (preamble.began >= timing::Nanoseconds::zero() && preamble.began <= latestBegin) return;
  throw std::runtime_error(about(capture, "the date in its head is none"));
}

void checkTargets(const ExportOptions& options) {
  if (options.edf) tools::refuseInput(*options.edf, options.capture);
  if (options.csv) {
    refuseInside(*options.csv, options.capture, "the capture");
    if (options.edf) refuseInside(*options.csv, *options.edf, "the EDF+ file");
  }
  if (options.edf) const PendingFile probe(*options.edf, options.existing);
  if (options.csv) CsvFiles::check(*options.csv, options.existing, options.capture);
}

std::vector<std::string> exportCapture(const ExportOptions& options) {
  // First, because a missing capture is the likeliest mistake.
  replay::CapturePlayer first(options.capture);
  checkTargets(options);
  const capture::Preamble preamble = first.preamble();
  checkBegin(options.capture, preamble);
  replay::Survey survey;
  replay::Played played = first.play([&](const replay::PlayedRecord& record) {
    checkInterruption(options);
    options.progress(Stage::reading, first.part());
    survey.take(record);
  });
  const replay::Timeline timeline = survey.finish(played.duration);

  EdfVitals vitals;
  if (options.edf && options.edfForm.vitals) findVitals(options, timeline, played.records, vitals);
  std::optional<EdfFile> edf;
  if (options.edf) {
    edf.emplace(*options.edf, options.existing, timeline, preamble, options.edfForm,
                vitals.annotations());
  }
  std::optional<CsvFiles> csv;
  if (options.csv) csv.emplace(*options.csv, options.existing, timeline, preamble.began);
  replay::CapturePlayer second(options.capture);
  const replay::Played again = second.play(
      [&](const replay::PlayedRecord& record) {
        checkInterruption(options);
        options.progress(Stage::writing, second.part());
        if (edf) edf->take(record);
        if (csv) csv->take(record);
      },
      played.records);
  if (again.records != played.records) {
    throw std::runtime_error(about(options.capture, "it has changed while it was read"));
  }
  // What can fail for lack of space comes before anything gets its name.
  if (csv) csv->complete();
  if (edf) edf->publish();
  if (csv) csv->publish();
  if (edf) {
    options.written({.path = *options.edf,
                     .bytes = std::filesystem::file_size(*options.edf),
                     .span = WrittenFile::Span{{}, timeline.end}});
  }
  if (csv) {
    for (const WrittenFile& file : csv->written()) options.written(file);
  }
  if (edf && !edf->isDated()) {
    played.complaints.push_back(
        about(options.capture, "EDF+ has no such date as " + dateText(preamble.began) +
                                   "; the file says 1 January 1985, 00:00"));
  }
  return played.complaints;
}

}  // namespace Zephly::exporting
