// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The rate of a stream and its longest gap. Both are measured from the first sample of a link to
/// the end of that link, so that neither the search nor a lost link affects them.
///
///   ArrivalMeter meter;
///   meter.count(1s);
///   meter.count(3s);
///   meter.stop(4s);
///   meter.longestGap();  // 2 s
///   meter.perSecond();   // 2 samples in 3 s

#include <zephly/protocol/strap_time.h>

#include <cstdint>
#include <optional>

namespace Zephly::watch {

class ArrivalMeter {
 public:
  /// One sample; times never decrease.
  void count(StrapTime time);
  /// The link was lost, or the session has ended. No sample is expected until the next one.
  void stop(StrapTime time);

  /// Of what stop() has closed; empty before there is anything.
  std::optional<StrapTime> longestGap() const { return longestGap_; }
  /// The same; empty while no time has passed.
  std::optional<double> perSecond() const;

 private:
  void silentUntil(StrapTime time);

  struct Run {
    StrapTime first;
    StrapTime last;
    std::uint64_t samples;
  };

  std::optional<Run> run_;
  std::optional<StrapTime> longestGap_;
  StrapTime expected_{};       // how long samples were to come
  std::uint64_t samples_ = 0;  // that came in this time
};

}  // namespace Zephly::watch
