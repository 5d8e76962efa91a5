#pragma once
/// @file
/// The rates at which a strap made of software measures and sends.

#include <simulator/frame.h>

#include <chrono>
#include <cstdint>

namespace Zephly::simulator {

inline constexpr int waveformRate = 500;   ///< ECG and respiration samples per second
inline constexpr int motionRate = 30;      ///< orientation and acceleration readings per second
inline constexpr int temperatureRate = 1;  ///< skin and ambient temperature readings per second

inline constexpr int samplesPerWaveformFrame = 6;  ///< so a waveform frame leaves every 12 ms

/// The charge is told whenever it (or the charger) changes, and at least this often.
inline constexpr StrapTime batteryInterval = std::chrono::seconds(10);

/// When measurement `index` (0 at the beginning) of a stream with `rate` a second is taken, rounded
/// down to a nanosecond. Exact for 9 * 10^9 measurements, half a year of waveform.
constexpr StrapTime sampleTime(std::int64_t index, int rate) {
  return StrapTime(index / rate * 1'000'000'000 + index % rate * 1'000'000'000 / rate);
}

}  // namespace Zephly::simulator
