// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Finds the times, between samples, at which an angle passes 0 upwards.
///
///   Passing beats;
///   if (const auto time = beats.next(sampleTime, heart.heartPhase())) report(*time);

#include <simulator/rates.h>
#include <zephly/protocol/strap_time.h>

#include <chrono>
#include <optional>

namespace Zephly::simulator {

/// Finds when an angle passes 0 upwards, between two samples.
class Passing {
 public:
  /// The angle in radians at the next sample. Its jump from pi to -pi is no passing.
  std::optional<StrapTime> next(StrapTime time, double angle) {
    std::optional<StrapTime> passed;
    if (last_ && *last_ < 0 && angle >= 0) {
      const std::chrono::duration<double> ago(angle / (angle - *last_) / waveformRate);
      passed = time - std::chrono::duration_cast<StrapTime>(ago);
    }
    last_ = angle;
    return passed;
  }

 private:
  std::optional<double> last_;
};

}  // namespace Zephly::simulator
