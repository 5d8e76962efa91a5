// SPDX-License-Identifier: MIT
#include <offline/running_median.h>

#include <zephly/dsp/median_filter.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace Zephly::offline {

namespace {

constexpr std::size_t middle = RunningMedian::size / 2;

bool isNegativeZero(double x) { return x == 0.0 && std::signbit(x); }

// The first place of the `count` sorted numbers that is not below x. Without branches that depend
// on the signal, which no processor would predict.
std::size_t placeOf(const double* sorted, std::size_t count, double x) {
  const double* first = sorted;
  while (count > 1) {
    const std::size_t half = count / 2;
    first += first[half - 1] < x ? half : 0;
    count -= half;
  }
  return static_cast<std::size_t>(first - sorted) + (count == 1 && *first < x ? 1 : 0);
}

}  // namespace

double RunningMedian::step(double x) {
  const double old = window_[index_];
  window_[index_] = x;
  index_ = index_ + 1 < size ? index_ + 1 : 0;
  if (isNegativeZero(old)) --negativeZeros_;
  if (isNegativeZero(x)) ++negativeZeros_;
  if (!std::isnan(old) && !std::isnan(x)) {
    replace(old, x);
  } else {
    if (!std::isnan(old)) remove(old);
    if (!std::isnan(x)) insert(x);
  }
  return median();
}

void RunningMedian::replace(double old, double x) {
  double* const sorted = sorted_.data();
  const std::size_t from = placeOf(sorted, numbers_, old);
  const std::size_t to = placeOf(sorted, numbers_, x);
  if (to > from) {
    std::copy(sorted + from + 1, sorted + to, sorted + from);
    sorted[to - 1] = x;
  } else {
    std::copy_backward(sorted + to, sorted + from, sorted + from + 1);
    sorted[to] = x;
  }
}

void RunningMedian::remove(double old) {
  double* const place = sorted_.data() + placeOf(sorted_.data(), numbers_, old);
  std::copy(place + 1, sorted_.data() + numbers_, place);
  --numbers_;
}

void RunningMedian::insert(double x) {
  double* const place = sorted_.data() + placeOf(sorted_.data(), numbers_, x);
  std::copy_backward(place, sorted_.data() + numbers_, sorted_.data() + numbers_ + 1);
  *place = x;
  ++numbers_;
}

double RunningMedian::median() const {
  // NaN is at the end of the kit's order.
  if (numbers_ < middle + 2) return std::numeric_limits<double>::quiet_NaN();
  const double lower = sorted_[middle];
  const double upper = sorted_[middle + 1];
  if (negativeZeros_ > 0 && lower == 0.0 && upper == 0.0) return medianAsTheKitSorts();
  return (lower + upper) * 0.5;
}

double RunningMedian::medianAsTheKitSorts() const {
  MedianFilter kit(static_cast<int>(size));
  for (const double sample : window_) kit.pushSample(sample);
  kit.sortWindow();
  return kit.getMedianValue();
}

}  // namespace Zephly::offline
