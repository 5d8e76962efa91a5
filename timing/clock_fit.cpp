// SPDX-License-Identifier: MIT
#include <timing/clock_fit.h>

#include <algorithm>
#include <cmath>

namespace Zephly::timing {

namespace {

// A break shorter than this number of frames is not a gap: a lost frame leaves at least one frame
// period, and the error of the fitted line is up to half a period.
constexpr double smallestGap = 1.5;

// Frames were lost in a silence if the delay after it has grown by this fraction of the silence.
constexpr double smallestLoss = 0.1;

}  // namespace

void LowerHull::add(Point point) {
  sum_ += point.x;
  ++count_;
  extend(point);
}

void LowerHull::add(const LowerHull& other, Point by) {
  sum_ += other.sum_ + by.x * static_cast<double>(other.count_);
  count_ += other.count_;
  for (const Point& point : other.hull_) extend({.x = point.x + by.x, .y = point.y + by.y});
}

void LowerHull::extend(Point point) {
  // The last point stays only where the path turns upwards at it (A. M. Andrew's monotone chain).
  while (hull_.size() >= 2) {
    const Point& before = hull_[hull_.size() - 2];
    const Point& last = hull_.back();
    const double turn =
        (last.x - before.x) * (point.y - last.y) - (last.y - before.y) * (point.x - last.x);
    if (turn > 0) break;
    hull_.pop_back();
  }
  hull_.push_back(point);
}

double LowerHull::bestSlope() const {
  const double mean = sum_ / static_cast<double>(count_);
  // The hull edge above which the mean of x lies. The mean is at or right of the first point; with
  // equal points it is the last one, hence the step back.
  auto right = std::upper_bound(hull_.begin(), hull_.end(), mean,
                                [](double x, const Point& point) { return x < point.x; });
  if (right == hull_.end()) --right;
  const auto left = std::prev(right);
  return (right->y - left->y) / (right->x - left->x);
}

double LowerHull::offset(double slope) const {
  double lowest = hull_.front().y - slope * hull_.front().x;
  for (const Point& point : hull_) lowest = std::min(lowest, point.y - slope * point.x);
  return lowest;
}

void ClockFit::beginLink(Nanoseconds time) {
  linkBegin_ = time;
  linkIsNew_ = true;
}

void ClockFit::frame(Nanoseconds arrival) {
  if (linkIsNew_ || arrival - stretches_.back().last >= rate_.silence) {
    stretches_.push_back({.linkBegin = linkBegin_, .first = arrival, .last = arrival, .hull = {}});
    linkIsNew_ = false;
  }
  Stretch& stretch = stretches_.back();
  stretch.last = arrival;
  stretch.samples += rate_.samplesPerFrame;
  samples_ += rate_.samplesPerFrame;
  // A frame is complete with its last sample.
  stretch.hull.add({.x = static_cast<double>(stretch.samples - 1),
                    .y = static_cast<double>((arrival - stretch.first).count())});
}

bool ClockFit::continues(const Stretch& before, const Stretch& after) const {
  if (before.linkBegin != after.linkBegin) return false;
  // At the nominal rate both stretches have a smallest delay; the difference is the missing time.
  const double period = rate_.period();
  const double expected = before.hull.offset(period) + static_cast<double>(before.samples) * period;
  const double found =
      static_cast<double>((after.first - before.first).count()) + after.hull.offset(period);
  const auto silence = static_cast<double>((after.first - before.last).count());
  return found - expected < std::max(smallestGap * rate_.framePeriod(), smallestLoss * silence);
}

std::vector<ClockFit::Stretch> ClockFit::joined() const {
  std::vector<Stretch> result;
  for (std::size_t i = 0; i < stretches_.size(); ++i) {
    const Stretch& stretch = stretches_[i];
    if (i == 0 || !continues(stretches_[i - 1], stretch)) {
      result.push_back(stretch);
      continue;
    }
    Stretch& whole = result.back();
    whole.hull.add(stretch.hull, {.x = static_cast<double>(whole.samples),
                                  .y = static_cast<double>((stretch.first - whole.first).count())});
    whole.samples += stretch.samples;
    whole.last = stretch.last;
  }
  return result;
}

double ClockFit::slope(const Stretch& stretch) const {
  return std::clamp(stretch.hull.bestSlope(), rate_.period() * (1 - largestDrift),
                    rate_.period() * (1 + largestDrift));
}

double ClockFit::commonPeriod(const std::vector<Stretch>& stretches) const {
  const auto longest =
      std::max_element(stretches.begin(), stretches.end(),
                       [](const Stretch& a, const Stretch& b) { return a.length() < b.length(); });
  if (longest == stretches.end() || longest->length() < shortestForRate) return rate_.period();
  return slope(*longest);
}

Segment ClockFit::place(const Stretch& stretch, double period, Nanoseconds before) const {
  const Nanoseconds fitted = stretch.first + Nanoseconds(std::llround(stretch.hull.offset(period)));
  // The strap does not buffer samples: none is older than the link, except for those of the frame
  // that was being filled when the link was established.
  const Nanoseconds youngest = stretch.linkBegin - Nanoseconds(std::llround(rate_.framePeriod()));
  const Nanoseconds begin = std::max({before, youngest, fitted});
  const auto hole = static_cast<double>((begin - before).count());
  if (hole < smallestGap * rate_.framePeriod()) {
    // No gap: continues where the previous segment ended. The first segment has none before it.
    const Nanoseconds joint = before > Nanoseconds{} ? before : begin;
    return {.samples = stretch.samples, .begin = joint, .period = period, .gap = {}};
  }
  return {.samples = stretch.samples, .begin = begin, .period = period, .gap = begin - before};
}

StreamClock ClockFit::finish() const {
  StreamClock clock{.rate = rate_};
  const std::vector<Stretch> stretches = joined();
  const double common = commonPeriod(stretches);
  for (const Stretch& stretch : stretches) {
    const double period = stretch.length() >= shortestForRate ? slope(stretch) : common;
    clock.segments.push_back(place(stretch, period, clock.end()));
  }
  return clock;
}

}  // namespace Zephly::timing
