// SPDX-License-Identifier: MIT
#include <vitals/hrv.h>

#include <vitals/lomb_scargle.h>

#include <algorithm>
#include <cmath>
#include <vector>

namespace Zephly::vitals {

namespace {

using namespace std::chrono_literals;

// Of the spectrum.
constexpr Time spectrumSegment = 5min;
constexpr Time shortestLF = 2min;
constexpr Time shortestHF = 1min;
// A spectrum of less than half of the intervals shows the gaps.
constexpr double leastSpectrumShare = 0.5;

struct Interval {
  Time end{};
  double ms = 0;  // 0: not NN
  bool follows =
      false;  // the interval before is NN too, and ends with the beat that begins this one
};

std::vector<Interval> intervalsOf(std::span<const Beat> beats) {
  std::vector<Interval> intervals;
  if (beats.empty()) return intervals;
  intervals.reserve(beats.size() - 1);
  for (std::size_t i = 1; i < beats.size(); ++i) {
    const Beat& from = beats[i - 1];
    const Beat& to = beats[i];
    Interval interval{.end = to.time};
    // Times, not Beat::rr: a late beat may have been sorted in between.
    if (to.rr && from.kind == BeatClass::normal && to.kind == BeatClass::normal &&
        to.time > from.time) {
      interval.ms = std::chrono::duration<double, std::milli>(to.time - from.time).count();
      interval.follows = !intervals.empty() && intervals.back().ms > 0;
    }
    intervals.push_back(interval);
  }
  return intervals;
}

// Two passes: the mean first, so that the squares are of small numbers.
template <class Values>
double meanOf(const Values& values) {
  double sum = 0;
  for (const double value : values) sum += value;
  return sum / static_cast<double>(values.size());
}
template <class Values>
double deviationOf(const Values& values) {
  const double mean = meanOf(values);
  double squares = 0;
  for (const double value : values) squares += (value - mean) * (value - mean);
  return std::sqrt(squares / static_cast<double>(values.size() - 1));
}

void addTimeDomain(Hrv& hrv, const std::vector<Interval>& intervals) {
  std::vector<double> nn;
  std::vector<double> differences;
  std::vector<double> sums;
  for (std::size_t i = 0; i < intervals.size(); ++i) {
    const Interval& interval = intervals[i];
    if (interval.ms <= 0) continue;
    nn.push_back(interval.ms);
    if (!interval.follows) continue;
    differences.push_back(interval.ms - intervals[i - 1].ms);
    sums.push_back(interval.ms + intervals[i - 1].ms);
  }
  hrv.nn = nn.size();
  if (!intervals.empty()) {
    hrv.share = static_cast<double>(nn.size()) / static_cast<double>(intervals.size());
  }
  if (!nn.empty()) hrv.meanNN = meanOf(nn);
  if (nn.size() >= 2) hrv.sdnn = deviationOf(nn);
  if (differences.empty()) return;
  double squares = 0;
  std::size_t large = 0;
  for (const double difference : differences) {
    squares += difference * difference;
    // Times are in nanoseconds: an exact 50 ms must not exceed 50 ms by rounding.
    if (std::abs(difference) > 50 + 1e-9) ++large;
  }
  const auto count = static_cast<double>(differences.size());
  hrv.rmssd = std::sqrt(squares / count);
  hrv.pnn50 = 100 * static_cast<double>(large) / count;
  if (differences.size() < 2) return;
  hrv.sd1 = deviationOf(differences) / std::sqrt(2.0);
  hrv.sd2 = deviationOf(sums) / std::sqrt(2.0);
}

struct Powers {
  std::optional<double> lf;
  std::optional<double> hf;
};

// Of the intervals of at most five minutes.
Powers powersOf(std::span<const Interval> intervals) {
  std::vector<LombScargle::Point> points;
  double sum = 0;  // ms
  for (const Interval& interval : intervals) {
    if (interval.ms <= 0) continue;
    const Time since = interval.end - intervals.front().end;
    points.push_back({std::chrono::duration<double>(since).count(), interval.ms});
    sum += interval.ms;
  }
  const auto all = static_cast<double>(intervals.size());
  if (points.size() < 3 || static_cast<double>(points.size()) < leastSpectrumShare * all) return {};
  const double seconds = points.back().time - points.front().time;
  // An interval less than the window: its first beat begins the first one.
  const auto isLong = [&](Time shortest) {
    return seconds >= 0.95 * std::chrono::duration<double>(shortest).count();
  };
  Powers powers;
  if (!isLong(shortestHF)) return powers;
  const double spacing = sum / 1000 / static_cast<double>(points.size());
  const LombScargle spectrum(std::move(points), spacing);
  powers.hf = spectrum.bandPower(0.15, 0.4);
  if (isLong(shortestLF)) powers.lf = spectrum.bandPower(0.04, 0.15);
  return powers;
}

void addSpectrum(Hrv& hrv, std::span<const Interval> intervals) {
  double lf = 0;
  double hf = 0;
  int lfSegments = 0;
  int hfSegments = 0;
  while (!intervals.empty()) {
    const Time end = intervals.front().end + spectrumSegment;
    std::size_t count = 0;
    while (count < intervals.size() && intervals[count].end <= end) ++count;
    const Powers powers = powersOf(intervals.first(count));
    if (powers.lf) lf += *powers.lf, ++lfSegments;
    if (powers.hf) hf += *powers.hf, ++hfSegments;
    intervals = intervals.subspan(count);
  }
  if (lfSegments > 0) hrv.lf = lf / lfSegments;
  if (hfSegments > 0) hrv.hf = hf / hfSegments;
  if (hrv.lf && hrv.hf && *hrv.hf > 0) hrv.lfOverHf = *hrv.lf / *hrv.hf;
}

}  // namespace

Hrv hrvOf(std::span<const Beat> beats) {
  Hrv hrv;
  hrv.beats = beats.size();
  const std::vector<Interval> intervals = intervalsOf(beats);
  addTimeDomain(hrv, intervals);
  addSpectrum(hrv, intervals);
  return hrv;
}

std::span<const Beat> lastBeats(std::span<const Beat> beats, Time duration) {
  if (beats.empty()) return beats;
  const Time from = beats.back().time - duration;
  const auto first = std::partition_point(beats.begin(), beats.end(),
                                          [&](const Beat& beat) { return beat.time < from; });
  return beats.subspan(static_cast<std::size_t>(first - beats.begin()));
}

}  // namespace Zephly::vitals
