// SPDX-License-Identifier: MIT
#include <tools/strap/report.h>

#include <cstddef>
#include <string_view>

namespace Zephly::peripheral {

namespace {

// The whole seconds and that many digits of the rest.
std::string fixedSeconds(std::chrono::nanoseconds time, std::size_t digits) {
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time);
  constexpr std::size_t allDigits = 9;
  std::string rest = std::to_string((time - seconds).count());
  rest.insert(0, allDigits - rest.size(), '0');
  return std::to_string(seconds.count()) + "." + rest.substr(0, digits);
}

}  // namespace

FrameCounts framesSent(const simulator::Transmitter& transmitter) {
  FrameCounts counts{};
  for (const Stream stream : allStreams) {
    counts.at(static_cast<std::size_t>(stream)) = transmitter.counts(stream).framesSent;
  }
  return counts;
}

std::string countsText(const FrameCounts& counts) {
  std::string text;
  for (const Stream stream : allStreams) {
    if (!text.empty()) text += ", ";
    text += streamInfo(stream).name;
    text += " " + std::to_string(counts.at(static_cast<std::size_t>(stream)));
  }
  return text;
}

std::string frameText(std::chrono::nanoseconds time, const simulator::Frame& frame) {
  constexpr std::size_t microseconds = 6;
  constexpr std::string_view digits = "0123456789ABCDEF";
  std::string text = fixedSeconds(time, microseconds) + " sent ";
  text += streamInfo(frame.stream).name;
  text += ' ';
  for (const std::uint8_t byte : frame.bytes) {
    text += digits[byte >> 4U];
    text += digits[byte & 0xFU];
  }
  return text;
}

std::string secondsText(std::chrono::nanoseconds time) {
  constexpr std::size_t milliseconds = 3;
  std::string text = fixedSeconds(time, milliseconds);
  text.erase(text.find_last_not_of('0') + 1);
  if (text.back() == '.') text.pop_back();
  return text;
}

}  // namespace Zephly::peripheral
