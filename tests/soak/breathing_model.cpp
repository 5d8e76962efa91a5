// SPDX-License-Identifier: MIT
#include <tests/soak/breathing_model.h>

#include <algorithm>
#include <cmath>

namespace soak {

namespace {

constexpr std::size_t medianWindow = 300;
constexpr std::uint64_t magnitudeWindow = 5000;

}  // namespace

SlidingMedian::SlidingMedian() : window_(medianWindow, 0.0), sorted_(medianWindow, 0.0) {
  sorted_.reserve(medianWindow + 1);
}

double SlidingMedian::next(double sample) {
  const double leaving = window_[oldest_];
  window_[oldest_] = sample;
  oldest_ = (oldest_ + 1) % medianWindow;
  sorted_.erase(std::lower_bound(sorted_.begin(), sorted_.end(), leaving));
  sorted_.insert(std::upper_bound(sorted_.begin(), sorted_.end(), sample), sample);
  return (sorted_[medianWindow / 2] + sorted_[medianWindow / 2 + 1]) * 0.5;
}

SlidingMagnitude::SlidingMagnitude() : ring_(magnitudeWindow + 1) {}

double SlidingMagnitude::next(double sample) {
  const double magnitude = std::fabs(sample);
  while (candidates_ > 0 && candidate(candidates_ - 1).magnitude <= magnitude) --candidates_;
  candidate(candidates_++) = {count_, magnitude};
  ++count_;
  if (candidate(0).number + magnitudeWindow < count_) {
    first_ = (first_ + 1) % ring_.size();
    --candidates_;
  }
  return candidate(0).magnitude;
}

bool BreathingModel::contact(float sample) {
  const bool answer = detector_.process(sample);
  if (highPassTimer_.shouldResetRespiration(answer)) highPass_.reset();
  if (magnitudeTimer_.shouldResetRespiration(answer)) magnitude_.clear();
  return answer;
}

float BreathingModel::breath(float sample) {
  const double quiet = notch2_.process(notch1_.process(static_cast<double>(sample)));
  const double slow = highPass_.process(lowPass_.process(median_.next(quiet)));
  const double largest = magnitude_.next(slow);
  const double range = largest - -largest;
  return range == 0.0 ? 0.0F : static_cast<float>((slow - -largest) / range);
}

}  // namespace soak
