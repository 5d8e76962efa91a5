// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The shortest motion that the exercise detector counts as one repetition, for each kind. For
/// tests that need a repetition, but no realistic movement.

#include <cmath>
#include <functional>
#include <numbers>

namespace repetitions {

/// Receives one motion sample: quaternion, scalar first, acceleration in g.
using Sink = std::function<void(float, float, float, float, float, float, float)>;

/// One sample of a strap that is tilted by `tilt` radians about its x axis (0: band 2, a quarter
/// turn: band 1, a half turn: band 0), with an acceleration of (x, z) g in addition to gravity.
inline void sample(const Sink& sink, double tilt, float x = 0, float z = 0) {
  sink(static_cast<float>(std::cos(tilt / 2)), static_cast<float>(std::sin(tilt / 2)), 0, 0, x,
       static_cast<float>(std::sin(tilt)), static_cast<float>(std::cos(tilt)) + z);
}

inline void pushUp(const Sink& sink) {
  for (int count = 0; count < 15; ++count) sample(sink, 0, 0, -1);
  for (int count = 0; count < 60; ++count) sample(sink, 0, 0, 1);
}

inline void sitUp(const Sink& sink) {
  const double upright = std::numbers::pi / 2;
  for (const double tilt : {upright, std::numbers::pi, std::numbers::pi, upright}) {
    sample(sink, tilt);
  }
}

inline void jump(const Sink& sink) {
  const double upright = std::numbers::pi / 2;
  for (int count = 0; count < 15; ++count) sample(sink, upright, 1);
  for (int count = 0; count < 60; ++count) sample(sink, upright, -1);
}

}  // namespace repetitions
