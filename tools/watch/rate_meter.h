// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The present rate of a stream: over the last seconds, and from the first second of a link on.
///
///   RateMeter meter;
///   meter.restart(1s);         // the link is there
///   meter.count(1200ms);       // a sample
///   meter.perSecond(1500ms);   // empty: less than a second of samples
///   meter.perSecond(5s);       // over the last three seconds

#include <zephly/protocol/strap_time.h>
#include <zephly/protocol/streams.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace Zephly::watch {

class RateMeter {
 public:
  /// A whole number of periods of each of the strap's streams, so that the rate is steady.
  static constexpr std::chrono::seconds window{3};
  static constexpr std::chrono::milliseconds step{100};

  /// A link begins: the rate does not include the time before its first sample. Times never
  /// decrease, here and in count().
  void restart(StrapTime time);
  void count(StrapTime time);
  /// Over the last whole seconds since the first sample of the link, at most those of the window.
  /// Empty in the first of them, and while the link is too short for a missing stream to mean 0.
  std::optional<double> perSecond(StrapTime now) const;

 private:
  static constexpr std::int64_t steps = window / step;

  // One slot more than the window: the present step, which is not complete.
  std::array<std::uint32_t, steps + 1> counts_{};
  std::int64_t current_ = 0;           // index of the newest step since time 0
  std::optional<std::int64_t> begin_;  // the first step that counts; empty: no link yet
  bool any_ = false;                   // a sample has arrived on this link
};

/// The rate of a stream in a table for people, with one decimal; "-" for none, and for a stream
/// without a rate, the battery.
std::string rateText(Stream stream, const std::optional<double>& perSecond);

}  // namespace Zephly::watch
