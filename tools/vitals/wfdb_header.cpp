// SPDX-License-Identifier: MIT
#include <tools/common/option_values.h>
#include <tools/vitals/input_error.h>
#include <tools/vitals/wfdb_header.h>

#include <algorithm>
#include <cmath>

namespace Zephly::recorders {

namespace {

constexpr std::string_view wfdbBlanks = " \t\r";

constexpr std::uint64_t mostSignals = 1000;
constexpr std::uint64_t mostPerFrame = 1000;
constexpr double fastestFrames = 100'000;
constexpr double longestSkew = 1;  // second: the signals of a record are read side by side
constexpr std::uint64_t mostFrames = 1ULL << 40U;

/// Goes through the text once, line by line.
class WfdbHeaderParser {
 public:
  WfdbHeaderParser(std::string_view text, const std::filesystem::path& file)
      : text_(text), file_(file) {}

  WfdbHeader parse() {
    if (!nextLine()) fail(0, "the line of the record is missing");
    const std::uint64_t count = readRecord();
    for (std::uint64_t i = 0; i < count; ++i) {
      if (!nextLine()) {
        fail(text_.size(), "the header ends after " + std::to_string(i) + " of " +
                               std::to_string(count) + " signals");
      }
      readSignal();
    }
    return std::move(header_);
  }

 private:
  struct Field {
    std::string_view text;
    std::uint64_t at = 0;
  };

  [[noreturn]] void fail(std::uint64_t at, const std::string& reason) const {
    throw InputError(file_, at, reason);
  }

  // The next line that is neither empty nor a comment.
  bool nextLine() {
    while (next_ < text_.size()) {
      const std::size_t begin = next_;
      const std::size_t end = std::min(text_.find('\n', begin), text_.size());
      next_ = end + 1;
      line_ = {text_.substr(begin, end - begin), begin};
      const std::size_t first = line_.text.find_first_not_of(wfdbBlanks);
      if (first != std::string_view::npos && line_.text[first] != '#') return true;
    }
    return false;
  }

  // Takes the next word from the line; empty at its end.
  Field word() {
    const std::size_t begin = std::min(line_.text.find_first_not_of(wfdbBlanks), line_.text.size());
    const std::size_t end =
        std::min(line_.text.find_first_of(wfdbBlanks, begin), line_.text.size());
    const Field field{line_.text.substr(begin, end - begin), line_.at + begin};
    drop(line_, end);
    return field;
  }

  static void drop(Field& field, std::size_t count) {
    field.text.remove_prefix(count);
    field.at += count;
  }

  // Cuts off what follows `mark`; empty text when it is not there.
  static Field cutAt(Field& field, char mark) {
    const std::size_t found = field.text.find(mark);
    if (found == std::string_view::npos) return {};
    Field rest = field;
    drop(rest, found + 1);
    field.text = field.text.substr(0, found);
    return rest;
  }

  template <class Number>
  Number number(const Field& field, const std::string& what, Number least, Number most) const {
    const auto value = tools::parseNumber<Number>(field.text);
    if (!value || !(*value >= least) || !(*value <= most)) {
      fail(field.at, what + " expected, found " + excerpt(field.text));
    }
    return *value;
  }

  // The number of signals.
  std::uint64_t readRecord() {
    Field name = word();
    if (!cutAt(name, '/').text.empty()) {
      fail(name.at, "a record of several segments is not supported");
    }
    const auto count = number<std::uint64_t>(word(), "a number of signals", 0, mostSignals);
    if (count == 0) fail(name.at, "the record has no signals");
    Field rate = word();
    cutAt(rate, '/');  // the frequency of a counter
    if (!rate.text.empty()) {
      header_.rate = number<double>(rate, "a rate above 0", 1e-6, fastestFrames);
    }
    const Field frames = word();
    header_.framesAt = frames.at;
    if (!frames.text.empty()) {
      header_.frames = number<std::uint64_t>(frames, "a number of samples", 0, mostFrames);
      if (*header_.frames == 0) header_.frames.reset();
    }
    return count;
  }

