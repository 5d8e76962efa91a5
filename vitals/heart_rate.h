// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The heart rate for the eye: the median of the last RR intervals, or nothing.
///
///   HeartRate rate;
///   rate.take(beat);                          // every beat, in the order of the detector
///   if (const auto value = rate.at(now).perMinute) show(*value);

#include <vitals/beat.h>
#include <vitals/fixed_queue.h>

#include <cstddef>
#include <optional>

namespace Zephly::vitals {

class HeartRate {
 public:
  /// Intervals are of the last 10 s, and there are at least `fewest` of them. With fewer the median
  /// follows a single wrong beat.
  static constexpr Time window = std::chrono::seconds(10);
  static constexpr std::size_t fewest = 3;
  /// Without a beat for this long there is no rate: 20 beats per minute is the slowest.
  static constexpr Time silence = std::chrono::seconds(3);
  /// A rate of lower quality is not reported.
  static constexpr double lowestQuality = 0.3;

  struct Value {
    std::optional<double> perMinute;
    double quality = 0;
  };

  void take(const Beat& beat);
  /// Forgets all beats.
  void clear();
  /// From the beats up to `now`. The quality is the mean of that of the beats, times the share of
  /// the time between them that belongs to usable intervals. A late beat shifts no interval.
  Value at(Time now) const;

 private:
  struct Taken {
    Time time{};
    double rr = 0;  ///< s; 0: the interval before it cannot be used
    double quality = 0;
  };
  // 10 s at 300 per minute, the detector's shortest interval, and the beats after `now`.
  FixedQueue<Taken, 64> beats_;
  bool usable_ = false;  // the last beat can begin an interval
};

}  // namespace Zephly::vitals
