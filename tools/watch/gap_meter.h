// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// How much of a stream is missing: the sum of its gaps, with a link or without.
///
///   GapMeter meter(gapLimit(Stream::ecg));
///   meter.count(1s);
///   meter.count(4s);
///   meter.missing(5s);   // 4 s: from 1 s to 4 s, and from 4 s to now
///   meter.share(5s);     // 1.0

#include <zephly/protocol/streams.h>

#include <optional>

namespace Zephly::watch {

/// Silence after which a stream has a gap: many times the interval at which the strap sends.
StrapTime gapLimit(Stream stream);

class GapMeter {
 public:
  explicit GapMeter(StrapTime limit = {}) : limit_(limit) {}

  /// One sample; times never decrease.
  void count(StrapTime time);

  /// The sum of all silences longer than the limit, from the first sample to `now`. Empty before
  /// the first sample.
  std::optional<StrapTime> missing(StrapTime now) const;
  /// The same as a fraction of the time since the first sample, 0 to 1. Empty before any time has
  /// passed.
  std::optional<double> share(StrapTime now) const;

 private:
  StrapTime gapUntil(StrapTime time) const;

  StrapTime limit_;
  std::optional<StrapTime> first_;
  StrapTime last_{};
  StrapTime missing_{};  // up to last_
};

}  // namespace Zephly::watch
