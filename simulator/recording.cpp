// SPDX-License-Identifier: MIT
#include <simulator/recording.h>

#include <simulator/lines.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <new>
#include <optional>
#include <sstream>
#include <system_error>
#include <utility>

namespace Zephly::simulator {

namespace {

constexpr std::string_view blanks = " \t";

std::string_view trimmed(std::string_view text) {
  const auto first = text.find_first_not_of(blanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

std::string lowerCase(std::string_view text) {
  std::string lower(text);
  for (char& character : lower)
    if (character >= 'A' && character <= 'Z') character = static_cast<char>(character - 'A' + 'a');
  return lower;
}

// A piece of the file, fit for an error message: short, and printable whatever it is.
std::string quoted(std::string_view text) {
  constexpr std::size_t longest = 40;
  std::string shown = "\"";
  for (const char character : text.substr(0, longest))
    shown += character < ' ' || character > '~' ? '?' : character;
  return shown + (text.size() > longest ? "...\"" : "\"");
}

// Characters of UTF-8 text: bytes that do not continue one.
std::size_t characters(std::string_view text) {
  return static_cast<std::size_t>(std::ranges::count_if(
      text, [](char byte) { return (static_cast<unsigned char>(byte) & 0xC0U) != 0x80U; }));
}

std::vector<std::string_view> split(std::string_view text, char separator) {
  std::vector<std::string_view> parts;
  while (true) {
    const auto end = text.find(separator);
    parts.push_back(text.substr(0, end));
    if (end == std::string_view::npos) return parts;
    text.remove_prefix(end + 1);
  }
}

// The columns that are played. The order is that of `columnNames`.
enum Column : std::size_t {
  ecgColumn,
  respirationColumn,
  skinColumn,
  firstMotionColumn,  // acceleration x, y, z, then rotation x, y, z
  columnCount = firstMotionColumn + 6
};

constexpr std::array<std::string_view, columnCount> columnNames = {"ECG",
                                                                   "RSP",
                                                                   "Skin temperature",
                                                                   "Accelerometer X",
                                                                   "Accelerometer Y",
                                                                   "Accelerometer Z",
                                                                   "Gyroscope X",
                                                                   "Gyroscope Y",
                                                                   "Gyroscope Z"};

// Units that leave the numbers as they are; no unit at all does, too.
std::vector<std::string_view> unitsOf(std::size_t column) {
  if (column == skinColumn) return {"deg c", "degc", "c", "\u00B0c", "celsius", "degrees celsius"};
  if (column >= firstMotionColumn + 3) return {"deg/s", "\u00B0/s", "dps", "degrees/s"};
  if (column >= firstMotionColumn) return {"g"};
  return {};
}

std::string reasonOf(int errorNumber) {
  if (errorNumber == ENOENT) return "no such file";
  return std::generic_category().message(errorNumber);
}

const char* unfitFor(mode_t mode) {
  if (S_ISDIR(mode)) return "is a directory";
  // Nobody could interrupt the program while it waits for the writer of a pipe.
  if (S_ISFIFO(mode)) return "is a pipe, not a regular file: save the recording to a file first";
  return "is not a regular file";
}

// A file that is read up to its end or to the largest size, also while it grows.
class OpenFile {
 public:
  // O_NONBLOCK: to open a pipe without a writer would wait. O_NOCTTY: a terminal must not become
  // the controlling one.
  explicit OpenFile(const std::filesystem::path& path)
      : name_(path.string()),
        descriptor_(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC)) {
    if (descriptor_ < 0) throw RecordingError(name_, reasonOf(errno));
    try {
      check();
    } catch (...) {
      ::close(descriptor_);
      throw;
    }
  }
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;
  ~OpenFile() { ::close(descriptor_); }

  std::size_t read(char* bytes, std::size_t count) {
    ssize_t got = 0;
    do {
      got = ::read(descriptor_, bytes, count);
    } while (got < 0 && errno == EINTR);
    if (got < 0) throw RecordingError(name_, "cannot be read: " + reasonOf(errno));
    total_ += static_cast<std::size_t>(got);
    if (total_ > Recording::largestFile) tooLarge();
    return static_cast<std::size_t>(got);
  }

 private:
  void check() const {
    struct stat status {};
    if (::fstat(descriptor_, &status) < 0) throw RecordingError(name_, reasonOf(errno));
    if (!S_ISREG(status.st_mode)) throw RecordingError(name_, unfitFor(status.st_mode));
    if (static_cast<std::uintmax_t>(status.st_size) > Recording::largestFile) tooLarge();
  }

  [[noreturn]] void tooLarge() const {
    throw RecordingError(name_, "larger than 1 GiB, the most that a recording may have");
  }

  std::string name_;
  int descriptor_;
  std::size_t total_ = 0;
};

// Whether no line follows that has another character than these.
bool onlyFollowing(Lines& lines, std::string_view characters) {
  while (const auto line = lines.next()) {
    if (line->find_first_not_of(characters) != std::string_view::npos) return false;
  }
  return true;
}

}  // namespace

RecordingError::RecordingError(const std::string& file, std::size_t line, std::size_t column,
                               const std::string& what)
    : std::runtime_error(file + ":" + std::to_string(line) + ":" + std::to_string(column) + ": " +
                         what),
      line_(line),
      column_(column) {}

RecordingError::RecordingError(const std::string& file, const std::string& what)
    : std::runtime_error(file + ": " + what), line_(0), column_(0) {}

/// Goes through the text once, line by line.
class RecordingParser {
 public:
  RecordingParser(Lines::Read read, std::string name, double rowsPerSecond)
      : lines_(std::move(read), Recording::longestLine), name_(std::move(name)) {
    recording_.rowsPerSecond_ = rowsPerSecond;
  }