  void readSignal() {
    WfdbSignal signal;
    const Field file = word();
    signal.at = file.at;
    signal.file = fileBeside(file);
    readFormat(word(), signal);
    readScale(signal);
    const Field first = word();
    if (!first.text.empty()) number<int>(first, "a first value", -(1 << 30), 1 << 30);
    const Field checksum = word();
    signal.checksumAt = checksum.at;
    if (!checksum.text.empty()) {
      signal.checksum = number<int>(checksum, "a checksum of 16 bits", -32'768, 65'535);
    }
    word();  // the size of a block on special devices
    const std::size_t begin = std::min(line_.text.find_first_not_of(wfdbBlanks), line_.text.size());
    const std::string_view name = line_.text.substr(begin);
    signal.name = name.substr(0, name.find_last_not_of(wfdbBlanks) + 1);
    if (signal.name.empty()) signal.name = "signal " + std::to_string(header_.signals.size() + 1);
    header_.signals.push_back(std::move(signal));
  }

  // A header from elsewhere must not make the program read other files.
  std::string fileBeside(const Field& field) const {
    const std::string_view name = field.text;
    if (name == "-" || name == "~") {
      fail(field.at, "a signal without a file (" + excerpt(name) + ") is not supported");
    }
    if (name == "." || name == ".." || name.find('/') != std::string_view::npos ||
        name.find('\0') != std::string_view::npos) {
      fail(field.at, "the name of a file beside the header expected, found " + excerpt(name));
    }
    return std::string(name);
  }

  // "212", "16x2:4+512": samples in a frame, skew in frames, bytes before the first sample.
  void readFormat(Field field, WfdbSignal& signal) const {
    const Field prolog = cutAt(field, '+');
    const Field skew = cutAt(field, ':');
    const Field perFrame = cutAt(field, 'x');
    if (field.text == "16") {
      signal.format = WfdbFormat::bits16;
    } else if (field.text == "212") {
      signal.format = WfdbFormat::bits212;
    } else {
      fail(field.at, "format 16 or 212 expected, found " + excerpt(field.text));
    }
    if (!perFrame.text.empty()) {
      signal.perFrame = static_cast<unsigned>(
          number<std::uint64_t>(perFrame, "1 to 1000 samples in a frame", 1, mostPerFrame));
    }
    if (!skew.text.empty()) {
      const auto most = static_cast<std::uint64_t>(longestSkew * header_.rate);
      signal.skew = static_cast<unsigned>(
          number<std::uint64_t>(skew, "a skew of at most one second", 0, most));
    }
    if (!prolog.text.empty()) {
      signal.prolog = number<std::uint64_t>(prolog, "a number of bytes", 0, mostFrames);
    }
  }

  // Gain, bits and zero: "200(1024)/mV 11 1024". A gain of 0 is one that was not measured, for
  // which the format has 200 steps per unit.
  void readScale(WfdbSignal& signal) {
    Field gain = word();
    const Field unit = cutAt(gain, '/');
    Field baseline = cutAt(gain, '(');
    if (!unit.text.empty()) signal.unit = unit.text;
    if (!gain.text.empty()) {
      const auto value = number<double>(gain, "a finite gain", -1e12, 1e12);
      if (value != 0 && std::abs(value) < 1e-12) fail(gain.at, "the gain is too small");
      if (value != 0) signal.gain = value;
    }
    const Field bits = word();
    if (!bits.text.empty()) number<int>(bits, "a number of bits", 0, 64);
    const Field zero = word();
    if (!zero.text.empty()) {
      signal.baseline = number<int>(zero, "a zero of the converter", -(1 << 30), 1 << 30);
    }
    if (baseline.text.empty()) return;
    if (!baseline.text.ends_with(')')) fail(baseline.at, "a baseline in parentheses expected");
    baseline.text.remove_suffix(1);
    signal.baseline = number<int>(baseline, "a baseline", -(1 << 30), 1 << 30);
  }

  std::string_view text_;
  std::filesystem::path file_;
  std::size_t next_ = 0;  // where the next line begins
  Field line_;            // what is left of the current one
  WfdbHeader header_;
};

}  // namespace

WfdbHeader parseWfdbHeader(std::string_view text, const std::filesystem::path& file) {
  return WfdbHeaderParser(text, file).parse();
}

}  // namespace Zephly::recorders
