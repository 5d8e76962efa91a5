// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// What the two streams of Vitals have in common: which samples are taken, to which second of the
/// samples' time they belong, and from which sample on a change of contact applies.
///
///   if (!track.accepts(time)) return;
///   if (track.beginsStep(time)) { ... }
///   track.pass(time);
///   while (const auto on = track.contactChange(time)) detector.setContact(*on);

#include <vitals/beat.h>
#include <vitals/fixed_queue.h>

#include <algorithm>
#include <cstdint>
#include <optional>

namespace Zephly::vitals {

/// The whole second, since the clock's 0, in which `time` lies.
constexpr std::int64_t secondOf(Time time) {
  return std::chrono::floor<std::chrono::seconds>(time).count();
}
/// The end of that second.
constexpr Time endOfSecond(std::int64_t second) { return std::chrono::seconds(second + 1); }

class StreamTrack {
 public:
  /// `samplesPerSecond`: nominally.
  explicit StreamTrack(double samplesPerSecond)
      : longestStep_(std::max<Time>(std::chrono::milliseconds(50),
                                    Time(static_cast<std::int64_t>(1.5e9 / samplesPerSecond)))) {}

  /// Half a second: the steps in which the state of a stream is looked at.
  static constexpr Time step = std::chrono::milliseconds(500);

  /// Whether the sample is one: later than the one before it, and at a time with which can be
  /// computed (146 years around 0).
  bool accepts(Time time) const {
    return time > -farthest && time < farthest && (!last_ || time > *last_);
  }
  /// Whether samples are missing before the one at `time`.
  bool isGap(Time time) const { return last_ && time - *last_ > longestStep_; }
  /// Whether a step ends before the sample at `time`; true once for each step with samples.
  bool beginsStep(Time time) {
    if (last_ && time < due_) return false;
    due_ = std::chrono::floor<Step>(time) + Step(1);
    return true;
  }
  void pass(Time time) { last_ = time; }
  /// Of the latest sample.
  const std::optional<Time>& last() const { return last_; }

  /// From the first sample at `time` or later.
  void changeContact(Time time, bool on) {
    changes_.push({time, on});  // of more than there is room for, the oldest has no effect
  }
  /// The next change that applies to the sample at `time`.
  std::optional<bool> contactChange(Time time) {
    if (changes_.empty() || changes_.front().time > time) return std::nullopt;
    contact_ = changes_.pop().on;
    return contact_;
  }
  const std::optional<bool>& contact() const { return contact_; }

  /// Forgets samples and their times; contact remains.
  void restart() { last_.reset(); }

 private:
  using Step = std::chrono::duration<std::int64_t, std::ratio<1, 2>>;
  static constexpr Time farthest = Time(std::int64_t{1} << 62);

  struct Change {
    Time time{};
    bool on = false;
  };

  Time longestStep_;
  std::optional<Time> last_;
  Time due_{};
  FixedQueue<Change, 256> changes_;
  std::optional<bool> contact_;
};

}  // namespace Zephly::vitals
