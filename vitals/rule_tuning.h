// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The constants of the rules, chosen on the 22 records of bench/vitals together: 51,000 beats.

#include <array>

namespace Zephly::vitals {

struct RuleTuning {
  std::array<float, 4> weights = {1.0F, -0.2F, 0.95F, -0.05F};  ///< of the envelopes
  double refractory = 0.19;                                     ///< s after a beat without another
  /// The threshold as a share of the level, at parts of the median interval since the last beat.
  std::array<double, 6> parts = {0.3, 0.6, 0.9, 1.2, 1.6, 2.2};
  std::array<double, 6> shares = {0.6, 0.385, 0.181, 0.3, 0.35, 0.13};
  double lastShare = 0.4;  ///< the level is at least this share of the last beat's strength
  double noiseShare =
      0.456;              ///< of the level of rejected candidates, below which nothing is a beat
  double noiseCap = 0.5;  ///< share of the beats' level that this level counts at most
  double slopeWithin = 0.317;  ///< s after a beat within which a flat candidate is a T wave
  double slopeShare = 0.36;    ///< of the beat's slope
  double followFrom = 0.1;     ///< s after a P wave until its QRS complex
  double followTo = 0.265;
  double followShare = 0.54;  ///< of the median interval, at most
  double followRatio = 0.9;   ///< of the P wave's strength, at least
  double firstShare = 0.6;    ///< of the largest strength seen: a beat, while no level is known
  double firstRatio = 4;      ///< of a beat to the background, while no level is known
};

inline constexpr RuleTuning tuning;

}  // namespace Zephly::vitals
