// SPDX-License-Identifier: MIT
#include <tools/export/csv_file.h>

#include <tools/common/output_path.h>
#include <tools/export/unfinished.h>

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cmath>
#include <utility>

namespace Zephly::exporting {

namespace {

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

}  // namespace

std::string dateText(timing::Nanoseconds sinceEpoch) {
  const auto second = std::chrono::floor<std::chrono::seconds>(sinceEpoch);
  std::string text = secondText(second);
  text += '.';
  appendDigits(text, (sinceEpoch - second).count(), 9);
  return text + 'Z';
}

CsvFile::CsvFile(std::filesystem::path path, const std::filesystem::path& name,
                 std::string_view columns, std::optional<timing::Nanoseconds> began)
    : file_(::open(name.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0666)),
      written_{.path = std::move(path), .rows = 0},
      began_(began),
      row_(began ? "time_s,date_utc," : "time_s,") {
  if (file_.get() < 0) throw tools::cannotWrite(written_.path, errno);
  row_ += columns;
  row_ += '\n';
}

void CsvFile::begin(timing::Nanoseconds time) {
  if (!written_.span) written_.span = {time, time};
  written_.span->to = time;
  ++*written_.rows;
  appendSeconds(row_, time);
  if (!began_) return;
  row_ += ',';
  const timing::Nanoseconds date = *began_ + time;
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

void CsvFile::fixed(std::optional<double> value, int digits) {
  if (!value) return text("");
  std::array<char, 400> number{};  // room for any double
  const auto end = std::to_chars(number.data(), number.data() + number.size(), *value,
                                 std::chars_format::fixed, digits)
                       .ptr;
  text({number.data(), static_cast<std::size_t>(end - number.data())});
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
  writeAll(file_.get(), row_, written_.path);
  written_.bytes += row_.size();
  row_.clear();
}

void CsvFile::complete() {
  writeRows();
  // EINVAL: the file system does not support fsync(); the data were written all the same.
  if (::fsync(file_.get()) < 0 && errno != EINVAL) throw tools::cannotWrite(written_.path, errno);
}

}  // namespace Zephly::exporting
