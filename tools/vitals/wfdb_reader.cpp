// SPDX-License-Identifier: MIT
#include <tools/vitals/input_error.h>
#include <tools/vitals/wfdb_reader.h>

#include <algorithm>
#include <string>
#include <utility>

namespace Zephly::recorders {

namespace {

// Even, so that a piece of format 212 begins with a whole byte.
constexpr std::uint64_t framesAtOnce = 512;
constexpr std::size_t largestHeader = 1U << 20U;

WfdbHeader readWfdbHeader(const std::filesystem::path& path) {
  const InputFile file(path);
  if (file.size() > largestHeader)
    throw InputError(path, largestHeader, "a header of 1 MiB at most expected");
  return parseWfdbHeader(file.text(0, static_cast<std::size_t>(file.size())), path);
}

// The bits of a sample of format 212: 12, two's complement.
std::int16_t signed12(unsigned bits) {
  return static_cast<std::int16_t>(static_cast<int>(bits & 0xFFFU) -
                                   ((bits & 0x800U) != 0 ? 4096 : 0));
}

// The value of a sample that is missing.
constexpr std::int16_t absentIn(WfdbFormat format) {
  return format == WfdbFormat::bits212 ? -2048 : -32'768;
}

}  // namespace

WfdbReader::WfdbReader(const std::filesystem::path& header)
    : path_(header), header_(readWfdbHeader(header)) {
  for (const WfdbSignal& signal : header_.signals) {
    infos_.push_back({signal.name, signal.unit, header_.rate * signal.perFrame});
  }
  openGroups();
  checkLengths();
}

void WfdbReader::openGroups() {
  const std::vector<WfdbSignal>& signals = header_.signals;
  for (std::size_t i = 0; i < signals.size(); ++i) {
    const WfdbSignal& one = signals[i];
    if (groups_.empty() || signals[groups_.back().first].file != one.file) {
      const bool again = std::any_of(groups_.begin(), groups_.end(), [&](const Group& group) {
        return signals[group.first].file == one.file;
      });
      if (again) throw InputError(path_, one.at, "the signals of one file must follow each other");
      groups_.push_back({InputFile(path_.parent_path() / one.file), i, 0, 0});
    }
    Group& group = groups_.back();
    const WfdbSignal& first = signals[group.first];
    if (first.format != one.format || first.prolog != one.prolog) {
      throw InputError(path_, one.at, "the signals of one file must have one format");
    }
    ++group.count;
    group.perFrame += one.perFrame;
  }
}

std::uint64_t WfdbReader::offsetOf(const Group& group, std::uint64_t sample) const {
  const WfdbSignal& first = header_.signals[group.first];
  if (first.format == WfdbFormat::bits16) return first.prolog + 2 * sample;
  return first.prolog + sample / 2 * 3 + (sample % 2 == 0 ? 0 : 2);
}

void WfdbReader::checkLengths() {
  if (header_.frames) frames_ = *header_.frames;
  for (const Group& group : groups_) {
    const std::uint64_t size = group.file.size();
    const WfdbSignal& first = header_.signals[group.first];
    if (size < first.prolog)
      throw InputError(group.file.path(), size, "the file ends before its first sample");
    if (!header_.frames) {
      const std::uint64_t samples = first.format == WfdbFormat::bits16
                                        ? (size - first.prolog) / 2
                                        : (size - first.prolog) * 2 / 3;
      const std::uint64_t frames = samples / group.perFrame;
      frames_ = &group == &groups_.front() ? frames : std::min(frames_, frames);
    }
  }
  if (frames_ == 0) throw InputError(path_, header_.framesAt, "the record has no samples");
  if (static_cast<double>(frames_) / header_.rate > latestTime) {
    throw InputError(path_, header_.framesAt, "more samples than fit into a hundred years");
  }
  for (const Group& group : groups_) {
    const std::uint64_t end = offsetOf(group, frames_ * group.perFrame);
    const std::uint64_t size = group.file.size();
    if (size < end) {
      throw InputError(group.file.path(), size,
                       "the file ends here; " + std::to_string(frames_) +
                           " samples of each signal need " + std::to_string(end) + " bytes");
    }
    // The last byte of an odd number of samples of format 212 may be there or not.
    if (header_.frames && size > end + 1) {
      throw InputError(group.file.path(), end,
                       std::to_string(size - end) + " bytes after the last of the " +
                           std::to_string(frames_) + " samples in the header");
    }
  }
}

std::vector<std::filesystem::path> WfdbReader::files() const {
  std::vector<std::filesystem::path> files = {path_};
  for (const Group& group : groups_) files.push_back(group.file.path());
  return files;
}

double WfdbReader::part() const {
  return static_cast<double>(next_) / static_cast<double>(frames_);
}

void WfdbReader::choose(const std::vector<std::size_t>& signals) {
  for (const std::size_t signal : signals) chosen_.push_back({signal});
}

void WfdbReader::readGroup(const Group& group, std::uint64_t frame, std::uint64_t frames,
                           std::vector<std::int16_t>& values) const {
  const std::uint64_t first = frame * group.perFrame;
  const std::uint64_t count = frames * group.perFrame;
  const std::uint64_t begin = offsetOf(group, first);
  std::vector<unsigned char> bytes(offsetOf(group, first + count) - begin);
  group.file.read(begin, bytes);
  values.resize(count);
  if (header_.signals[group.first].format == WfdbFormat::bits16) {
    for (std::size_t i = 0; i < count; ++i) {
      values[i] =
          static_cast<std::int16_t>(bytes[2 * i] | static_cast<unsigned>(bytes[2 * i + 1]) << 8U);
    }
    return;
  }
  for (std::size_t i = 0; i < count; ++i) {
    const unsigned char* const pair = bytes.data() + i / 2 * 3;
    values[i] = i % 2 == 0 ? signed12(pair[0] | (pair[1] & 0x0FU) << 8U)
                           : signed12(pair[2] | (pair[1] & 0xF0U) << 4U);
  }
}

void WfdbReader::take(const Group& group, std::size_t place, std::uint64_t frame,
                      const std::vector<std::int16_t>& values, std::vector<SignalSample>& samples) {
  Chosen& chosen = chosen_[place];
  const WfdbSignal& signal = header_.signals[chosen.signal];
  std::size_t at = 0;  // of the signal's samples in a frame
  for (std::size_t i = group.first; i < chosen.signal; ++i) at += header_.signals[i].perFrame;
  const double rate = infos_[chosen.signal].rate;
  const auto skew = static_cast<std::int64_t>(signal.skew) * signal.perFrame;
  auto index = static_cast<std::int64_t>(frame * signal.perFrame) - skew;
  for (; at < values.size(); at += group.perFrame) {
    for (std::size_t i = 0; i < signal.perFrame; ++i, ++index) {
      const std::int16_t value = values[at + i];
      chosen.checksum =
          static_cast<std::uint16_t>(chosen.checksum + static_cast<std::uint16_t>(value));
      if (value == absentIn(signal.format) || index < 0) continue;
      samples.push_back({place, timeOfSample(static_cast<double>(index), rate),
                         static_cast<float>((value - signal.baseline) / signal.gain)});
    }
  }
}

bool WfdbReader::next(std::vector<SignalSample>& samples) {
  samples.clear();
  if (next_ == frames_) return false;
  const std::uint64_t frames = std::min(framesAtOnce, frames_ - next_);
  std::vector<std::size_t> begins;
  std::vector<std::int16_t> values;
  for (const Group& group : groups_) {
    bool isRead = false;
    for (std::size_t place = 0; place < chosen_.size(); ++place) {
      const std::size_t signal = chosen_[place].signal;
      if (signal < group.first || signal >= group.first + group.count) continue;
      if (!std::exchange(isRead, true)) readGroup(group, next_, frames, values);
      begins.push_back(samples.size());
      take(group, place, next_, values, samples);
    }
  }
  mergeByTime(samples, begins);
  next_ += frames;
  if (next_ == frames_) checkSums();
  return true;
}

void WfdbReader::checkSums() const {
  // Of samples that the header does not count, it has no sum.
  if (!header_.frames) return;
  for (const Chosen& chosen : chosen_) {
    const WfdbSignal& signal = header_.signals[chosen.signal];
    if (!signal.checksum || static_cast<std::uint16_t>(*signal.checksum) == chosen.checksum)
      continue;
    throw InputError(path_, signal.checksumAt,
                     "the samples of " + excerpt(signal.name) + " in " + signal.file +
                         " have the checksum " +
                         std::to_string(static_cast<std::int16_t>(chosen.checksum)) + ", not " +
                         std::to_string(*signal.checksum));
  }
}

}  // namespace Zephly::recorders
