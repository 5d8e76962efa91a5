// SPDX-License-Identifier: MIT
#include <tests/bluetooth/check/strap_log.h>

#include <hosts/foundation/data.h>
#include <zephly/protocol/frame_decoders.h>

#include <algorithm>
#include <bit>
#include <cctype>
#include <fstream>
#include <iterator>
#include <optional>
#include <sstream>

namespace Zephly::bluetooth_check {

namespace {

std::optional<Stream> streamNamed(std::string_view name) {
  for (const Stream stream : allStreams) {
    if (streamInfo(stream).name == name) return stream;
  }
  return std::nullopt;
}

std::vector<std::uint8_t> bytesOf(const std::string& hex) {
  std::vector<std::uint8_t> bytes;
  for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
    bytes.push_back(static_cast<std::uint8_t>(std::stoi(hex.substr(i, 2), nullptr, 16)));
  }
  return bytes;
}

}  // namespace

Reading readingOf(const std::vector<float>& values) {
  Reading reading;
  for (const float value : values) reading.push_back(std::bit_cast<std::uint32_t>(value));
  return reading;
}

Reading readingOf(Stream stream, const std::vector<std::uint8_t>& frame) {
  const hosts::Data data(frame);
  switch (stream) {
    case Stream::ecg:
    case Stream::respiration:
      return readingOf(FrameDecoders::calculateECGValue(data));
    case Stream::temperature: {
      const auto value = FrameDecoders::calculateTemperatureValue(data);
      return readingOf({value.objectTemperature, value.ambientTemperature});
    }
    case Stream::battery: {
      const auto value = FrameDecoders::calculateBatterySOCValue(data);
      return readingOf({value.soc, value.inCharge ? 1.0F : 0.0F});
    }
    case Stream::motion: {
      const auto value = FrameDecoders::calculateMotionValue(data);
      return readingOf({value.qw, value.qx, value.qy, value.qz, value.ax, value.ay, value.az});
    }
  }
  return {};
}

void StrapLog::refresh() {
  std::ifstream file(file_, std::ios::binary);
  if (!file) return;
  file.seekg(static_cast<std::streamoff>(offset_));
  const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  offset_ += text.size();
  rest_ += text;
  std::size_t begin = 0;
  for (auto end = rest_.find('\n'); end != std::string::npos; end = rest_.find('\n', begin)) {
    take(std::string_view(rest_).substr(begin, end - begin));
    begin = end + 1;
  }
  rest_.erase(0, begin);
}

std::size_t StrapLog::count(std::string_view what) const {
  return static_cast<std::size_t>(
      std::count_if(events_.begin(), events_.end(), [what](const std::string& event) {
        return event.compare(0, what.size(), what) == 0 &&
               (event.size() == what.size() || event[what.size()] == ' ');
      }));
}

void StrapLog::restart() { *this = StrapLog(file_); }

void StrapLog::take(std::string_view line) {
  std::istringstream words{std::string(line)};
  std::string time;
  std::string what;
  std::string name;
  std::string value;
  words >> time >> what >> name >> value;
  if (!time.empty() && std::isdigit(static_cast<unsigned char>(time.front())) == 0) {
    // In the output of `zephly strap` only frames have a time.
    if (time == "sent") return;
    value = name;
    name = what;
    what = time;
  }
  if (what == "sent") {
    const auto stream = streamNamed(name);
    if (stream && !links_.empty()) {
      links_.back().sent[*stream].push_back(readingOf(*stream, bytesOf(value)));
      links_.back().sentAt[*stream].push_back(std::stod(time));
    }
    return;
  }
  events_.push_back(what + ' ' + name);
  if (what == "connected") links_.emplace_back();
  if (what == "subscribed" && !links_.empty()) links_.back().subscribed.insert(name);
  if (what == "disconnected" && !links_.empty()) links_.back().end = name.empty() ? "?" : name;
  // "counts sent=5 dropped=0 unsent=0", for one link.
  constexpr std::string_view dropped = "dropped=";
  if (what == "counts" && value.compare(0, dropped.size(), dropped) == 0) {
    dropped_ += std::stoul(value.substr(dropped.size()));
  }
}

}  // namespace Zephly::bluetooth_check
