// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The shape of a QRS complex, to compare it with others: independent of gain, offset and rate.

#include <array>
#include <cstddef>

namespace Zephly::vitals {

class BeatShape {
 public:
  static constexpr double reach = 0.1;  ///< s before and after the R peak that are read, and 1.5
                                        ///< samples more

  static constexpr double same = 0.95;  ///< a likeness from which no larger one is looked for

  BeatShape() = default;
  /// `peak` points to the sample nearest to the R peak, which lies `fraction` of a sample beyond.
  BeatShape(const float* peak, double fraction, double samplesPerSecond);

  /// How alike two shapes are: the largest correlation when one is moved by up to 30 ms, -1 to 1.
  /// 0 for one that is constant.
  double likeness(const BeatShape& other) const;
  /// Moves towards another shape by `share`, 0 to 1.
  void approach(const BeatShape& other, double share);

 private:
  static constexpr std::size_t half = 16;  // points on each side

  std::array<float, 2 * half + 1> points_{};  // of mean 0 and mean square 1
};

}  // namespace Zephly::vitals
