// SPDX-License-Identifier: MIT
#include <tools/export/csv_files.h>

#include <hosts/replay/samples.h>

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cmath>
#include <span>
#include <utility>

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

constexpr const char* eventsName = "events.csv";

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

std::string csvName(Stream stream) { return std::string(streamInfo(stream).name) + ".csv"; }

std::vector<std::string> csvNames() {
  std::vector<std::string> names = {eventsName};
  for (const Stream stream : replay::exportOrder) names.push_back(csvName(stream));
  return names;
}

}  // namespace

std::string dateText(timing::Nanoseconds sinceEpoch) {
  const auto second = std::chrono::floor<std::chrono::seconds>(sinceEpoch);
  std::string text = secondText(second);
  text += '.';
  appendDigits(text, (sinceEpoch - second).count(), 9);
  return text + 'Z';
}

CsvFile::CsvFile(std::filesystem::path path, const std::filesystem::path& name,
                 std::string_view header, timing::Nanoseconds began)
    : file_(::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666)),
      written_{.path = std::move(path), .rows = 0},
      began_(began),
      row_(header) {
  if (file_.get() < 0) throw cannotWrite(written_.path, errno);
  row_ += '\n';
}

void CsvFile::begin(timing::Nanoseconds time) {
  if (!written_.span) written_.span = {time, time};
  written_.span->to = time;
  ++*written_.rows;
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
  if (row_.size() >= rowsAtOnce) writeRows();
}

void CsvFile::writeRows() {
  for (std::string_view rest = row_; !rest.empty();) {
    const ssize_t count = ::write(file_.get(), rest.data(), rest.size());
    if (count > 0) {
      rest.remove_prefix(static_cast<std::size_t>(count));
    } else if (count == 0 || errno != EINTR) {
      throw cannotWrite(written_.path, count == 0 ? EIO : errno);
    }
  }
  written_.bytes += row_.size();
  row_.clear();
}

void CsvFile::complete() {
  writeRows();
  // EINVAL: the file system does not support fsync(); the data were written all the same.
  if (::fsync(file_.get()) < 0 && errno != EINVAL) throw cannotWrite(written_.path, errno);
}

CsvFiles::CsvFiles(const std::filesystem::path& directory, Existing existing,
                   const replay::Timeline& timeline, timing::Nanoseconds began)
    : directory_(directory, existing, csvNames()) {
  const auto create = [&](const std::string& name, std::string_view header) {
    return std::make_unique<CsvFile>(directory / name, directory_.temporary() / name, header,
                                     began);
  };
  for (const Stream stream : replay::exportOrder) {
    streams_[stream] = create(csvName(stream), headerOf(stream));
  }
  for (const timing::StreamClock& clock : timeline.clocks) walks_.emplace_back(clock);
  events_ = create(eventsName, eventsHeader);
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
  files.push_back(events_.get());
  return files;
}

void CsvFiles::complete() {
  for (CsvFile* file : all()) file->complete();
}

std::vector<WrittenFile> CsvFiles::written() const {
  std::vector<WrittenFile> files;
  for (const CsvFile* file : all()) files.push_back(file->written());
  return files;
}

}  // namespace Zephly::exporting
