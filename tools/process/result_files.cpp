// SPDX-License-Identifier: MIT
#include <tools/process/result_files.h>

#include <tools/export/event_rows.h>
#include <tools/export/exporter.h>

#include <utility>

namespace Zephly::processing {

namespace {

constexpr const char* edfName = "signals.edf";
constexpr const char* hdf5Name = "signals.h5";

}  // namespace

std::vector<std::string> ResultFiles::names() {
  std::vector<std::string> names = exporting::CsvTables::names();
  names.insert(names.end(), {edfName, hdf5Name});
  return names;
}

ResultFiles::ResultFiles(std::filesystem::path capture, std::filesystem::path directory,
                         std::filesystem::path folder, Forms forms)
    : capture_(std::move(capture)),
      directory_(std::move(directory)),
      folder_(std::move(folder)),
      forms_(forms) {}

void ResultFiles::begin(const capture::Preamble& preamble, const replay::Timeline& timeline) {
  exporting::checkBegin(capture_, preamble);
  summary_.begin(preamble, timeline);
  if (forms_.csv) {
    csv_.emplace(directory_, folder_, timeline, preamble.began);
  } else {
    events_.emplace(directory_ / exporting::eventsName, folder_ / exporting::eventsName,
                    exporting::eventColumns, preamble.began);
    exporting::writeEvents(*events_, timeline);
  }
  if (forms_.hdf5) hdf5_.emplace(directory_ / hdf5Name, folder_ / hdf5Name, timeline, preamble);
  if (forms_.edf) {
    // In UTC: the result must not depend on the time zone of the machine.
    edf_.emplace(
        folder_ / edfName, exporting::Existing::refused, timeline, preamble,
        exporting::EdfForm{.discontinuous = forms_.edfDiscontinuous, .utc = true, .vitals = false});
  }
}

void ResultFiles::record(const replay::PlayedRecord& record) {
  summary_.take(record);
  if (csv_) csv_->take(record);
  if (edf_) edf_->take(record);
  if (hdf5_) hdf5_->take(record);
}

void ResultFiles::beat(const vitals::Beat& beat) {
  summary_.beat(beat);
  if (csv_) csv_->beat(beat);
  if (hdf5_) hdf5_->beat(beat);
}

void ResultFiles::breath(const vitals::Breath& breath) {
  summary_.breath(breath);
  if (csv_) csv_->breath(breath);
  if (hdf5_) hdf5_->breath(breath);
}

void ResultFiles::second(const vitals::Second& second) {
  summary_.second(second);
  if (csv_) csv_->second(second);
  if (hdf5_) hdf5_->second(second);
}

void ResultFiles::end() {
  if (csv_) csv_->complete();
  if (events_) events_->complete();
  if (edf_) edf_->publish();
  if (hdf5_) hdf5_->complete();
}

}  // namespace Zephly::processing
