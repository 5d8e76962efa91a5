#include <tools/export/clock_fit.h>

#include <algorithm>
#include <cmath>

namespace Zephly::exporting {

namespace {

// A break shorter than this many frames is none: no frame that was lost leaves so small a hole, and
// no line is known better.
constexpr double smallestGap = 1.5;

}  // namespace

void LowerHull::add(Point point) {
  sum_ += point.x;
  ++count_;
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
  // The mean lies left of the last point and not left of the first.
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

double ClockFit::slope(const Stretch& stretch) const {
  return std::clamp(stretch.hull.bestSlope(), rate_.period() * (1 - largestDrift),
                    rate_.period() * (1 + largestDrift));
}

double ClockFit::commonPeriod() const {
  const auto length = [](const Stretch& stretch) { return stretch.last - stretch.first; };
  const auto longest =
      std::max_element(stretches_.begin(), stretches_.end(),
                       [&](const Stretch& a, const Stretch& b) { return length(a) < length(b); });
  if (longest == stretches_.end() || length(*longest) < shortestForRate) return rate_.period();
  return slope(*longest);
}

Segment ClockFit::place(const Stretch& stretch, double period, Nanoseconds before) const {
  const Nanoseconds fitted = stretch.first + Nanoseconds(std::llround(stretch.hull.offset(period)));
  // A strap sends what it measures: nothing is older than the link, but for the frame in the
  // making.
  const Nanoseconds youngest = stretch.linkBegin - Nanoseconds(std::llround(rate_.framePeriod()));
  const Nanoseconds begin = std::max({before, youngest, fitted});
  const auto hole = static_cast<double>((begin - before).count());
  if (hole < smallestGap * rate_.framePeriod()) {
    return {.samples = stretch.samples, .begin = before, .period = period, .gap = {}};
  }
  return {.samples = stretch.samples, .begin = begin, .period = period, .gap = begin - before};
}

StreamClock ClockFit::finish() const {
  StreamClock clock{.rate = rate_};
  const double common = commonPeriod();
  for (const Stretch& stretch : stretches_) {
    const bool enough = stretch.last - stretch.first >= shortestForRate;
    clock.segments.push_back(place(stretch, enough ? slope(stretch) : common, clock.end()));
  }
  return clock;
}

}  // namespace Zephly::exporting
