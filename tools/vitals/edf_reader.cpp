// SPDX-License-Identifier: MIT
#include <tools/common/option_values.h>
#include <tools/vitals/edf_reader.h>
#include <tools/vitals/input_error.h>

#include <chrono>
#include <cmath>
#include <string_view>
#include <utility>

namespace Zephly::recorders {

namespace {

// The header: 256 bytes of the file, then 256 bytes for each signal, each field for all signals.
constexpr std::uint64_t fileHeaderSize = 256;
constexpr std::uint64_t signalHeaderSize = 256;
constexpr std::string_view edfVersion = "0       ";
constexpr std::string_view bdfVersion =
    "\xFF"
    "BIOSEMI";
constexpr std::uint64_t largestRecord = 10U << 20U;  // bytes, as for EDFlib with EDF
constexpr double shortestRecord = 1e-4;              // seconds
constexpr double longestRecord = 86'400;             // seconds

struct EdfField {
  std::uint64_t at;
  std::uint64_t width;
};

constexpr EdfField headerSizeField{184, 8};
constexpr EdfField kindField{192, 44};
constexpr EdfField recordsField{236, 8};
constexpr EdfField durationField{244, 8};
constexpr EdfField signalsField{252, 4};

std::string_view withoutBlanks(std::string_view text) {
  const std::size_t first = text.find_first_not_of(' ');
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

template <class Number>
std::optional<Number> edfNumber(std::string_view text) {
  text = withoutBlanks(text);
  if (text.starts_with('+')) text.remove_prefix(1);
  return tools::parseNumber<Number>(text);
}

// A sample of 16 or 24 bits, little-endian, in two's complement.
std::int32_t edfSample(const unsigned char* bytes, std::uint64_t size) {
  const unsigned low = bytes[0] | static_cast<unsigned>(bytes[1]) << 8U;
  if (size == 2) return static_cast<std::int16_t>(low);
  const unsigned bits = low | static_cast<unsigned>(bytes[2]) << 16U;
  return static_cast<std::int32_t>(bits << 8U) >> 8;
}

double secondsOf(vitals::Time time) { return std::chrono::duration<double>(time).count(); }

// EDF has Latin-1 characters in units.
std::string edfUnit(std::string_view text) {
  std::string unit;
  for (const char one : withoutBlanks(text)) {
    if (static_cast<unsigned char>(one) == 0xB5U) {
      unit += "\u00B5";
    } else {
      unit += one;
    }
  }
  return unit;
}

}  // namespace

// The part of the header with the signals.
struct EdfReader::Fields {
  std::string_view header;
  std::uint64_t signals;

