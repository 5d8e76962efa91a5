// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// When the samples of a stream were taken, on the session's clock.
///
///   StreamClock clock = fit.finish();  // see clock_fit.h
///   ClockWalk walk(clock);
///   for (const float value : values) write(walk.next().time, value);
///
/// A stream is a sequence of segments. Within a segment no sample is known to be missing, and
/// sample i was taken at begin + i * period.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace Zephly::timing {

using Nanoseconds = std::chrono::nanoseconds;

/// The nominal properties of a stream.
struct StreamRate {
  int perSecond;        ///< samples, nominally
  int samplesPerFrame;  ///< arrive together
  /// After this long without a frame, frames may have been lost.
  Nanoseconds silence;

  double period() const { return 1e9 / perSecond; }  ///< nanoseconds, nominally
  double framePeriod() const { return period() * samplesPerFrame; }
};

/// Samples without a break in between.
struct Segment {
  std::int64_t samples = 0;
  Nanoseconds begin{};  ///< when the first one was taken, since the session began
  double period = 0;    ///< nanoseconds between two
  Nanoseconds gap{};    ///< time without samples (or without their frames) before the first one

  /// Of sample `index`, also between samples and beyond them.
  Nanoseconds time(double index) const;
  /// One period after the last sample.
  Nanoseconds end() const { return time(static_cast<double>(samples)); }
};

/// One stream from the beginning of a session to its end. Times increase from sample to sample.
struct StreamClock {
  StreamRate rate{};
  std::vector<Segment> segments = {};

  std::int64_t samples() const;
  /// One period after the last sample; 0 without samples.
  Nanoseconds end() const;
};

/// The time of one sample.
struct SampleTime {
  Nanoseconds time{};
  Nanoseconds gap{};   ///< before it, 0 when it follows another one
  Nanoseconds from{};  ///< half a period before it
  Nanoseconds to{};    ///< half a period after it
};

/// Iterates over the samples of a stream in order.
class ClockWalk {
 public:
  /// Does not own `clock`.
  explicit ClockWalk(const StreamClock& clock) : clock_(&clock) {}

  /// Whether there are no more samples.
  bool over() const { return segment_ == clock_->segments.size(); }
  /// The next sample; over() must be false.
  SampleTime peek() const;
  /// The same, and advances.
  SampleTime next();

 private:
  const StreamClock* clock_;
  std::size_t segment_ = 0;
  std::int64_t sample_ = 0;  // of the segment
};

}  // namespace Zephly::timing
