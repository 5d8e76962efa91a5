// SPDX-License-Identifier: MIT
#include <tools/export/csv_files.h>

#include <hosts/replay/samples.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cmath>
#include <span>
#include <system_error>

namespace Zephly::exporting {

namespace {

using namespace std::chrono_literals;

std::string headerOf(Stream stream) {
  std::string header = "time_s,date_utc,gap_s";
  for (const std::string& column : replay::columnsOf(stream)) header += ',' + column;
  if (stream == Stream::respiration) header += std::string(",") + replay::processedTimeColumn;
  return header;
}

constexpr std::string_view eventsHeader = "time_s,date_utc,event,stream,duration_s";

constexpr const char* eventsName = "events";

constexpr std::size_t rowsAtOnce = 65'536;  // bytes

// With zeros in front.
void appendDigits(std::string& text, std::int64_t number, int digits) {
  const std::size_t begin = text.size();
  text.append(static_cast<std::size_t>(digits), '0');
  for (std::size_t at = text.size(); at > begin && number > 0; number /= 10) {
    text[--at] = static_cast<char>('0' + number % 10);
  }
}

void appendSeconds(std::string& text, timing::Nanoseconds time) {
  if (time < timing::Nanoseconds::zero()) text += '-';
  time = std::chrono::abs(time);
  text += std::to_string(time.count() / 1'000'000'000);
  text += '.';
  appendDigits(text, time.count() % 1'000'000'000, 9);
}

// "2026-03-01T09:30:00"
std::string secondText(std::chrono::seconds sinceEpoch) {
  const std::chrono::sys_seconds time(sinceEpoch);
  const auto day = std::chrono::floor<std::chrono::days>(time);
  const std::chrono::year_month_day date(day);
  const std::chrono::hh_mm_ss clock(time - day);
  std::string text;
  appendDigits(text, static_cast<int>(date.year()), 4);
  text += '-';
  appendDigits(text, static_cast<unsigned>(date.month()), 2);
  text += '-';
  appendDigits(text, static_cast<unsigned>(date.day()), 2);
  text += 'T';
  appendDigits(text, clock.hours().count(), 2);
  text += ':';
  appendDigits(text, clock.minutes().count(), 2);
  text += ':';
  appendDigits(text, clock.seconds().count(), 2);
  return text;
}

void makeDirectory(const std::filesystem::path& directory) {
  std::error_code error;
  std::filesystem::create_directory(directory, error);
  if (error) throw cannotWrite(directory, error.value());
}

std::filesystem::path pathIn(const std::filesystem::path& directory, const std::string& name) {
  return directory / (name + ".csv");
}

}  // namespace

std::string dateText(timing::Nanoseconds sinceEpoch) {
  const auto second = std::chrono::floor<std::chrono::seconds>(sinceEpoch);
  std::string text = secondText(second);
  text += '.';
  appendDigits(text, (sinceEpoch - second).count(), 9);
  return text + 'Z';
}

CsvFile::CsvFile(const std::filesystem::path& path, Existing existing, std::string_view header,
                 timing::Nanoseconds began)
    : file_(path, existing), began_(began), row_(header) {
  row_ += '\n';
}

void CsvFile::begin(timing::Nanoseconds time) {
  appendSeconds(row_, time);
  row_ += ',';
  const timing::Nanoseconds date = began_ + time;
  const auto second = std::chrono::floor<std::chrono::seconds>(date);
  if (second != second_) {
    second_ = second;
    secondText_ = secondText(second);
  }
  row_ += secondText_;
  row_ += '.';
  appendDigits(row_, (date - second).count(), 9);
  row_ += 'Z';
}

void CsvFile::text(std::string_view text) {
  row_ += ',';
  row_ += text;
}

void CsvFile::number(float value) {
  if (std::isnan(value)) return text("");
  std::array<char, 32> digits{};
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value).ptr;
  text({digits.data(), static_cast<std::size_t>(end - digits.data())});
}

void CsvFile::duration(timing::Nanoseconds value) {
  row_ += ',';
  appendSeconds(row_, value);
}

void CsvFile::gap(timing::Nanoseconds value) {
  if (value > timing::Nanoseconds::zero()) {
    duration(value);
  } else {
    row_ += ',';
  }
}

void CsvFile::endRow() {
  row_ += '\n';
  if (row_.size() >= rowsAtOnce) finish();
}

void CsvFile::finish() {
  file_.write(row_);
  row_.clear();
}

CsvFiles::CsvFiles(const std::filesystem::path& directory, Existing existing,
                   const replay::Timeline& timeline, timing::Nanoseconds began) {
  makeDirectory(directory);
  const auto create = [&](const std::string& name, std::string_view header) {
    return std::make_unique<CsvFile>(pathIn(directory, name), existing, header, began);
  };
  for (const Stream stream : replay::exportOrder) {
    streams_[stream] = create(std::string(streamInfo(stream).name), headerOf(stream));
  }
  for (const timing::StreamClock& clock : timeline.clocks) walks_.emplace_back(clock);
  events_ = create(eventsName, eventsHeader);
  writeAnnotations(timeline);
}

void CsvFiles::check(const std::filesystem::path& directory, Existing existing) {
  makeDirectory(directory);
  const auto probe = [&](const std::string& name) {
    const PendingFile file(pathIn(directory, name), existing);
  };
  for (const Stream stream : replay::exportOrder) probe(std::string(streamInfo(stream).name));
  probe(eventsName);
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

void CsvFiles::publish() {
  std::vector<CsvFile*> all = {events_.get()};
  for (const auto& stream : streams_) all.push_back(stream.get());
  for (CsvFile* file : all) file->finish();
  for (CsvFile* file : all) file->publish();
}

}  // namespace Zephly::exporting