  // `begin`: of the field, in the bytes of one signal.
  EdfField field(std::uint64_t begin, std::uint64_t width, std::size_t signal) const {
    return {fileHeaderSize + begin * signals + width * signal, width};
  }
  std::string_view text(const EdfField& field) const {
    return header.substr(field.at, field.width);
  }
};

bool EdfReader::isEdf(const InputFile& file) {
  if (file.size() < edfVersion.size()) return false;
  const std::string version = file.text(0, edfVersion.size());
  return version == edfVersion || version == bdfVersion;
}

EdfReader::EdfReader(InputFile file) : file_(std::move(file)) {
  const std::string first = file_.text(0, fileHeaderSize);
  readFileHeader(first);
  readSignals(file_.text(0, headerSize_));
  checkSize();
}

void EdfReader::fail(std::uint64_t at, const std::string& reason) const {
  throw InputError(file_.path(), at, reason);
}

void EdfReader::readFileHeader(const std::string& header) {
  const auto text = [&](const EdfField& field) {
    return std::string_view(header).substr(field.at, field.width);
  };
  const auto number = [&](auto kind, const EdfField& field, const std::string& what) {
    const auto value = edfNumber<decltype(kind)>(text(field));
    if (!value) fail(field.at, what + " expected, found " + excerpt(text(field)));
    return *value;
  };
  bdf_ = header.starts_with(bdfVersion);
  if (bdf_) sampleSize_ = 3;
  plus_ = text(kindField).starts_with(bdf_ ? "BDF+" : "EDF+");
  discontinuous_ = plus_ && text(kindField)[4] == 'D';
  const auto signals = number(std::uint64_t{}, signalsField, "a number of signals");
  if (signals == 0) fail(signalsField.at, "the file has no signals");
  headerSize_ = number(std::uint64_t{}, headerSizeField, "the size of the header");
  const std::uint64_t needed = fileHeaderSize + signals * signalHeaderSize;
  if (headerSize_ != needed) {
    fail(headerSizeField.at, "a header of " + std::to_string(needed) + " bytes expected for " +
                                 std::to_string(signals) + " signals, found " +
                                 std::to_string(headerSize_));
  }
  if (file_.size() < headerSize_) {
    fail(file_.size(), "the file ends in its header of " + std::to_string(headerSize_) + " bytes");
  }
  const auto records = number(std::int64_t{}, recordsField, "a number of data records");
  // -1: the recorder has not completed the header.
  if (records < -1) fail(recordsField.at, "a number of data records expected");
  recordsKnown_ = records >= 0;
  records_ = recordsKnown_ ? static_cast<std::uint64_t>(records) : 0;
  duration_ = number(double{}, durationField, "the duration of a data record");
  if (!(duration_ >= shortestRecord) || !(duration_ <= longestRecord)) {
    fail(durationField.at,
         "a duration of 0.0001 to 86400 seconds expected for a data record, found " +
             excerpt(text(durationField)));
  }
}

void EdfReader::readSignals(const std::string& header) {
  const Fields fields{header, headerSize_ / signalHeaderSize - 1};
  for (std::size_t i = 0; i < fields.signals; ++i) {
    const EdfField countField = fields.field(216, 8, i);
    const auto samples = edfNumber<std::uint64_t>(fields.text(countField));
    if (!samples || *samples > largestRecord / sampleSize_) {
      fail(countField.at,
           "a number of samples expected, found " + excerpt(fields.text(countField)));
    }
    const std::uint64_t begin = recordSize_;
    recordSize_ += sampleSize_ * *samples;
    if (recordSize_ > largestRecord)
      fail(countField.at, "a data record of more than 10 MiB is not supported");
    const std::string_view label = withoutBlanks(fields.text(fields.field(0, 16, i)));
    if (plus_ && label == (bdf_ ? "BDF Annotations" : "EDF Annotations")) {
      annotations_.push_back({begin, *samples, 0, 0});
      continue;
    }
    if (*samples == 0) continue;
    Place place = scaleOf(fields, i);
    place.begin = begin;
    place.samples = *samples;
    infos_.push_back({std::string(label), edfUnit(fields.text(fields.field(96, 8, i))),
                      static_cast<double>(*samples) / duration_});
    places_.push_back(place);
  }
  if (infos_.empty() && recordSize_ > 0) {
    fail(fileHeaderSize, "the file has annotations and no signal");
  }
  if (discontinuous_ && annotations_.empty()) {
    fail(kindField.at, "the file is discontinuous and has no times of its data records");
  }
}

EdfReader::Place EdfReader::scaleOf(const Fields& fields, std::size_t signal) const {
  const auto number = [&](auto kind, std::uint64_t begin) {
    const EdfField field = fields.field(begin, 8, signal);
    const auto value = edfNumber<decltype(kind)>(fields.text(field));
    if (!value || !std::isfinite(static_cast<double>(*value))) {
      fail(field.at, "a number expected, found " + excerpt(fields.text(field)));
    }
    return *value;
  };
  const auto physicalMinimum = number(double{}, 104);
  const auto physicalMaximum = number(double{}, 112);
  const auto digitalMinimum = number(int{}, 120);
  const auto digitalMaximum = number(int{}, 128);
  const int largest = bdf_ ? 0x7FFFFF : 0x7FFF;
  if (digitalMinimum >= digitalMaximum || digitalMinimum < -largest - 1 ||
      digitalMaximum > largest) {
    fail(fields.field(120, 8, signal).at,
         "a digital minimum below the maximum, both of " + std::to_string(8 * sampleSize_) +
             " bits, expected, found " + std::to_string(digitalMinimum) + " and " +
             std::to_string(digitalMaximum));
  }
  if (physicalMinimum == physicalMaximum) {
    fail(fields.field(104, 8, signal).at,
         "the physical minimum is the maximum, so that the gain is 0");
  }
  const double gain =
      (physicalMaximum - physicalMinimum) / (static_cast<double>(digitalMaximum) - digitalMinimum);
  return {.begin = 0, .samples = 0, .gain = gain, .zero = physicalMinimum - gain * digitalMinimum};
}

void EdfReader::checkSize() {
  if (recordSize_ == 0) fail(fileHeaderSize, "the data records are empty");
  const std::uint64_t there = (file_.size() - headerSize_) / recordSize_;
  const std::uint64_t rest = (file_.size() - headerSize_) % recordSize_;
  if (!recordsKnown_) records_ = there;
  if (records_ == 0) fail(recordsField.at, "the file has no data records");
  if (static_cast<double>(records_) * duration_ > latestTime) {
    fail(recordsField.at, "more data records than fit into a hundred years");
  }
  if (there < records_ || (!recordsKnown_ && rest > 0)) {
    fail(file_.size(), "the file ends here, after " + std::to_string(there) +
                           " whole data records" +
                           (recordsKnown_ ? " of " + std::to_string(records_) : ""));
  }
  if (there > records_ || rest > 0) {
    fail(headerSize_ + records_ * recordSize_,
         "more bytes after the last of " + std::to_string(records_) + " data records");
  }
}

const char* EdfReader::format() const {
  if (discontinuous_) return bdf_ ? "BDF+D" : "EDF+D";
  if (plus_) return bdf_ ? "BDF+" : "EDF+";
  return bdf_ ? "BDF" : "EDF";
}

double EdfReader::part() const {
  return static_cast<double>(next_) / static_cast<double>(records_);
}

// The first annotation of a data record is its time: "+12.5", the bytes 20, 20 and 0.
std::optional<double> EdfReader::onset(std::uint64_t record) const {
  constexpr std::uint64_t longest = 64;
  const Place& clock = annotations_.front();
  const std::string bytes = file_.text(headerSize_ + record * recordSize_ + clock.begin,
                                       static_cast<std::size_t>(std::min(longest, bytesOf(clock))));
  const std::string_view text = std::string_view(bytes).substr(0, bytes.find('\x14'));
  if (!text.starts_with('+') && !text.starts_with('-')) return std::nullopt;
  const auto value = edfNumber<double>(text);
  return value && std::abs(*value) <= latestTime ? value : std::nullopt;
}

vitals::Time EdfReader::beginOf(std::uint64_t record) {
  if (!discontinuous_) return timeOfSample(static_cast<double>(record) * duration_, 1);
  const auto time = onset(record);
  const std::uint64_t at = headerSize_ + record * recordSize_ + annotations_.front().begin;
  if (!time) fail(at, "the time of the data record expected");
  // Times are written as decimal numbers.
  constexpr double tolerance = 1e-6;
  if (record > 0 && *time < lastOnset_ + duration_ - tolerance) {
    fail(at, "the data record begins before the previous one has ended");
  }
  lastOnset_ = *time;
  return timeOfSample(*time - firstOnset_, 1);
}

void EdfReader::choose(const std::vector<std::size_t>& signals) {
  chosen_ = signals;
  if (!annotations_.empty()) readExclusions();
}

void EdfReader::readExclusions() {
  // Times of annotations count from the file's start, which is up to a second before the first data
  // record.
  firstOnset_ = onset(0).value_or(0);
  for (std::uint64_t record = 0; record < records_; ++record) {
    for (const Place& place : annotations_) {
      exclusions_.take(file_.text(headerSize_ + record * recordSize_ + place.begin,
                                  static_cast<std::size_t>(bytesOf(place))));
    }
  }
  exclusions_.complete();
}

bool EdfReader::next(std::vector<SignalSample>& samples) {
  samples.clear();
  if (next_ == records_) return false;
  const vitals::Time begin = beginOf(next_);
  std::vector<std::size_t> begins;
  std::vector<unsigned char> bytes;
  for (std::size_t chosen = 0; chosen < chosen_.size(); ++chosen) {
    const Place& place = places_[chosen_[chosen]];
    const double rate = infos_[chosen_[chosen]].rate;
    bytes.resize(bytesOf(place));
    file_.read(headerSize_ + next_ * recordSize_ + place.begin, bytes);
    begins.push_back(samples.size());
    for (std::size_t i = 0; i < place.samples; ++i) {
      const std::int32_t step = edfSample(&bytes[sampleSize_ * i], sampleSize_);
      const vitals::Time time = begin + timeOfSample(static_cast<double>(i), rate);
      if (!exclusions_.empty() && exclusions_.contain(firstOnset_ + secondsOf(time))) continue;
      samples.push_back({chosen, time, static_cast<float>(step * place.gain + place.zero)});
    }
  }
  mergeByTime(samples, begins);
  ++next_;
  return true;
}

}  // namespace Zephly::recorders
