// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The engine's estimate of the body temperature, and whether it has settled.
///
///   BodyEstimate estimate;
///   estimate.take(1s, 34.0F, 25.0F);
///   estimate.readings();  // 1 of BodyEstimate::needed
///   estimate.celsius();   // empty: not settled
///
/// The engine returns a value from the first reading on and averages the last 5 readings of the
/// skin and the last 20 of the ambient temperature, however old they are. Here the estimate has
/// settled when these 20 readings were taken within `span`. After a long link loss it settles anew.

#include <zephly/dsp/body_temperature_estimator.h>
#include <zephly/protocol/strap_time.h>

#include <chrono>
#include <cstddef>
#include <deque>
#include <optional>

namespace Zephly::view {

class BodyEstimate {
 public:
  /// The engine's longer window.
  static constexpr std::size_t needed = 20;
  /// The strap measures once a second; this leaves room for a short link loss.
  static constexpr std::chrono::seconds span{30};

  /// One reading of both thermometers in degrees Celsius. Times do not decrease.
  void take(StrapTime time, float skin, float ambient);

  /// How many of the last `needed` readings are usable: numbers, taken within `span`.
  std::size_t readings() const { return times_.size(); }
  /// In degrees Celsius; empty until the estimate has settled.
  std::optional<float> celsius() const;

 private:
  BodyTemperatureEstimator estimator_;
  float celsius_ = 0;
  std::deque<StrapTime> times_;  // of the usable readings, oldest first
};

}  // namespace Zephly::view
