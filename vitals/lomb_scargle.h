// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The spectrum of values at any times, by the method of Lomb and Scargle (see hrv.h).
///
///   LombScargle spectrum(points, 0.8);     // of which the mean and the linear trend are removed
///   spectrum.power(0.1);                   // unit^2, as scipy.signal.lombscargle(2 pi 0.1)
///   spectrum.bandPower(0.04, 0.15);        // unit^2: the variance in that band
///
/// A sine of amplitude A within the band has the band power A^2 / 2.

#include <cstddef>
#include <vector>

namespace Zephly::vitals {

class LombScargle {
 public:
  struct Point {
    double time;  ///< s, increasing
    double value;
  };

  /// At least 3 points, which are not all at one time. `spacing`: the mean time between two of them
  /// where none is missing, s. It scales the band power.
  LombScargle(std::vector<Point> points, double spacing);

  /// At a frequency in Hz, above 0.
  double power(double frequency) const;
  /// The integral of the power density 2 * power * span / points over the band, by the trapezoidal
  /// rule in steps of 0.002 Hz. The density is smooth on the scale of the inverse of the span,
  /// 1/300 Hz for five minutes. `from` and `to` are multiples of the step.
  double bandPower(double from, double to) const;

 private:
  static constexpr double step = 0.002;

  std::vector<Point> points_;
  double spacing_;
};

}  // namespace Zephly::vitals
