// SPDX-License-Identifier: MIT
#include <vitals/beat_history.h>

#include <algorithm>

namespace Zephly::vitals {

namespace {

constexpr double usualInterval = 0.8;  // s
constexpr double lostAfter = 3;        // s
constexpr double lostIntervals = 3;
constexpr double missedDistance = 0.36;  // s after a beat: before that it is a T wave

}  // namespace

void BeatHistory::accept(const Candidate& beat) {
  const double interval = secondsSinceLast(beat.step);
  if (isLost(interval)) {
    forget();
  } else if (last_) {
    intervals_.push(interval);
  }
  strengths_.push(beat.strength);
  slopes_.push(beat.slope);
  for (std::size_t band = 0; band < envelopes_.size(); ++band) {
    envelopes_[band].push(beat.envelopes[band]);
  }
  last_ = beat;
  rejected_.reset();
}

void BeatHistory::reject(const Candidate& candidate) {
  noise_.push(candidate.strength);
  if (secondsSinceLast(candidate.step) < missedDistance) return;
  if (!rejected_ || candidate.strength > rejected_->strength) rejected_ = candidate;
}

void BeatHistory::interrupt() {
  last_.reset();
  rejected_.reset();
}

void BeatHistory::forget() { *this = BeatHistory(stepsPerSecond_); }

double BeatHistory::medianInterval() const {
  return intervals_.size() == 0 ? usualInterval : intervals_.median();
}

double BeatHistory::lastInterval() const {
  return intervals_.size() == 0 ? usualInterval : intervals_.newest();
}

double BeatHistory::secondsSinceLast(std::int64_t step) const {
  if (last_) return static_cast<double>(step - last_->step) / stepsPerSecond_;
  return std::max(2 * medianInterval(), static_cast<double>(step) / stepsPerSecond_);
}

bool BeatHistory::isLost(double secondsSinceLast) const {
  return secondsSinceLast > lostAfter && secondsSinceLast > lostIntervals * medianInterval();
}

}  // namespace Zephly::vitals
