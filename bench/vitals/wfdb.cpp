// SPDX-License-Identifier: MIT
#include <bench/vitals/wfdb.h>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <sstream>
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

// Premature and escape beats of any origin, and fusions with them.
bool isEctopic(int code) { return code >= 4 && code <= 10; }

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
        recording.beats.push_back({time, isEctopic(static_cast<int>(code))});
      } else if (code == 32) {
        flutterStart = time;
      } else if (code == 33) {
        recording.flutter.push_back({flutterStart, time});
      }
    }
  }
}

}  // namespace

MarkedRecording readRecording(const std::filesystem::path& header, int channel) {
  std::ifstream text(header);
  MarkedRecording recording;
  int signals = 0;
  std::string file;
  std::string format;
  std::string gain;
  std::string line;
  std::getline(text, line);
  std::istringstream(line) >> recording.name >> signals >> recording.rate;
  for (int i = 0; i <= channel; ++i) std::getline(text, line);
  std::istringstream(line) >> file >> format >> gain;
  if (!text || signals <= channel || recording.rate <= 0 || format != "212") {
    throw std::runtime_error(header.string() + ": not a record in format 212");
  }
  const float unitsPerMillivolt = std::stof(gain);
  const std::vector<std::uint8_t> bytes = bytesOf(header.parent_path() / file);
  std::size_t number = 0;
  const auto take = [&](int raw) {
    const int value = raw >= 2048 ? raw - 4096 : raw;
    if (number++ % static_cast<std::size_t>(signals) == static_cast<std::size_t>(channel)) {
      recording.ecg.push_back(static_cast<float>(value) / unitsPerMillivolt);
    }
  };
  for (std::size_t i = 0; i + 2 < bytes.size(); i += 3) {
    take(bytes[i] | (bytes[i + 1] & 0x0f) << 8);
    take(bytes[i + 2] | (bytes[i + 1] & 0xf0) << 4);
  }
  readAnnotations(std::filesystem::path(header).replace_extension(".atr"), recording);
  return recording;
}

std::vector<MarkedRecording> readRecordings(const std::filesystem::path& folder, int channel) {
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
