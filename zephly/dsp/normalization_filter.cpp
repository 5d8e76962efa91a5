// SPDX-License-Identifier: MIT
#include <zephly/dsp/normalization_filter.h>

#include <algorithm>
#include <cmath>

namespace {

int requireNormalizationWindow(int size) {
  Zephly::refuseNumbers("NormalizationFilter: window size", size, 0, 0);
  return size;
}

}  // namespace

NormalizationFilter::NormalizationFilter(int size_, bool symmetric_)
    : symmetric(symmetric_), window(requireNormalizationWindow(size_)), size(size_) {}

double NormalizationFilter::process(double x) {
  pushSample(x);
  findMinMax();
  const double range = max_ - min_;
  if (range == 0.0) return 0.0;
  return (x - min_) / range;
}

void NormalizationFilter::reset() { std::fill(window.begin(), window.end(), lastInput()); }

void NormalizationFilter::pushSample(double x) {
  window[index] = x;
  ++index;
  if (index >= size) index = 0;
}

void NormalizationFilter::findMinMax() {
  double lo = window[0];
  double hi = window[0];
  for (int i = 1; i < size; ++i) {
    if (window[i] < lo) lo = window[i];
    if (window[i] > hi) hi = window[i];
  }
  if (symmetric) {
    const double magnitude = std::fabs(hi) > std::fabs(lo) ? std::fabs(hi) : std::fabs(lo);
    hi = magnitude;
    lo = -magnitude;
  }
  min_ = lo;
  max_ = hi;
}
