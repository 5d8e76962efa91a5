#include <zephly/dsp/median_filter.h>

#include <algorithm>
#include <cmath>

namespace {

int requireWindow(int size) {
  refuseNumbers("MedianFilter: window size", size, 0, 2);
  return size;
}

}  // namespace

MedianFilter::MedianFilter(int size) : window_(requireWindow(size)), sorted_(size), size_(size) {}

double MedianFilter::process(double x) {
  Filter::process(x);
  pushSample(x);
  sortWindow();
  return getMedianValue();
}

void MedianFilter::pushSample(double x) {
  window_[index_] = x;
  ++index_;
  if (index_ >= size_) index_ = 0;
}

void MedianFilter::sortWindow() {
  double* const first = sorted_.begin();
  double* const last = std::copy(window_.begin(), window_.end(), first);
  // NaN has no place in an order and would let std::sort run out of the array.
  double* const numbersEnd =
      std::partition(first, last, [](double sample) { return !std::isnan(sample); });
  std::sort(first, numbersEnd);
}

double MedianFilter::getMedianValue() const {
  const int m = size_ / 2;
  if (size_ % 2 != 0) return sorted_[m + 1];
  return (sorted_[m] + sorted_[m + 1]) * 0.5;
}
