// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The breathing rate, from breaths.
///
///   BreathingRate rate;
///   rate.add(breath);
///   if (const auto now = rate.at(time, detector.signalQuality())) show(now->perMinute,
///   now->quality);
///
/// The rate is that of the breaths whose ends of inspiration lie in the last 30 s: 60 / mean
/// duration. The mean, not the median: a minute then has as many breaths as the rate says, also
/// where they are irregular.
///
/// There is no rate
/// - before a whole breath: from one end of inspiration to the next, or from one beginning to the
///   next, if that is complete first. It gives the rate until the second end;
/// - in a pause: the last end of inspiration is more than 10 s ago, or, where breaths take longer
///   than 6.25 s, more than 1.6 usual breaths, at most 18 s. A pause is never reported as a rate of
///   0, because a signal that shows no breathing looks the same. The duration that contains the
///   pause counts in no rate, unless the next one is as long: then both are slow breaths;
/// - from an interruption (a gap, no contact) until the first breath after it;
/// - during movement and noise: the quality of the signal is below 0.35;
/// - where the quality would be below 0.3.
///
/// The quality is the mean quality of the breaths, less for fewer than four, and less where their
/// durations vary by more than a quarter (the limit of Charlton et al. 2021, see breath_counter.h).

#include <vitals/breath.h>

#include <array>
#include <cstddef>
#include <optional>

namespace Zephly::vitals {

class BreathingRate {
 public:
  struct Rate {
    double perMinute = 0;
    double quality = 0;
  };

  /// In order of time.
  void add(const Breath& breath);
  /// In order of time, too.
  void add(const BreathCycle& cycle);
  /// No rate until the next breath.
  void interrupt();
  /// `now` is not before the last breath. `signalQuality`: BreathDetector::signalQuality().
  std::optional<Rate> at(Time now, double signalQuality) const;

 private:
  static constexpr std::size_t mostBreaths = 32;  // 25 in 30 s at most

  // Seconds after an end of inspiration within which the next one comes, or there is a pause.
  double longestWait() const;

  std::array<Breath, mostBreaths> breaths_{};  // a ring; those without duration are left out
  std::size_t count_ = 0;
  std::size_t next_ = 0;
  double pause_ = 0;          // s, of the breath before, if it was taken for a pause
  std::optional<Time> last_;  // since the interruption
  // Since the interruption, until a breath has a duration.
  bool first_ = true;
  std::optional<BreathCycle> cycle_;
};

}  // namespace Zephly::vitals
