// SPDX-License-Identifier: MIT
#include <offline/running_median.h>

#include <zephly/dsp/median_filter.h>
#include <offline/vector_forms.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace Zephly::offline {

namespace {

constexpr std::size_t middle = RunningMedian::size / 2;
// The vector form sorts as much for one sample as for 2,900.
constexpr std::size_t leastMediansInVectors = 300;
constexpr std::size_t mostMediansInVectors = 2'900;

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

struct RunningMedian::Block {
  std::array<double, size - 1 + mostMediansInVectors> samples;
};

void RunningMedian::process(std::span<const double> in, std::span<double> out) {
  if (in.size() < leastMediansInVectors) {
    for (std::size_t i = 0; i < in.size(); ++i) out[i] = step(in[i]);
    return;
  }
  Block block{};
  for (std::size_t done = 0; done < in.size();) {
    const std::size_t length = std::min(in.size() - done, mostMediansInVectors);
    processBlock(block, in.subspan(done, length), out.subspan(done, length));
    done += length;
  }
}

void RunningMedian::processBlock(Block& block, std::span<const double> in, std::span<double> out) {
  const VectorForms* const forms = in.size() < leastMediansInVectors ? nullptr : vectorForms();
  const auto begin = block.samples.begin();
  if (forms != nullptr) {
    // All of the window but the oldest sample, then the block.
    const auto afterOldest = window_.begin() + static_cast<std::ptrdiff_t>(index_) + 1;
    const auto newest = std::copy(afterOldest, window_.end(), begin);
    std::copy(window_.begin(), afterOldest - 1, newest);
    std::copy(in.begin(), in.end(), begin + size - 1);
  }
  if (forms == nullptr || !forms->ordinary(block.samples.data(), size - 1 + in.size())) {
    for (std::size_t i = 0; i < in.size(); ++i) out[i] = step(in[i]);
    return;
  }
  forms->medians(block.samples.data(), in.size(), out.data());
  // in may be out.
  const auto last = begin + static_cast<std::ptrdiff_t>(size - 1 + in.size());
  index_ = (index_ + in.size()) % size;
  std::rotate_copy(last - size, last - static_cast<std::ptrdiff_t>(index_), last, window_.begin());
  isSorted_ = false;
}

// The samples of the window are ordinary ones.
void RunningMedian::sortWindow() {
  sorted_ = window_;
  std::sort(sorted_.begin(), sorted_.end());
  numbers_ = size;
  negativeZeros_ = 0;
  isSorted_ = true;
}

double RunningMedian::step(double x) {
  if (!isSorted_) sortWindow();
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
