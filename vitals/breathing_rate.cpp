// SPDX-License-Identifier: MIT
#include <vitals/breathing_rate.h>

#include <algorithm>
#include <chrono>
#include <cmath>

namespace Zephly::vitals {

namespace {

using namespace std::chrono_literals;

constexpr Time rateWindow = 30s;
constexpr double shortestPause = 10;  // s, from one end of inspiration to the next
constexpr double longestPause = 18;
constexpr double pauseShare = 1.6;  // of a usual breath
constexpr std::size_t usualBreaths = 8;
constexpr double leastSignalQuality = 0.35;
constexpr double leastRateQuality = 0.3;
constexpr double evenDurations = 0.25;                             // standard deviation over mean
constexpr std::array<double, 3> qualityOfFew = {0.55, 0.75, 0.9};  // of one, two, three breaths

double secondsOf(Time time) { return std::chrono::duration<double>(time).count(); }

}  // namespace

double BreathingRate::longestWait() const {
  std::array<double, usualBreaths> durations{};
  const std::size_t used = std::min(count_, usualBreaths);
  if (used == 0) return shortestPause;
  for (std::size_t i = 0; i < used; ++i)
    durations[i] = *breaths_[(next_ + mostBreaths - 1 - i) % mostBreaths].duration;
  const auto middle = durations.begin() + static_cast<std::ptrdiff_t>(used / 2);
  std::nth_element(durations.begin(), middle,
                   durations.begin() + static_cast<std::ptrdiff_t>(used));
  return std::clamp(pauseShare * *middle, shortestPause, longestPause);
}

void BreathingRate::add(const Breath& breath) {
  last_ = breath.time;
  if (!breath.duration) return;
  first_ = false;
  const double duration = *breath.duration;
  if (duration > longestWait()) {
    const bool alike = std::abs(duration - pause_) < evenDurations * duration;
    count_ = next_ = 0;
    pause_ = duration;
    // Two in a row of about the same length are slow breaths.
    if (!alike || duration > longestPause) return;
  }
  pause_ = 0;
  breaths_[next_] = breath;
  next_ = (next_ + 1) % mostBreaths;
  count_ = std::min(count_ + 1, mostBreaths);
}

void BreathingRate::add(const BreathCycle& cycle) {
  if (first_ && !cycle_ && cycle.duration <= shortestPause) cycle_ = cycle;
}

void BreathingRate::interrupt() {
  last_.reset();
  cycle_.reset();
  first_ = true;
}

std::optional<BreathingRate::Rate> BreathingRate::at(Time now, double signalQuality) const {
  if (signalQuality < leastSignalQuality || !last_ || secondsOf(now - *last_) > longestWait())
    return std::nullopt;
  std::size_t used = 0;
  double sum = 0;
  double squares = 0;
  double quality = 0;
  for (std::size_t i = 0; i < count_; ++i) {
    const Breath& breath = breaths_[i];
    if (now - breath.time > rateWindow) continue;
    ++used;
    sum += *breath.duration;
    squares += *breath.duration * *breath.duration;
    quality += breath.quality;
  }
  if (used == 0) {
    if (!first_ || !cycle_ || now - cycle_->time > rateWindow) return std::nullopt;
    const double alone = cycle_->quality * qualityOfFew[0];
    if (alone < leastRateQuality) return std::nullopt;
    return Rate{60 / cycle_->duration, alone};
  }
  const auto number = static_cast<double>(used);
  const double mean = sum / number;
  const double deviation = std::sqrt(std::max(0.0, squares / number - mean * mean));
  quality /= number;
  if (used <= qualityOfFew.size()) quality *= qualityOfFew[used - 1];
  const double unevenness = deviation / mean;
  if (unevenness > evenDurations) quality *= evenDurations / unevenness;
  if (quality < leastRateQuality) return std::nullopt;
  return Rate{60 / mean, quality};
}

}  // namespace Zephly::vitals
