// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The number of events per second within a sliding window.

#include <zephly/protocol/strap_time.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>

namespace Zephly::watch {

class RateMeter {
 public:
  /// A whole number of periods of each of the strap's streams, so that the rate is steady.
  static constexpr std::chrono::seconds window{3};
  static constexpr std::chrono::milliseconds step{100};

  /// Times never decrease.
  void count(StrapTime time);
  /// Over the last complete steps of the window.
  double perSecond(StrapTime now) const;

 private:
  static constexpr std::size_t steps = window / step;

  // One slot more than the window: the step that is still going on.
  std::array<std::uint32_t, steps + 1> counts_{};
  std::int64_t current_ = 0;  // index of the newest step since time 0
};

}  // namespace Zephly::watch
