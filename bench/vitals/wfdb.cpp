// SPDX-License-Identifier: MIT
#include <bench/vitals/wfdb.h>

#include <tools/vitals/wfdb_reader.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace Zephly::bench {

namespace {

std::vector<std::uint8_t> bytesOf(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error(path.string() + ": cannot be read");
  return {std::istreambuf_iterator<char>(file), {}};
}

bool isBeat(int code) {
  return (code >= 1 && code <= 13) || code == 25 || code == 30 || code == 34 || code == 35 ||
         code == 38 || code == 41;
}

MarkedClass classOf(int code) {
  if (code == 4 || (code >= 7 && code <= 9)) return MarkedClass::supraventricular;
  if (code == 5 || code == 10) return MarkedClass::ventricular;
  return code == 6 ? MarkedClass::fusion : MarkedClass::normal;
}

void readAnnotations(const std::filesystem::path& path, MarkedRecording& recording) {
  const std::vector<std::uint8_t> bytes = bytesOf(path);
  double flutterStart = -1;
  std::int64_t sample = 0;
  const auto word = [&](std::size_t at) {
    if (at + 1 >= bytes.size()) throw std::runtime_error(path.string() + ": cut off");
    return static_cast<unsigned>(bytes[at] | bytes[at + 1] << 8);
  };
  for (std::size_t at = 0;; at += 2) {
    const unsigned value = word(at);
    if (value == 0) break;
    const unsigned code = value >> 10U;
    const unsigned low = value & 0x3ffU;
    if (code == 59) {
      sample += static_cast<std::int32_t>(word(at + 2) << 16U | word(at + 4));
      at += 4;
    } else if (code == 63) {
      at += (low + 1) & ~1U;
    } else if (code < 60) {
      sample += low;
      const double time = static_cast<double>(sample) / recording.rate;
      if (isBeat(static_cast<int>(code))) {
        recording.beats.push_back({time, classOf(static_cast<int>(code))});
      } else if (code == 32) {
        flutterStart = time;
      } else if (code == 33) {
        recording.flutter.push_back({flutterStart, time});
      }
    }
  }
}

}  // namespace

MarkedRecording readRecording(const std::filesystem::path& header, std::size_t channel) {
  recorders::WfdbReader record(header);
  if (record.signals().size() <= channel) {
    throw std::runtime_error(header.string() + ": has too few signals");
  }
  MarkedRecording recording;
  recording.name = header.stem();
  recording.rate = record.signals()[channel].rate;
  record.choose({channel});
  std::vector<recorders::SignalSample> samples;
  while (record.next(samples)) {
    for (const recorders::SignalSample& sample : samples) {
      // Samples that the file marks as missing repeat the one before.
      const auto place = static_cast<std::size_t>(
          std::llround(static_cast<double>(sample.time.count()) * 1e-9 * recording.rate));
      recording.ecg.resize(place, recording.ecg.empty() ? 0 : recording.ecg.back());
      recording.ecg.push_back(sample.value);
    }
  }
  readAnnotations(std::filesystem::path(header).replace_extension(".atr"), recording);
  return recording;
}

std::vector<MarkedBeat> readBeats(const std::filesystem::path& annotations, double rate) {
  MarkedRecording recording;
  recording.rate = rate;
  readAnnotations(annotations, recording);
  return recording.beats;
}

std::vector<MarkedRecording> readRecordings(const std::filesystem::path& folder,
                                            std::size_t channel) {
  std::vector<std::filesystem::path> headers;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    if (entry.path().extension() == ".hea") headers.push_back(entry.path());
  }
  std::sort(headers.begin(), headers.end());
  std::vector<MarkedRecording> recordings;
  for (const auto& header : headers) recordings.push_back(readRecording(header, channel));
  return recordings;
}

}  // namespace Zephly::bench
