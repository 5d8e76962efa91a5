// SPDX-License-Identifier: MIT
#include <zephly/dsp/median_filter.h>

#include <algorithm>
#include <cmath>

namespace {

int requireMedianWindow(int size) {
  Zephly::refuseNumbers("MedianFilter: window size", size, 0, 2);
  return size;
}

}  // namespace

MedianFilter::MedianFilter(int size_)
    : window(requireMedianWindow(size_)), sorted(size_), size(size_) {}

double MedianFilter::process(double x) {
  Filter::process(x);
  pushSample(x);
  sortWindow();
  return getMedianValue();
}

void MedianFilter::pushSample(double x) {
  window[index] = x;
  ++index;
  if (index >= size) index = 0;
}

void MedianFilter::sortWindow() {
  double* const first = sorted.begin();
  double* const last = std::copy(window.begin(), window.end(), first);
  // NaN is not ordered: with it std::sort could access memory outside the array.
  double* const numbersEnd =
      std::partition(first, last, [](double sample) { return !std::isnan(sample); });
  std::sort(first, numbersEnd);
}

double MedianFilter::getMedianValue() const {
  const int m = size / 2;
  if (size % 2 != 0) return sorted[m + 1];
  return (sorted[m] + sorted[m + 1]) * 0.5;
}
