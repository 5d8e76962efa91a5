// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// One breath, as vitals reports it.

#include <vitals/beat.h>

#include <optional>

namespace Zephly::vitals {

struct Breath {
  Time time{};                     ///< of the end of inspiration, the top of the swing
  std::optional<double> duration;  ///< s since the top of the breath before it; empty after a gap
  double depth = 0;      ///< of the swing, relative to the median of the last minute: 1 is usual
  double quality = 0;    ///< 0..1
  bool derived = false;  ///< from the ECG, because the impedance is absent or poor

  friend bool operator==(const Breath&, const Breath&) = default;
};

/// From one beginning of inspiration to the next. Not reported: it gives the first rate.
struct BreathCycle {
  Time time{};          ///< of its end
  double duration = 0;  ///< s
  double quality = 0;   ///< 0..1
};

}  // namespace Zephly::vitals
