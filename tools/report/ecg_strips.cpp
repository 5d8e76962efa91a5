// SPDX-License-Identifier: MIT
#include <tools/report/ecg_strips.h>

#include <algorithm>

namespace Zephly::reporting {

namespace {

using namespace std::chrono_literals;

constexpr double cleanQuality = 0.8;  // of the ECG
constexpr double sureQuality = 0.8;   // of the heart rate
// A longer step between two samples is a gap.
constexpr vitals::Time longestStep = 50ms;
// Seconds are reported up to 6 s after their samples.
constexpr vitals::Time kept = EcgStrips::length + 10s;
constexpr vitals::Time aSecond = 1s;

bool isClean(const vitals::Second& second) {
  return second.contact.value_or(false) && second.ecgQuality >= cleanQuality && second.heartRate &&
         second.heartRateQuality >= sureQuality;
}

}  // namespace

void EcgStrips::sample(vitals::Time time, float value) {
  if (!recent_.empty() && time - recent_.back().first > longestStep) recent_.clear();
  recent_.emplace_back(time, value);
  while (time - recent_.front().first > kept) recent_.pop_front();
}

void EcgStrips::second(const vitals::Second& second) {
  const bool next = second.time - last_ == aSecond;
  last_ = second.time;
  clean_ = isClean(second) ? (next ? clean_ + 1 : 1) : 0;
  if (clean_ < length.count()) return;
  const double rate = *second.heartRate;
  const bool isLowest = !lowest_ || rate < *lowest_->second.heartRate;
  const bool isHighest = !highest_ || rate > *highest_->second.heartRate;
  if (first_ && !isLowest && !isHighest) return;
  const std::optional<EcgStrip> strip = cut(second);
  if (!strip) return;
  const auto keep = [&](std::optional<EcgStrip>& place, const char* reason) {
    place = strip;
    place->reason = reason;
  };
  if (!first_) keep(first_, "clean");
  if (isLowest) keep(lowest_, "lowest");
  if (isHighest) keep(highest_, "highest");
}

std::optional<EcgStrip> EcgStrips::cut(const vitals::Second& second) const {
  const auto before = [](const std::pair<vitals::Time, float>& sample, vitals::Time time) {
    return sample.first < time;
  };
  const vitals::Time begin = second.time - length;
  const auto from = std::lower_bound(recent_.begin(), recent_.end(), begin, before);
  const auto to = std::lower_bound(from, recent_.end(), second.time, before);
  if (from == recent_.begin() || to - from < 2) return std::nullopt;
  EcgStrip strip{
      .reason = {}, .from = from->first, .to = (to - 1)->first, .second = second, .values = {}};
  std::transform(from, to, std::back_inserter(strip.values),
                 [](const auto& sample) { return sample.second; });
  return strip;
}

std::vector<EcgStrip> EcgStrips::all() const {
  std::vector<EcgStrip> strips;
  for (const auto* strip : {&first_, &lowest_, &highest_}) {
    if (!*strip) continue;
    const bool known = std::any_of(strips.begin(), strips.end(), [&](const EcgStrip& other) {
      return other.from == (*strip)->from;
    });
    if (!known) strips.push_back(**strip);
  }
  std::sort(strips.begin(), strips.end(),
            [](const EcgStrip& a, const EcgStrip& b) { return a.from < b.from; });
  return strips;
}

}  // namespace Zephly::reporting
