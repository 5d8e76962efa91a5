// SPDX-License-Identifier: MIT
#include <tests/tools/export/edf_reader.h>

#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string_view>

namespace exporting_test {

namespace {

[[noreturn]] void broken(const std::string& what) { throw std::runtime_error("no EDF+: " + what); }

// Reads fields of fixed width in order.
class Fields {
 public:
  explicit Fields(const std::string& bytes) : bytes_(bytes) {}

  std::string next(std::size_t width) {
    if (bytes_.size() - at_ < width) broken("the file is too short");
    std::string field = bytes_.substr(at_, width);
    at_ += width;
    return field;
  }

  std::string text(std::size_t width) {
    std::string field = next(width);
    for (const char character : field) {
      if (character < 32 || character > 126) broken("a character in the header");
    }
    field.erase(field.find_last_not_of(' ') + 1);
    return field;
  }

  double number(std::size_t width) {
    const std::string field = text(width);
    std::size_t used = 0;
    const double value = std::stod(field, &used);
    if (used != field.size()) broken("no number: " + field);
    return value;
  }

  std::size_t at() const { return at_; }
  bool over() const { return at_ == bytes_.size(); }

 private:
  const std::string& bytes_;
  std::size_t at_ = 0;
};

int sampleOf(const std::string& bytes, std::size_t index) {
  const auto low = static_cast<unsigned char>(bytes[2 * index]);
  const auto high = static_cast<unsigned char>(bytes[2 * index + 1]);
  const int number = low + 256 * high;
  return number < 32768 ? number : number - 65536;
}

// "+17", without a fraction
long onsetOf(const std::string& annotations) {
  const std::size_t end = annotations.find(std::string("\x14\x14\0", 3));
  if (annotations[0] != '+' || end == std::string::npos) broken("time of a record");
  const std::string digits = annotations.substr(1, end - 1);
  if (digits.empty() || digits.find_first_not_of("0123456789") != std::string::npos) {
    broken("time of a record");
  }
  return std::stol(digits);
}

}  // namespace

double ReadSignal::step() const {
  return (physicalMaximum - physicalMinimum) / (digitalMaximum - digitalMinimum);
}

double ReadSignal::physical(std::size_t index) const {
  return physicalMinimum + (digital.at(index) - digitalMinimum) * step();
}

EdfReader::EdfReader(const std::filesystem::path& path) {
  std::ifstream stream(path, std::ios::binary);
  const std::string bytes{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
  Fields fields(bytes);
  if (fields.text(8) != "0") broken("version");
  patient = fields.text(80);
  recording = fields.text(80);
  date = fields.text(8);
  time = fields.text(8);
  const auto headerSize = static_cast<std::size_t>(fields.number(8));
  type = fields.text(44);
  if (type != "EDF+C" && type != "EDF+D") broken("not EDF+: " + type);
  records = static_cast<long>(fields.number(8));
  recordDuration = fields.number(8);
  const auto count = static_cast<std::size_t>(fields.number(4));
  if (headerSize != 256 * (count + 1)) broken("size of the header");

  std::vector<ReadSignal> all(count);
  for (ReadSignal& one : all) one.label = fields.text(16);
  for (ReadSignal& one : all) one.transducer = fields.text(80);
  for (ReadSignal& one : all) one.dimension = fields.text(8);
  for (ReadSignal& one : all) one.physicalMinimum = fields.number(8);
  for (ReadSignal& one : all) one.physicalMaximum = fields.number(8);
  for (ReadSignal& one : all) one.digitalMinimum = static_cast<int>(fields.number(8));
  for (ReadSignal& one : all) one.digitalMaximum = static_cast<int>(fields.number(8));
  for (ReadSignal& one : all) one.prefilter = fields.text(80);
  for (ReadSignal& one : all) one.perRecord = static_cast<int>(fields.number(8));
  for (std::size_t i = 0; i < count; ++i) fields.text(32);

  for (long record = 0; record < records; ++record) {
    bool timed = false;
    for (ReadSignal& one : all) {
      const std::string content = fields.next(2 * static_cast<std::size_t>(one.perRecord));
      if (one.label == "EDF Annotations") {
        // The first list of a record contains only the record's time.
        if (!timed) {
          onsets.push_back(onsetOf(content));
          const bool follows = record == 0 || onsets.back() == onsets[onsets.size() - 2] + 1;
          const bool later = record > 0 && onsets.back() > onsets[onsets.size() - 2];
          if (record == 0 && onsets.back() != 0) broken("time of the first record");
          if (!follows && (type == "EDF+C" || !later)) broken("time of a record");
          timed = true;
        }
        readAnnotations(content);
        continue;
      }
      for (std::size_t i = 0; i < static_cast<std::size_t>(one.perRecord); ++i) {
        const int sample = sampleOf(content, i);
        if (sample < one.digitalMinimum || sample > one.digitalMaximum) broken("a sample");
        one.digital.push_back(sample);
      }
    }
  }
  if (!fields.over()) broken("bytes behind the last record");
  for (ReadSignal& one : all) {
    if (one.label != "EDF Annotations") signals.push_back(std::move(one));
  }
}

void EdfReader::readAnnotations(const std::string& bytes) {
  std::string_view rest = bytes;
  while (!rest.empty() && rest.front() != '\0') {
    const std::size_t end = rest.find('\0');
    if (end == std::string_view::npos) broken("an annotation without end");
    std::string_view list = rest.substr(0, end);
    rest.remove_prefix(end + 1);
    const std::size_t timeEnd = list.find('\x14');
    if (timeEnd == std::string_view::npos || (list[0] != '+' && list[0] != '-')) broken("onset");
    const std::string onset(list.substr(0, timeEnd));
    list.remove_prefix(timeEnd + 1);
    const std::size_t durationAt = onset.find('\x15');
    ReadAnnotation annotation{.onset = std::stod(onset), .duration = {}, .text = {}};
    if (durationAt != std::string::npos)
      annotation.duration = std::stod(onset.substr(durationAt + 1));
    while (!list.empty()) {
      const std::size_t textEnd = list.find('\x14');
      if (textEnd == std::string_view::npos) broken("a text without end");
      annotation.text = std::string(list.substr(0, textEnd));
      if (!annotation.text.empty()) annotations.push_back(annotation);
      list.remove_prefix(textEnd + 1);
    }
  }
}

const ReadSignal& EdfReader::signal(const std::string& label) const {
  for (const ReadSignal& one : signals) {
    if (one.label == label) return one;
  }
  throw std::runtime_error("no signal " + label);
}

}  // namespace exporting_test