  Recording parse() {
    checkRate();
    if (!readFirstLine()) fail(1, "column names expected, found an empty file");
    readNames();
    while (nextLine()) readRow();
    if (recording_.rows_ == 0) {
      ++line_;
      fail(1, "a row of numbers expected, found the end of the file");
    }
    return std::move(recording_);
  }

 private:
  [[noreturn]] void fail(std::size_t column, const std::string& what) const {
    throw RecordingError(name_, std::max<std::size_t>(line_, 1), column, what);
  }

  void checkRate() const {
    const double rate = recording_.rowsPerSecond_;
    if (rate >= Recording::slowestRate && rate <= Recording::fastestRate) return;
    std::ostringstream message;
    message << "a rate of 0.001 to 100000 rows per second expected, found " << rate;
    fail(1, message.str());
  }

  // After each row, so that the memory stays within the limits.
  void checkSize() const {
    const double rows = static_cast<double>(recording_.rows_) / recording_.rowsPerSecond_;
    if (rows + gapSeconds_ > Recording::longestTime)
      fail(1, "at most 24 hours expected, found " + std::to_string(recording_.rows_) +
                  (recording_.gaps_.empty() ? " rows that take longer at this rate"
                                            : " rows that take longer with their gaps"));
    if (recording_.rows_ * played_ + 2 * recording_.gaps_.size() > Recording::mostNumbers)
      fail(1, "at most 100000000 numbers to play expected, found more");
  }

  // False when the text is blank.
  bool readFirstLine() {
    auto line = lines_.next();
    if (line && line->starts_with("\xEF\xBB\xBF")) line->remove_prefix(3);
    if (!line) return false;
    take(*line);
    if (current_.find_first_not_of(blanks) != std::string_view::npos) return true;
    // The lines that follow are lost, but blank names end the reading anyway.
    current_ = {};
    return !onlyFollowing(lines_, " \t\r");
  }

  // Moves on to the next line; false at the end of the file. Empty lines that end it are no rows.
  bool nextLine() {
    const auto line = lines_.next();
    if (!line) return false;
    take(*line);
    if (line->find_first_not_of('\r') != std::string_view::npos) return true;
    // The lines that follow are lost, but an empty row ends the reading anyway.
    current_ = {};
    if (!onlyFollowing(lines_, "\r")) return true;
    --line_;
    return false;
  }

  void take(std::string_view line) {
    ++line_;
    current_ = line;
    if (current_.size() > Recording::longestLine)
      fail(1, "a line of at most 65536 bytes expected, found a longer one");
    if (current_.ends_with('\r')) current_.remove_suffix(1);
  }

  // Where a cell begins, in characters from 1.
  std::size_t columnOf(std::string_view cell) const {
    return characters(current_.substr(0, static_cast<std::size_t>(cell.data() - current_.data()))) +
           1;
  }

  void readNames() {
    const std::vector<std::string_view> cells = split(current_, ',');
    destinations_.assign(cells.size(), nullptr);
    for (std::size_t i = 0; i < cells.size(); ++i) {
      const std::string name = lowerCase(trimmed(cells[i]));
      if (name == "gap_s") gapCell_ = i;
      if (name == "date_utc") dateCell_ = i;
    }
    for (std::size_t i = 0; i < cells.size(); ++i) readName(cells[i], destinations_[i]);
    checkMotionColumns();
    played_ = static_cast<std::size_t>(std::ranges::count(found_, true));
    if (std::ranges::none_of(found_, [](bool found) { return found; }))
      fail(1,
           "a column ECG, RSP, Respiration, Skin temperature, or Accelerometer and Gyroscope X, Y "
           "and Z expected, found " +
               quoted(current_));
  }

  void readName(std::string_view cell, std::vector<double>*& destination) {
    const auto parenthesis = cell.find('(');
    const std::string name = playedName(lowerCase(trimmed(cell.substr(0, parenthesis))));
    for (std::size_t column = 0; column < columnCount; ++column) {
      if (name != lowerCase(columnNames.at(column)) &&
          !(column == respirationColumn && name == "respiration"))
        continue;
      if (parenthesis != std::string_view::npos) checkUnit(column, cell, parenthesis);
      if (std::exchange(found_.at(column), true))
        fail(columnOf(cell),
             "one column " + std::string(columnNames.at(column)) + " expected, found another one");
      destination = &valuesOf(column);
    }
  }

  // A column of `zephly export` under the name of the column that is played.
  std::string playedName(const std::string& name) const {
    if (name == "ecg_mv") return "ecg";
    if (name == "skin_degc") return "skin temperature";
    if (name == "raw" && gapCell_) return "rsp";
    return name;
  }

