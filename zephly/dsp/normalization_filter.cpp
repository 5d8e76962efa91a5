#include <zephly/dsp/normalization_filter.h>

#include <algorithm>
#include <cmath>

namespace {

int requireWindow(int size) {
  refuseNumbers("NormalizationFilter: window size", size, 0, 0);
  return size;
}

}  // namespace

NormalizationFilter::NormalizationFilter(int size, bool symmetric)
    : symmetric_(symmetric), window_(requireWindow(size)), size_(size) {}

double NormalizationFilter::process(double x) {
  pushSample(x);
  findMinMax();
  const double range = max_ - min_;
  if (range == 0.0) return 0.0;
  return (x - min_) / range;
}

void NormalizationFilter::reset() { std::fill(window_.begin(), window_.end(), lastInput()); }

void NormalizationFilter::pushSample(double x) {
  window_[index_] = x;
  ++index_;
  if (index_ >= size_) index_ = 0;
}

void NormalizationFilter::findMinMax() {
  double lo = window_[0];
  double hi = window_[0];
  for (int i = 1; i < size_; ++i) {
    if (window_[i] < lo) lo = window_[i];
    if (window_[i] > hi) hi = window_[i];
  }
  if (symmetric_) {
    const double magnitude = std::fabs(hi) > std::fabs(lo) ? std::fabs(hi) : std::fabs(lo);
    hi = magnitude;
    lo = -magnitude;
  }
  min_ = lo;
  max_ = hi;
}
