// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A local maximum of the strength of an ECG, which may be a beat, and what lies around it.

#include <vitals/beat.h>
#include <vitals/ecg_envelopes.h>

#include <algorithm>
#include <cstdint>

namespace Zephly::vitals {

/// The weighted sum of the envelopes, at least 0.
float strengthOf(const Envelopes& envelopes);

struct Candidate {
  std::int64_t step = 0;
  Time time{};
  double strength = 0;
  double slope = 0;  ///< the largest within 50 ms
  Envelopes envelopes{};
  double background = 0;  ///< strength between beats in the last two seconds
  double largest = 0;     ///< strength in the last two seconds
};

/// The strength around a candidate: of half a second before it, and of the look-ahead behind it.
class Surroundings {
 public:
  Surroundings(const float* centre, double stepsPerSecond, int ahead)
      : centre_(centre), stepsPerSecond_(stepsPerSecond), ahead_(ahead) {}

  /// The largest strength from `from` to `to`, in seconds from the candidate, as far as it is
  /// known.
  float strongest(double from, double to) const {
    float result = 0;
    for (int i = steps(from); i <= std::min(steps(to), ahead_); ++i) {
      result = std::max(result, centre_[i]);
    }
    return result;
  }
  /// The same of local maxima only.
  float strongestPeak(double from, double to) const {
    float result = 0;
    for (int i = steps(from); i <= std::min(steps(to), ahead_ - 1); ++i) {
      const float strength = centre_[i];
      if (strength >= centre_[i - 1] && strength >= centre_[i + 1]) {
        result = std::max(result, strength);
      }
    }
    return result;
  }

  /// Of `steps` steps behind the candidate, or before it.
  float at(int steps) const { return centre_[steps]; }
  double stepsPerSecond() const { return stepsPerSecond_; }
  int ahead() const { return ahead_; }  ///< steps behind the candidate that are known

 private:
  int steps(double seconds) const { return static_cast<int>(seconds * stepsPerSecond_); }

  const float* centre_;
  double stepsPerSecond_;
  int ahead_;
};

}  // namespace Zephly::vitals
