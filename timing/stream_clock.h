#pragma once
/// @file
/// When the samples of a stream were taken, by the clock of the session.
///
///   StreamClock clock = fit.finish();  // see clock_fit.h
///   ClockWalk walk(clock);
///   for (const float value : values) write(walk.next().time, value);
///
/// A stream is a row of segments. Within one nothing is missing as far as can be known, and sample
/// i was taken at begin + i * period.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace Zephly::timing {

using Nanoseconds = std::chrono::nanoseconds;

/// What is known of a stream without having seen any of it.
struct StreamRate {
  int perSecond;        ///< samples, nominally
  int samplesPerFrame;  ///< that arrive together
  /// Without a frame for so long it is not certain that none was lost.
  Nanoseconds silence;

  double period() const { return 1e9 / perSecond; }  ///< nanoseconds, nominally
  double framePeriod() const { return period() * samplesPerFrame; }
};

/// Samples without a break in between.
struct Segment {
  std::int64_t samples = 0;
  Nanoseconds begin{};  ///< when the first one was taken, since the session began
  double period = 0;    ///< nanoseconds between two
  Nanoseconds gap{};    ///< how long none was taken (or arrived) before the first one

  /// Of sample `index`, also between samples and beyond them.
  Nanoseconds time(double index) const;
  /// One period after the last sample.
  Nanoseconds end() const { return time(static_cast<double>(samples)); }
};

/// One stream from the beginning of a session to its end. Times rise from sample to sample.
struct StreamClock {
  StreamRate rate{};
  std::vector<Segment> segments = {};

  std::int64_t samples() const;
  /// One period after the last sample; 0 without samples.
  Nanoseconds end() const;
};

/// One sample's place in time.
struct SampleTime {
  Nanoseconds time{};
  Nanoseconds gap{};   ///< before it, 0 when it follows another one
  Nanoseconds from{};  ///< half a period before it
  Nanoseconds to{};    ///< half a period after it: where the next one's begins
};

/// Goes over the samples of a stream in order.
class ClockWalk {
 public:
  /// Does not own `clock`.
  explicit ClockWalk(const StreamClock& clock) : clock_(&clock) {}

  /// Whether all samples have been passed.
  bool over() const { return segment_ == clock_->segments.size(); }
  /// The next sample, which there must be.
  SampleTime peek() const;
  /// The same, and goes on.
  SampleTime next();

 private:
  const StreamClock* clock_;
  std::size_t segment_ = 0;
  std::int64_t sample_ = 0;  // of the segment
};

}  // namespace Zephly::timing
