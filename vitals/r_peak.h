// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Finds the R peak near a candidate: the most prominent extremum of the smoothed samples, upward
/// ones preferred, with a parabola through it for its place between samples.

#include <vector>

namespace Zephly::vitals {

struct RPeak {
  int sample = 0;        ///< from the centre
  double fraction = 0;   ///< of a sample, -0.5 to 0.5, beyond `sample`
  double amplitude = 0;  ///< against the level before the QRS complex
};

class RPeakFinder {
 public:
  explicit RPeakFinder(double samplesPerSecond);

  int reach() const { return reach_ + margin_; }  ///< samples read before and after the centre
  RPeak find(const float* centre);
  /// The largest slope around `centre`, in units per sample.
  double slope(const float* centre) const;

 private:
  double prominence(int at, int sign) const;

  double edge_;  // weight of the outermost samples of the moving average
  int inner_;    // samples with full weight on each side
  int flank_;
  int reach_;
  int margin_;
  int slopeReach_;
  int slopeStep_;
  int levelFrom_;
  int levelTo_;
  std::vector<double> smoothed_;
};

}  // namespace Zephly::vitals
