// SPDX-License-Identifier: MIT
#include <tools/export/csv_files.h>

#include <hosts/replay/samples.h>

#include <chrono>
#include <span>
#include <utility>

namespace Zephly::exporting {

namespace {

using namespace std::chrono_literals;

std::string columnsOfFile(Stream stream) {
  std::string columns = "gap_s";
  for (const std::string& column : replay::columnsOf(stream)) columns += ',' + column;
  if (stream == Stream::respiration) columns += std::string(",") + replay::processedTimeColumn;
  return columns;
}

constexpr std::string_view eventColumns = "event,stream,duration_s";

constexpr const char* eventsName = "events.csv";
constexpr const char* beatsName = "beats.csv";
constexpr const char* breathsName = "breaths.csv";
constexpr const char* secondsName = "vitals.csv";

std::string csvName(Stream stream) { return std::string(streamInfo(stream).name) + ".csv"; }

std::vector<std::string> csvNames() {
  std::vector<std::string> names = {eventsName, beatsName, breathsName, secondsName};
  for (const Stream stream : replay::exportOrder) names.push_back(csvName(stream));
  return names;
}

}  // namespace

CsvFiles::CsvFiles(const std::filesystem::path& directory, Existing existing,
                   const replay::Timeline& timeline, timing::Nanoseconds began)
    : directory_(directory, existing, csvNames()), vitals_(timeline, tables_) {
  const auto create = [&](const std::string& name, std::string_view columns) {
    return std::make_unique<CsvFile>(directory / name, directory_.temporary() / name, columns,
                                     began);
  };
  for (const Stream stream : replay::exportOrder) {
    streams_[stream] = create(csvName(stream), columnsOfFile(stream));
  }
  for (const timing::StreamClock& clock : timeline.clocks) walks_.emplace_back(clock);
  events_ = create(eventsName, eventColumns);
  tables_.beats = create(beatsName, beatColumns);
  tables_.breaths = create(breathsName, breathColumns);
  tables_.seconds = create(secondsName, secondColumns);
  writeAnnotations(timeline);
}

void CsvFiles::check(const std::filesystem::path& directory, Existing existing,
                     const std::filesystem::path& capture) {
  for (const std::string& name : csvNames()) tools::refuseInput(directory / name, capture);
  const PendingDirectory probe(directory, existing, csvNames());
}

void CsvFiles::take(const replay::PlayedRecord& record) {
  const auto batteryTime = batteryTimes_.take(record);
  replay::forEachSample(record, [&](Stream stream, std::span<const float> values) {
    const timing::SampleTime time =
        replay::isMeasured(stream) ? walks_[static_cast<std::size_t>(stream)].next() : *batteryTime;
    CsvFile& rows = *streams_[stream];
    rows.begin(time.time);
    rows.gap(time.gap);
    for (const float value : values) rows.number(value);
    if (stream == Stream::respiration) rows.duration(time.time - replay::processedDelay);
    rows.endRow();
  });
  vitals_.take(record);
}

void CsvFiles::writeAnnotations(const replay::Timeline& timeline) {
  for (const replay::Annotation& annotation : timeline.annotations) {
    events_->begin(annotation.time);
    events_->text(replay::annotationName(annotation.kind));
    events_->text(annotation.stream ? streamInfo(*annotation.stream).name : "");
    if (annotation.duration) {
      events_->duration(*annotation.duration);
    } else {
      events_->text("");
    }
    events_->endRow();
  }
}

std::vector<CsvFile*> CsvFiles::all() const {
  std::vector<CsvFile*> files;
  for (const Stream stream : replay::exportOrder) files.push_back(streams_[stream].get());
  for (const auto* file : {&events_, &tables_.beats, &tables_.breaths, &tables_.seconds}) {
    files.push_back(file->get());
  }
  return files;
}

void CsvFiles::complete() {
  vitals_.finish();
  for (CsvFile* file : all()) file->complete();
}

std::vector<WrittenFile> CsvFiles::written() const {
  std::vector<WrittenFile> files;
  for (const CsvFile* file : all()) files.push_back(file->written());
  return files;
}

}  // namespace Zephly::exporting
