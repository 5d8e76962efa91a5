// SPDX-License-Identifier: MIT
#include <tools/export/csv_tables.h>

#include <hosts/replay/samples.h>
#include <tools/export/event_rows.h>
#include <tools/export/vitals_rows.h>

#include <span>
#include <string_view>

namespace Zephly::exporting {

namespace {

std::string columnsOfFile(Stream stream) {
  std::string columns = "gap_s";
  for (const std::string& column : replay::columnsOf(stream)) columns += ',' + column;
  if (stream == Stream::respiration) columns += std::string(",") + replay::processedTimeColumn;
  return columns;
}

constexpr const char* beatsName = "beats.csv";
constexpr const char* breathsName = "breaths.csv";
constexpr const char* secondsName = "vitals.csv";

std::string csvName(Stream stream) { return std::string(streamInfo(stream).name) + ".csv"; }

}  // namespace

std::vector<std::string> CsvTables::names() {
  std::vector<std::string> names = {eventsName, beatsName, breathsName, secondsName};
  for (const Stream stream : replay::exportOrder) names.push_back(csvName(stream));
  return names;
}

CsvTables::CsvTables(const std::filesystem::path& directory, const std::filesystem::path& folder,
                     const replay::Timeline& timeline, timing::Nanoseconds began) {
  const auto create = [&](const std::string& name, std::string_view columns) {
    return std::make_unique<CsvFile>(directory / name, folder / name, columns, began);
  };
  for (const Stream stream : replay::exportOrder) {
    streams_[stream] = create(csvName(stream), columnsOfFile(stream));
  }
  for (const timing::StreamClock& clock : timeline.clocks) walks_.emplace_back(clock);
  events_ = create(eventsName, eventColumns);
  beats_ = create(beatsName, beatColumns);
  breaths_ = create(breathsName, breathColumns);
  seconds_ = create(secondsName, secondColumns);
  writeEvents(*events_, timeline);
}

void CsvTables::take(const replay::PlayedRecord& record) {
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
}

void CsvTables::beat(const vitals::Beat& beat) { writeBeat(*beats_, beat); }
void CsvTables::breath(const vitals::Breath& breath) { writeBreath(*breaths_, breath); }
void CsvTables::second(const vitals::Second& second) { writeSecond(*seconds_, second); }

std::vector<CsvFile*> CsvTables::all() const {
  std::vector<CsvFile*> files;
  for (const Stream stream : replay::exportOrder) files.push_back(streams_[stream].get());
  for (const auto* file : {&events_, &beats_, &breaths_, &seconds_}) files.push_back(file->get());
  return files;
}

void CsvTables::complete() {
  for (CsvFile* file : all()) file->complete();
}

std::vector<WrittenFile> CsvTables::written() const {
  std::vector<WrittenFile> files;
  for (const CsvFile* file : all()) files.push_back(file->written());
  return files;
}

}  // namespace Zephly::exporting