  void checkUnit(std::size_t column, std::string_view cell, std::size_t parenthesis) const {
    const std::vector<std::string_view> units = unitsOf(column);
    std::string_view unit = trimmed(cell.substr(parenthesis + 1));
    if (unit.ends_with(')')) unit.remove_suffix(1);
    if (units.empty() || std::ranges::find(units, lowerCase(trimmed(unit))) != units.end()) return;
    fail(columnOf(cell), std::string(columnNames.at(column)) + " in " + std::string(units.front()) +
                             " expected, found " + quoted(unit));
  }

  void checkMotionColumns() const {
    const auto* const first = found_.begin() + firstMotionColumn;
    const auto* const missing = std::find(first, found_.end(), false);
    if (missing == found_.end() || std::find(first, found_.end(), true) == found_.end()) return;
    fail(1, "accelerometer and gyroscope with X, Y and Z expected, found no column " +
                std::string(columnNames.at(static_cast<std::size_t>(missing - found_.begin()))));
  }

  std::vector<double>& valuesOf(std::size_t column) {
    if (column == ecgColumn) return recording_.ecg_;
    if (column == respirationColumn) return recording_.respiration_;
    if (column == skinColumn) return recording_.skinTemperature_;
    const std::size_t axis = column - firstMotionColumn;
    return axis < 3 ? recording_.acceleration_.at(axis) : recording_.rotation_.at(axis - 3);
  }

  void readRow() {
    const std::vector<std::string_view> cells = split(current_, ',');
    const std::size_t common = std::min(cells.size(), destinations_.size());
    for (std::size_t i = 0; i < common; ++i) {
      if (i == dateCell_) continue;
      if (i == gapCell_) {
        readGap(cells[i]);
        continue;
      }
      // Columns that are not played may hold anything.
      if (destinations_[i] != nullptr) destinations_[i]->push_back(readNumber(cells[i]));
    }
    if (cells.size() != destinations_.size())
      fail(cells.size() > common ? columnOf(cells[common]) : characters(current_) + 1,
           std::to_string(destinations_.size()) + " cells expected, found " +
               std::to_string(cells.size()));
    ++recording_.rows_;
    checkSize();
  }

  void readGap(std::string_view cell) {
    if (trimmed(cell).empty()) return;
    const double gap = readNumber(cell);
    if (gap < 0 || gap > Recording::longestTime)
      fail(columnOf(cell), "a gap of 0 to 86400 seconds expected, found " + quoted(trimmed(cell)));
    if (gap <= 0 || recording_.rows_ == 0) return;
    recording_.gaps_.push_back({recording_.rows_, gap});
    gapSeconds_ += gap;
  }

  double readNumber(std::string_view cell) const {
    const std::string_view digits = trimmed(cell);
    double value = 0;
    const char* const end = digits.data() + digits.size();
    const auto [stopped, error] = std::from_chars(digits.data(), end, value);
    if (error == std::errc::result_out_of_range && stopped == end)
      fail(columnOf(cell),
           "a number within the range of a double expected, found " + quoted(digits));
    if (error != std::errc() || stopped != end)
      fail(columnOf(cell),
           "a number expected, found " + (digits.empty() ? "an empty cell" : quoted(digits)));
    if (!std::isfinite(value) || std::abs(value) > Recording::largestNumber)
      fail(columnOf(cell), "a finite number of at most 1e30 expected, found " + quoted(digits));
    return value;
  }

  Lines lines_;
  std::string name_;
  std::size_t line_ = 0;
  std::string_view current_;
  std::array<bool, columnCount> found_{};
  std::size_t played_ = 0;                          // columns
  double gapSeconds_ = 0;                           // so far
  std::optional<std::size_t> gapCell_;              // of each row
  std::optional<std::size_t> dateCell_;             // likewise
  std::vector<std::vector<double>*> destinations_;  // by cell; null for a column that is not played
  Recording recording_;
};

Recording Recording::load(const std::filesystem::path& path, double rowsPerSecond) {
  OpenFile file(path);
  try {
    return RecordingParser([&](char* bytes, std::size_t count) { return file.read(bytes, count); },
                           path.string(), rowsPerSecond)
        .parse();
  } catch (const std::bad_alloc&) {
    throw RecordingError(path.string(), "not enough memory to load it");
  }
}

Recording Recording::parse(std::string_view text, const std::string& name, double rowsPerSecond) {
  const auto read = [&](char* bytes, std::size_t count) {
    const std::size_t copied = text.copy(bytes, count);
    text.remove_prefix(copied);
    return copied;
  };
  return RecordingParser(read, name, rowsPerSecond).parse();
}

bool Recording::has(Stream stream) const {
  switch (stream) {
    case Stream::ecg:
      return !ecg_.empty();
    case Stream::respiration:
      return !respiration_.empty();
    case Stream::temperature:
      return !skinTemperature_.empty();
    case Stream::motion:
      return !acceleration_[0].empty();
    default:
      return false;
  }
}

}  // namespace Zephly::simulator
