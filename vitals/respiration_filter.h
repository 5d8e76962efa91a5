// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Makes of raw respiration about ten points a second in which breaths can be counted.
///
///   RespirationFilter filter(500);
///   if (filter.push(time, value, usualSwing)) use(filter.point());
///
/// 1. The mean of a tenth of a second. It removes the mains frequencies 50 and 60 Hz.
/// 2. A limit on the change from one point to the next: 8 usual swings of a breath a second. A
/// quick
///    breath in takes 0.4 s and stays below 4. A step of the level (an electrode moves, the wearer
///    turns) is taken out of the signal in this way, and a cough becomes small.
/// 3. A symmetric low-pass: the means of 0.6 s and of 0.4 s. It has no poles, so nothing lasts
/// longer
///    than a second. It passes 0.97 at 15 breaths a minute, 0.65 at 42, and steps of a calm walk
///    (1.8 a second) by 0.1.
///
/// What the low-pass removes is the roughness, the measure of the noise.

#include <vitals/beat.h>

#include <array>
#include <cstddef>

namespace Zephly::vitals {

struct RespirationPoint {
  Time time{};             ///< of the middle of the samples that make it
  double value = 0;        ///< in the unit of the signal, less the steps that were taken out
  double roughness = 0;    ///< root mean square of what the low-pass removes, of the last 2 s
  double disturbance = 0;  ///< share of the last 2 s in which the change was limited, 0..1
  bool flat = false;       ///< no sample of the last second differs from the one before it
};

class RespirationFilter {
 public:
  /// `samplesPerSecond`: 10 to 1000.
  explicit RespirationFilter(double samplesPerSecond);

  /// Whether there is a new point. `value` is finite. `usualSwing` is the height of a usual breath;
  /// 0: not known, no limit.
  bool push(Time time, float value, double usualSwing);
  const RespirationPoint& point() const { return point_; }
  /// The next sample does not follow the last one.
  void restart();

  double pointsPerSecond() const { return pointsPerSecond_; }

 private:
  static constexpr std::size_t longest = 16;  // points of the low-pass

  struct Mean {
    Time time{};
    double value = 0;
  };

  double limited(double value, double usualSwing);
  void add(const Mean& mean);

  int samplesPerPoint_;
  double pointsPerSecond_;
  std::array<double, longest> weights_{};
  std::size_t length_ = 0;

  bool begun_ = false;  // since the restart there was a point
  Time firstTime_{};    // of the samples that are being averaged
  Time::rep timeSum_ = 0;
  double sum_ = 0;
  int count_ = 0;
  float lastSample_ = 0;
  double equalSamples_ = 0;
  double lastMean_ = 0;
  double step_ = 0;                      // taken out so far
  std::array<Mean, longest> history_{};  // oldest first
  double power_ = 0;
  RespirationPoint point_;
};

}  // namespace Zephly::vitals
