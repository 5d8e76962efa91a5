// SPDX-License-Identifier: MIT
#include <tools/common/option_values.h>
#include <tools/vitals/csv_reader.h>
#include <tools/vitals/input_error.h>
#include <tools/vitals/signal_names.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <utility>

namespace Zephly::recorders {

namespace {

constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
constexpr std::size_t rowsOfAPiece = 4096;
constexpr std::size_t rowsToMeasure = 5000;
constexpr double largestSample = 1e30;
constexpr double millisecond = 1e-3;
constexpr double microsecond = 1e-6;

// Without blanks and quotes around it.
std::string_view cellText(std::string_view text) {
  constexpr std::string_view around = " \t";
  const std::size_t first = text.find_first_not_of(around);
  if (first == std::string_view::npos) return {};
  text = text.substr(first, text.find_last_not_of(around) - first + 1);
  if (text.size() >= 2 && text.front() == '"' && text.back() == '"') {
    text = text.substr(1, text.size() - 2);
  }
  return text;
}

void splitCells(std::string_view text, char separator, std::vector<std::string_view>& cells) {
  cells.clear();
  while (true) {
    const std::size_t end = text.find(separator);
    cells.push_back(text.substr(0, end));
    if (end == std::string_view::npos) return;
    text.remove_prefix(end + 1);
  }
}

char separatorOf(std::string_view line) {
  for (const char one : {',', ';', '\t'}) {
    if (line.find(one) != std::string_view::npos) return one;
  }
  return ',';
}

std::optional<double> cellNumber(std::string_view cell) {
  std::string_view text = cellText(cell);
  if (text.starts_with('+')) text.remove_prefix(1);
  return tools::parseNumber<double>(text);
}

// Of a column with times, by its name.
std::optional<double> secondsPerUnit(const std::string& name) {
  const NamedUnit parts = splitUnit(name);
  constexpr std::array<std::string_view, 6> names = {"time",    "t",       "timestamp",
                                                     "seconds", "elapsed", "elapsed time"};
  const std::string base = lowerCase(parts.name);
  if (std::find(names.begin(), names.end(), base) == names.end()) return std::nullopt;
  const std::string unit = lowerCase(parts.unit);
  if (unit.empty() || unit == "s" || unit == "sec" || unit == "seconds") return 1;
  if (unit == "ms") return millisecond;
  if (unit == "us" || unit == "\u00B5s") return microsecond;
  if (unit == "ns") return millisecond * microsecond;
  return std::nullopt;
}

}  // namespace

CsvReader::CsvReader(InputFile file, std::optional<double> rate)
    : file_(std::move(file)), lines_(file_, longestRow), rate_(rate) {
  std::optional<TextLine> line;
  do {
    line = lines_.next();
    if (line && line->at == 0 && line->text.starts_with(byteOrderMark)) {
      line->text.remove_prefix(byteOrderMark.size());
      line->at += byteOrderMark.size();
    }
  } while (line && (cellText(line->text).empty() || line->text.starts_with('#')));
  if (!line) throw InputError(file_.path(), file_.size(), "rows of numbers expected, found none");
  if (line->text.find('\0') != std::string_view::npos) {
    throw InputError(file_.path(), line->at, "neither a capture nor EDF, BDF, WFDB or CSV");
  }
  readNames(*line);
  if (!rate_ && !clock_) {
    throw InputError(file_.path(),
                     "it has no column of times: give its rows per second with --rate");
  }
  const double perSecond = rate_ ? *rate_ : measuredRate();
  for (SignalInfo& info : infos_) info.rate = perSecond;
  rewind();
}

void CsvReader::readNames(const TextLine& line) {
  separator_ = separatorOf(line.text);
  splitCells(line.text, separator_, cells_);
  width_ = cells_.size();
  const bool named = std::any_of(cells_.begin(), cells_.end(), [](std::string_view cell) {
    return !cellText(cell).empty() && !cellNumber(cell);
  });
  firstRow_ = named ? lines_.position() : line.at;
  for (std::size_t i = 0; i < width_; ++i) {
    const std::string name = named ? std::string(cellText(cells_[i])) : std::to_string(i + 1);
    if (const auto unit = secondsPerUnit(name); unit && !clock_) {
      clock_ = Clock{i, *unit};
      continue;
    }
    infos_.push_back({name, splitUnit(name).unit, 0});
    columns_.push_back(i);
  }
  if (infos_.empty()) throw InputError(file_.path(), line.at, "a column beside the times expected");
}

void CsvReader::fail(std::size_t column, const std::string& expected) const {
  const std::string_view cell = cells_[column];
  const auto offset = static_cast<std::uint64_t>(cell.data() - row_.text.data());
  const std::string_view text = cellText(cell);
  throw InputError(
      file_.path(), row_.at + offset,
      expected + " expected, found " + (text.empty() ? "an empty cell" : excerpt(text)));
}

void CsvReader::rewind() {
  lines_.seek(firstRow_);
  last_.reset();
}

bool CsvReader::nextRow() {
  std::optional<TextLine> line = lines_.next();
  // Empty lines at the end are no rows.
  while (line && line->text.empty()) {
    const std::uint64_t at = line->at;
    line = lines_.next();
    if (line && !line->text.empty())
      throw InputError(file_.path(), at, "a row expected, found an empty line");
  }
  if (!line) return false;
  row_ = *line;
  splitCells(row_.text, separator_, cells_);
  if (cells_.size() != width_) {
    throw InputError(
        file_.path(), row_.at,
        std::to_string(width_) + " cells expected, found " + std::to_string(cells_.size()));
  }
  return true;
}

double CsvReader::number(std::size_t column) const {
  const auto value = cellNumber(cells_[column]);
  if (!value || !std::isfinite(*value)) fail(column, "a number");
  return *value;
}

std::optional<double> CsvReader::sample(std::size_t column) const {
  if (cellText(cells_[column]).empty()) return std::nullopt;
  const auto value = cellNumber(cells_[column]);
  if (value && std::isnan(*value)) return std::nullopt;
  if (!value || !(std::abs(*value) <= largestSample)) fail(column, "a number of at most 1e30");
  return value;
}

vitals::Time CsvReader::timeOfRow() const {
  if (rate_) return timeOfSample(static_cast<double>(rows_), *rate_);
  const double seconds = number(clock_->column) * clock_->secondsPerUnit;
  if (!(std::abs(seconds) <= latestTime)) fail(clock_->column, "a time of at most 4e9 seconds");
  const vitals::Time time = timeOfSample(seconds, 1);
  if (last_ && time <= *last_) fail(clock_->column, "a time after that of the row before");
  return time;
}

// Times may be rounded to milliseconds, so that steps differ. Gaps do not count.
double CsvReader::measuredRate() {
  std::vector<double> steps;
  while (steps.size() < rowsToMeasure && nextRow()) {
    const vitals::Time time = timeOfRow();
    if (last_) {
      steps.push_back(std::chrono::duration<double>(time - *last_).count());
    } else {
      begin_ = time;
    }
    last_ = time;
  }
  if (steps.empty()) throw InputError(file_.path(), firstRow_, "two rows with times expected");
  std::vector<double> sorted = steps;
  const auto middle = sorted.begin() + static_cast<std::ptrdiff_t>(sorted.size() / 2);
  std::nth_element(sorted.begin(), middle, sorted.end());
  double sum = 0;
  double count = 0;
  for (const double step : steps) {
    if (step > 2 * *middle) continue;
    sum += step;
    ++count;
  }
  return count / sum;
}

double CsvReader::part() const {
  return static_cast<double>(lines_.position()) / static_cast<double>(file_.size());
}

void CsvReader::takeRow(std::vector<SignalSample>& samples) {
  const vitals::Time time = timeOfRow();
  for (std::size_t i = 0; i < chosen_.size(); ++i) {
    if (const auto value = sample(columns_[chosen_[i]])) {
      samples.push_back({i, time, static_cast<float>(*value)});
    }
  }
  last_ = time;
  ++rows_;
}

bool CsvReader::next(std::vector<SignalSample>& samples) {
  samples.clear();
  std::size_t rows = 0;
  for (; rows < rowsOfAPiece && nextRow(); ++rows) takeRow(samples);
  if (rows == 0 && rows_ == 0)
    throw InputError(file_.path(), file_.size(),
                     "a row of numbers expected, found the end of the file");
  return rows > 0;
}

}  // namespace Zephly::recorders
