// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Finds regular swings of any height in a smooth signal: those of a breathing that is far below
/// the scale of what was before it.
///
///   RegularSwings swings;
///   if (swings.push(time, value, roughness)) use(swings.height());
///
/// A swing ends when the signal has turned by a share of the swing before it. The share halves
/// every two seconds, so that after large swings small ones are seen within seconds. They are
/// regular when three tops have distances of 1.7 to 12 s and heights that are alike. Swings of the
/// heart are quicker (above 35 beats a minute), and a single one of them ends the row, so they do
/// not become breaths in an apnoea.

#include <vitals/beat.h>

#include <array>
#include <cstddef>

namespace Zephly::vitals {

/// Watches one signal for regular swings.
class RegularSwings {
 public:
  /// The top of one swing.
  struct Top {
    Time time{};
    double height = 0;  ///< over the low before it
  };
  using Tops = std::array<Top, 3>;

  /// True when the last swings are regular. `roughness`: root mean square of the noise.
  bool push(Time time, double value, double roughness);
  /// The newest first.
  const Tops& tops() const { return tops_; }
  /// The median of their heights.
  double height() const;
  /// The next point does not follow the last one.
  void restart();

 private:
  void noteSwing(double height, double enough);
  bool finishTop(double height);

  bool begun_ = false;
  bool rising_ = true;
  Time turned_{};
  double swing_ = 0;  // height of the last one
  Time highTime_{};
  double high_ = 0;
  double low_ = 0;
  Tops tops_{};
  std::size_t count_ = 0;
};

}  // namespace Zephly::vitals
