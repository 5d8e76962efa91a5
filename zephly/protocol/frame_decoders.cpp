// SPDX-License-Identifier: MIT
#include <zephly/protocol/frame_decoders.h>

#include <zephly/protocol/streams.h>
#include <zephly/protocol/utilities.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>

namespace FrameDecoders {

namespace {

constexpr float sampleScale = 0.00000011920928955078125f;  // 2^-23: 24 bits to -1..1
constexpr float sampleFullScale = 2.42f;
constexpr float temperatureStep = 0.02f;  // kelvin per count
constexpr float absoluteZero = -273.15f;  // degrees Celsius

static_assert(std::bit_cast<std::uint32_t>(sampleScale) == 0x34000000);
static_assert(std::bit_cast<std::uint32_t>(sampleFullScale) == 0x401AE148);
static_assert(std::bit_cast<std::uint32_t>(temperatureStep) == 0x3CA3D70A);
static_assert(std::bit_cast<std::uint32_t>(absoluteZero) == 0xC3889333);

using Zephly::Stream;
using Zephly::streamInfo;

// Respiration frames have the same layout.
static_assert(streamInfo(Stream::ecg).bytesPerFrame ==
              streamInfo(Stream::respiration).bytesPerFrame);

// The first bytes of the frame, as many as the stream's frames have; zeros replace missing ones.
template <Stream stream>
auto buffered(const NSData& frame) {
  constexpr std::size_t size = streamInfo(stream).bytesPerFrame;
  std::array<std::uint8_t, size> buffer{};
  frame.getBytes(buffer.data(), std::min(frame.length(), size));
  return buffer;
}

int unsigned16(std::uint8_t low, std::uint8_t high) { return low + 256 * high; }

float celsius(std::uint8_t low, std::uint8_t high) {
  const float kelvin = static_cast<float>(unsigned16(low, high)) * temperatureStep;
  return kelvin + absoluteZero;
}

}  // namespace

std::vector<float> calculateECGValue(const NSData& frame) {
  const auto bytes = buffered<Stream::ecg>(frame);
  ::Utilities utilities;
  std::vector<float> samples;
  samples.reserve(bytes.size() / 3);
  for (std::size_t first = 0; first < bytes.size(); first += 3) {
    const int raw = utilities.toU2(bytes[first + 2], bytes[first + 1], bytes[first]);
    const float fraction = static_cast<float>(raw) * sampleScale;
    samples.push_back(fraction * sampleFullScale);
  }
  return samples;
}

Temperature calculateTemperatureValue(const NSData& frame) {
  const auto bytes = buffered<Stream::temperature>(frame);
  return {celsius(bytes[0], bytes[1]), celsius(bytes[2], bytes[3])};
}

BatteryStatus calculateBatterySOCValue(const NSData& frame) {
  const auto bytes = buffered<Stream::battery>(frame);
  return {static_cast<float>(unsigned16(bytes[0], bytes[1])) / 10.0f, bytes[2] != 0};
}

Motion calculateMotionValue(const NSData& frame) {
  const auto bytes = buffered<Stream::motion>(frame);
  ::Utilities utilities;
  // The strap sends the 16 upper bits of a Q2.30 number.
  const auto component = [&](std::size_t first) {
    return utilities.q30tofloat(bytes[first], bytes[first + 1], 0, 0);
  };
  const auto acceleration = [&](std::size_t first) {
    return utilities.q16tofloat(bytes[first], bytes[first + 1], bytes[first + 2], bytes[first + 3]);
  };
  return {component(0),    component(2),     component(4),    component(6),
          acceleration(8), acceleration(12), acceleration(16)};
}

}  // namespace FrameDecoders
