// SPDX-License-Identifier: MIT
#include <simulator/frame_encoder.h>

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace Zephly::simulator {

namespace {

// A field of a frame: how many steps make one unit, and the first and last step.
struct Field {
  double stepsPerUnit;
  double lowest;
  double highest;
};

constexpr Field waveformField{8388608.0 / static_cast<double>(waveformFullScale), -8388608.0,
                              8388607.0};
// The decoder multiplies and adds these floats, so their inverse is exact with them only.
constexpr double kelvinStep = static_cast<double>(0.02F);
constexpr double zeroCelsius = static_cast<double>(273.15F);
constexpr Field temperatureField{1.0 / kelvinStep, 0.0, 65535.0};
constexpr Field chargeField{10.0, 0.0, 65535.0};
constexpr Field orientationField{16384.0, -32768.0, 32767.0};
constexpr Field accelerationField{65536.0, -2147483648.0, 2147483647.0};

// The nearest step, in range; the cast cannot overflow.
std::int64_t toRaw(double value, const Field& field) {
  if (std::isnan(value)) return 0;
  return static_cast<std::int64_t>(
      std::clamp(std::round(value * field.stepsPerUnit), field.lowest, field.highest));
}

bool saturates(double value, const Field& field) {
  const double steps = std::round(value * field.stepsPerUnit);
  return !(steps >= field.lowest && steps <= field.highest);
}

void appendLittleEndian(std::vector<std::uint8_t>& bytes, std::int64_t raw, int width) {
  const auto bits = static_cast<std::uint64_t>(raw);
  for (int i = 0; i < width; ++i) bytes.push_back(static_cast<std::uint8_t>(bits >> (8 * i)));
}

void appendBigEndian(std::vector<std::uint8_t>& bytes, std::int64_t raw, int width) {
  const auto bits = static_cast<std::uint64_t>(raw);
  for (int i = width - 1; i >= 0; --i) bytes.push_back(static_cast<std::uint8_t>(bits >> (8 * i)));
}

}  // namespace

std::vector<std::uint8_t> encodeWaveform(const std::array<float, 6>& samples) {
  std::vector<std::uint8_t> bytes;
  bytes.reserve(18);
  for (const float sample : samples)
    appendLittleEndian(bytes, toRaw(static_cast<double>(sample), waveformField), 3);
  return bytes;
}

bool waveformSaturates(float sample) {
  return saturates(static_cast<double>(sample), waveformField);
}

std::vector<std::uint8_t> encodeTemperature(double skin, double ambient) {
  std::vector<std::uint8_t> bytes;
  bytes.reserve(4);
  appendLittleEndian(bytes, toRaw(skin + zeroCelsius, temperatureField), 2);
  appendLittleEndian(bytes, toRaw(ambient + zeroCelsius, temperatureField), 2);
  return bytes;
}

bool temperatureSaturates(double celsius) {
  return saturates(celsius + zeroCelsius, temperatureField);
}

std::vector<std::uint8_t> encodeBattery(double percent, bool charging) {
  std::vector<std::uint8_t> bytes;
  bytes.reserve(3);
  appendLittleEndian(bytes, toRaw(percent, chargeField), 2);
  bytes.push_back(charging ? 1 : 0);
  return bytes;
}

std::vector<std::uint8_t> encodeMotion(const MotionReading& reading) {
  std::vector<std::uint8_t> bytes;
  bytes.reserve(20);
  for (const double component : reading.orientation)
    appendBigEndian(bytes, toRaw(component, orientationField), 2);
  for (const double component : reading.acceleration)
    appendBigEndian(bytes, toRaw(component, accelerationField), 4);
  return bytes;
}

bool motionSaturates(const MotionReading& reading) {
  const auto outside = [](const Field& field) {
    return [&field](double value) { return saturates(value, field); };
  };
  return std::ranges::any_of(reading.orientation, outside(orientationField)) ||
         std::ranges::any_of(reading.acceleration, outside(accelerationField));
}

}  // namespace Zephly::simulator
