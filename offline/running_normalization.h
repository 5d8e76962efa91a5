// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The normalisation at the end of both chains, without a search of the whole window.
///
///   RunningNormalization<1000> normalization;
///   const double level = normalization.step(x);
///
/// The bits are those of NormalizationFilter(size, true). Its range is symmetric, so only the
/// largest magnitude in the window matters. A queue holds the magnitudes that can still become the
/// largest, in falling order: a new one removes those that are not above it from the end, and the
/// first one leaves when it is as old as the window (D. Lemire, "Streaming maximum-minimum filter
/// using no more than three comparisons per element", 2006).
///
/// A NaN does not take part, so it counts as 0, except in the first place of the kit's circular
/// window: there it makes every result NaN until it is overwritten. So the place in that window is
/// a part of the state.

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>

namespace Zephly::offline {

/// Over the latest `size` samples, which are 0.0 at first.
template <std::size_t size>
class RunningNormalization {
 public:
  double step(double x) {
    const bool first = place_ == 0;
    place_ = place_ + 1 < size ? place_ + 1 : 0;
    if (first) firstIsNan_ = std::isnan(x);
    ++count_;
    if (held_ > 0 && queue_[front_].count + size <= count_) popFront();
    if (!std::isnan(x)) push(std::fabs(x));
    if (firstIsNan_) return std::numeric_limits<double>::quiet_NaN();
    const double magnitude = held_ > 0 ? queue_[front_].magnitude : 0.0;
    const double range = magnitude + magnitude;
    if (range == 0.0) return 0.0;
    return (x + magnitude) / range;
  }

  /// As NormalizationFilter::reset(): the window is full of 0.0, the place in it stays.
  void clear() {
    held_ = 0;
    firstIsNan_ = false;
  }

 private:
  struct Entry {
    double magnitude;
    std::uint64_t count;  // of the sample
  };

  void popFront() {
    front_ = next(front_);
    --held_;
  }
  void push(double magnitude) {
    while (held_ > 0 && queue_[back()].magnitude <= magnitude) --held_;
    ++held_;
    queue_[back()] = {magnitude, count_};
  }
  std::size_t back() const {
    const std::size_t index = front_ + held_ - 1;
    return index < size ? index : index - size;
  }
  static std::size_t next(std::size_t index) { return index + 1 < size ? index + 1 : 0; }

  std::array<Entry, size> queue_{};  // circular
  std::size_t front_ = 0;
  std::size_t held_ = 0;
  std::uint64_t count_ = 0;
  std::size_t place_ = 0;  // where the kit writes the next sample
  bool firstIsNan_ = false;
};

}  // namespace Zephly::offline
