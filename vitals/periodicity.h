// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The period of a signal by its autocorrelation over the last 20 s: the second, independent method
/// beside the counting of breaths.
///
///   Periodicity periodicity(10);
///   periodicity.push(value);
///   const Periodicity::Period period = periodicity.period();
///
/// The autocorrelation forgets exponentially, so one multiplication for each lag and point
/// suffices. Of two methods that agree, the rate is more certain than of one: P. H. Charlton et
/// al., "An assessment of algorithms to estimate respiratory rate from the electrocardiogram and
/// photoplethysmogram", Physiological Measurement 37(4), 2016.

#include <array>
#include <cstddef>

namespace Zephly::vitals {

class Periodicity {
 public:
  struct Period {
    double seconds = 0;   ///< 0: none
    double strength = 0;  ///< correlation of the signal with itself a period earlier, 0..1
  };

  /// `pointsPerSecond`: 4 to 15.
  explicit Periodicity(double pointsPerSecond);

  void push(double value);
  Period period() const;
  void restart();

 private:
  static constexpr std::size_t mostLags = 192;

  double pointsPerSecond_;
  std::size_t lags_;
  bool begun_ = false;
  double mean_ = 0;
  std::size_t newest_ = 0;
  std::array<double, 2 * mostLags> history_{};  // twice, so that each stretch is in one piece
  std::array<double, mostLags> correlation_{};
};

}  // namespace Zephly::vitals
