// SPDX-License-Identifier: MIT
#include <vitals/respiration_filter.h>

#include <algorithm>
#include <cmath>

namespace Zephly::vitals {

namespace {

constexpr double steepest = 8;           // usual swings a second
constexpr double roughnessTime = 2;      // s
constexpr double disturbanceTime = 0.7;  // s: forgotten to 5 % after 2 s
constexpr double firstMean = 0.6;        // s, of the low-pass
constexpr double secondMean = 0.4;

int rounded(double value) { return static_cast<int>(value + 0.5); }

}  // namespace

RespirationFilter::RespirationFilter(double samplesPerSecond)
    : samplesPerPoint_(std::max(1, rounded(samplesPerSecond / 10))),
      pointsPerSecond_(samplesPerSecond / samplesPerPoint_) {
  const int first = rounded(firstMean * pointsPerSecond_);
  int second = rounded(secondMean * pointsPerSecond_);
  // An odd length has a point in its middle, and with it the time of the result.
  if ((first + second) % 2 != 0) ++second;
  length_ = static_cast<std::size_t>(first + second - 1);
  for (int i = 0; i < first; ++i)
    for (int j = 0; j < second; ++j)
      weights_[static_cast<std::size_t>(i + j)] += 1.0 / (first * second);
}

void RespirationFilter::restart() {
  begun_ = false;
  count_ = 0;
  sum_ = 0;
  timeSum_ = 0;
  equalSamples_ = 0;
  step_ = 0;
  power_ = 0;
  point_ = {};
}

bool RespirationFilter::push(Time time, float value, double usualSwing) {
  equalSamples_ = value == lastSample_ ? equalSamples_ + 1 : 0;
  lastSample_ = value;
  if (count_ == 0) firstTime_ = time;
  timeSum_ += (time - firstTime_).count();
  sum_ += static_cast<double>(value);
  if (++count_ < samplesPerPoint_) return false;

  const Time middle = firstTime_ + Time(timeSum_ / count_);
  const double mean = sum_ / count_;
  count_ = 0;
  sum_ = 0;
  timeSum_ = 0;
  add({middle, limited(mean, usualSwing)});
  point_.flat = equalSamples_ >= pointsPerSecond_ * samplesPerPoint_;
  return true;
}

double RespirationFilter::limited(double value, double usualSwing) {
  if (!begun_) lastMean_ = value;
  const double change = value - step_ - lastMean_;
  const double most = usualSwing * steepest / pointsPerSecond_;
  double allowed = change;
  if (most > 0) allowed = std::clamp(change, -most, most);
  step_ += change - allowed;
  const double limitedNow = allowed == change ? 0 : 1;
  point_.disturbance += (limitedNow - point_.disturbance) / (disturbanceTime * pointsPerSecond_);
  lastMean_ += allowed;
  return lastMean_;
}

void RespirationFilter::add(const Mean& mean) {
  if (begun_) {
    std::copy(history_.begin() + 1, history_.begin() + static_cast<std::ptrdiff_t>(length_),
              history_.begin());
    history_[length_ - 1] = mean;
  } else {
    // As if the signal had been level before.
    history_.fill(mean);
    begun_ = true;
  }
  double value = 0;
  for (std::size_t i = 0; i < length_; ++i) value += weights_[i] * history_[i].value;
  const Mean& middle = history_[length_ / 2];
  const double removed = middle.value - value;
  power_ += (removed * removed - power_) / (roughnessTime * pointsPerSecond_);
  point_.time = middle.time;
  point_.value = value;
  point_.roughness = std::sqrt(power_);
}

}  // namespace Zephly::vitals
