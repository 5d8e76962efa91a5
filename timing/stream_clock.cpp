// SPDX-License-Identifier: MIT
#include <timing/stream_clock.h>

#include <cmath>

namespace Zephly::timing {

Nanoseconds Segment::time(double index) const {
  return begin + Nanoseconds(std::llround(index * period));
}

std::int64_t StreamClock::samples() const {
  std::int64_t sum = 0;
  for (const Segment& segment : segments) sum += segment.samples;
  return sum;
}

Nanoseconds StreamClock::end() const {
  return segments.empty() ? Nanoseconds{} : segments.back().end();
}

SampleTime ClockWalk::peek() const {
  const Segment& segment = clock_->segments[segment_];
  const auto index = static_cast<double>(sample_);
  return {.time = segment.time(index),
          .gap = sample_ == 0 ? segment.gap : Nanoseconds{},
          .from = segment.time(index - 0.5),
          .to = segment.time(index + 0.5)};
}

SampleTime ClockWalk::next() {
  const SampleTime time = peek();
  if (++sample_ == clock_->segments[segment_].samples) {
    sample_ = 0;
    ++segment_;
  }
  return time;
}

}  // namespace Zephly::timing
