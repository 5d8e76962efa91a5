// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Time by the strap's clock.
///
///   sampleTime(500, 500)   // 1 s: the sample after the first 500
///   seconds(1500ms)        // 1.5

#include <chrono>
#include <cstdint>

namespace Zephly {

/// Nanoseconds since a beginning: for the strap when it was switched on, for a program that
/// observes one when its session began.
using StrapTime = std::chrono::nanoseconds;

inline double seconds(StrapTime time) { return std::chrono::duration<double>(time).count(); }

/// When measurement `index` (0 at the beginning) of a stream with `rate` measurements a second is
/// taken, rounded down to a nanosecond. Exact for 9 * 10^9 measurements, half a year of ECG.
constexpr StrapTime sampleTime(std::int64_t index, int rate) {
  return StrapTime(index / rate * 1'000'000'000 + index % rate * 1'000'000'000 / rate);
}

}  // namespace Zephly
