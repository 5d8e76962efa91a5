// SPDX-License-Identifier: MIT
#include <vitals/heart_rate.h>

#include <algorithm>
#include <array>

namespace Zephly::vitals {

namespace {

// Of an even number the mean of the two in the middle.
double medianOf(double* begin, std::size_t count) {
  std::sort(begin, begin + count);
  const double upper = begin[count / 2];
  return count % 2 == 1 ? upper : (begin[count / 2 - 1] + upper) / 2;
}

}  // namespace

void HeartRate::take(const Beat& beat) {
  if (beat.late && !beats_.empty() && beat.time <= beats_[beats_.size() - 1].time) return;
  const bool real = beat.kind != BeatClass::artefact;
  const bool interval = real && usable_ && beat.rr && *beat.rr > 0;
  usable_ = real;
  beats_.push({beat.time, interval ? *beat.rr : 0, real ? beat.quality : 0});
}

void HeartRate::clear() {
  beats_.clear();
  usable_ = false;
}

HeartRate::Value HeartRate::at(Time now) const {
  std::array<double, 64> intervals{};
  std::size_t count = 0;
  double covered = 0;  // s
  double quality = 0;
  std::size_t beats = 0;
  Time first{};
  Time last{};
  for (std::size_t i = 0; i < beats_.size(); ++i) {
    const Taken& beat = beats_[i];
    if (beat.time > now || beat.time <= now - window) continue;
    if (beats == 0) first = beat.time;
    last = beat.time;
    ++beats;
    quality += beat.quality;
    if (beat.rr > 0) {
      intervals[count++] = beat.rr;
      // The first interval of the window began before it.
      if (beats > 1) covered += beat.rr;
    }
  }
  if (count < fewest || now - last > silence) return {};
  const double between = std::chrono::duration<double>(last - first).count();
  const double share = between > 0 ? std::min(1.0, covered / between) : 0.0;
  const Value value{60 / medianOf(intervals.data(), count),
                    quality / static_cast<double>(beats) * share};
  if (!(value.quality >= lowestQuality)) return {std::nullopt, value.quality};
  return value;
}

}  // namespace Zephly::vitals
