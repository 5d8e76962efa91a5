// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The chest of a described wearer: breaths that differ from each other, talk, apnoea.
///
///   Chest chest(wearer, seed);
///   chest.advance(time, 14);
///   use(chest.expansion());
///
/// Each breath is drawn when it begins: its times of breathing in, out and resting, and its depth.
/// While the wearer talks, a breath in takes 0.35 to 0.8 s, the talk on it 1.2 to 8 s.

#include <simulator/random.h>
#include <simulator/wearer.h>

#include <cstdint>
#include <optional>

namespace Zephly::simulator {

/// The movement of one chest, sample by sample.
class Chest {
 public:
  Chest(const Wearer& wearer, std::uint64_t seed);

  /// To the sample at `time`, the one after the last. `rate` in breaths per minute is that of
  /// breathing that is neither talk nor apnoea.
  void advance(StrapTime time, double rate);

  /// 0 at rest to 2 at the end of a usual breath in.
  double expansion() const;
  /// Radians: 0 when breathing in begins, pi when it ends.
  double phase() const;
  /// The end of inspiration that the last step passed.
  std::optional<StrapTime> passedEnd() const { return passedEnd_; }

 private:
  struct Shape {
    double in;     // s
    double out;    // s
    double rest;   // s, until the next breath
    double depth;  // 1: usual
    bool talk;
  };

  Shape draw(StrapTime time, double rate);

  const Wearer& wearer_;
  Random random_;
  Shape shape_;
  double within_ = 0;  // s since breathing in began
  std::optional<StrapTime> passedEnd_;
};

}  // namespace Zephly::simulator
