// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Encodes measured values as notification frames: the inverse of the kit's frame decoders, for
/// simulated straps.
///
///   frame.bytes = encodeTemperature(33.2, 22.5);
///
/// A value is rounded to the nearest step, halves away from zero. A value out of range becomes the
/// nearest end of the range; nothing wraps around. NaN becomes raw 0: level zero for a sample, a
/// quaternion component, an acceleration or a charge, -273.15 for a temperature.

#include <zephly/platform/export.h>

#include <array>
#include <cstdint>
#include <vector>

namespace Zephly::simulator {

/// One orientation and what an accelerometer in that orientation reads.
struct MotionReading {
  std::array<double, 4> orientation;   ///< unit quaternion, sensor to world, scalar first
  std::array<double, 3> acceleration;  ///< g, in the sensor's axes; the support against gravity
                                       ///< included, so a level device at rest reads (0, 0, 1)
};

/// Full scale of ECG and respiration: raw -2^23 is -waveformFullScale.
inline constexpr float waveformFullScale = 2.42F;

/// Six samples, oldest first: 18 bytes, each sample 24 bits of two's complement, least significant
/// byte first, a step being waveformFullScale / 2^23.
ZEPHLY_EXPORT std::vector<std::uint8_t> encodeWaveform(const std::array<float, 6>& samples);
/// Whether the nearest step to `sample` lies outside the range (or it is NaN).
ZEPHLY_EXPORT bool waveformSaturates(float sample);

/// Degrees Celsius in steps of 0.02 K from -273.15 to 1037.55: 4 bytes, skin first, unsigned 16
/// bits each, least significant byte first.
ZEPHLY_EXPORT std::vector<std::uint8_t> encodeTemperature(double skin, double ambient);
ZEPHLY_EXPORT bool temperatureSaturates(double celsius);

/// Percent in tenths from 0 to 6553.5: 3 bytes, 16 bits least significant byte first, then 1 while
/// charging, else 0.
ZEPHLY_EXPORT std::vector<std::uint8_t> encodeBattery(double percent, bool charging);

/// 20 bytes, most significant first: w, x, y, z in 16 bits each (steps of 2^-14, -2 to 2 less a
/// step), then acceleration x, y, z in 32 bits each (steps of 2^-16 g, -32768 to 32768 less a
/// step).
ZEPHLY_EXPORT std::vector<std::uint8_t> encodeMotion(const MotionReading& reading);
/// Whether any of the seven values lies outside its range (or is NaN).
ZEPHLY_EXPORT bool motionSaturates(const MotionReading& reading);

}  // namespace Zephly::simulator
