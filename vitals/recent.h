// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The last few numbers of a series, and their median.

#include <algorithm>
#include <array>
#include <cstddef>

namespace Zephly::vitals {

template <std::size_t Capacity>
class Recent {
 public:
  void push(double value) {
    values_[next_] = value;
    next_ = (next_ + 1) % Capacity;
    size_ = std::min(size_ + 1, Capacity);
    sorted_ = values_;
    std::sort(sorted_.begin(), sorted_.begin() + static_cast<std::ptrdiff_t>(size_));
  }
  void clear() { *this = {}; }
  std::size_t size() const { return size_; }
  /// 0 when there is none; the mean of the two in the middle of an even number.
  double median() const {
    return size_ == 0 ? 0 : (sorted_[(size_ - 1) / 2] + sorted_[size_ / 2]) / 2;
  }
  /// Half the distance between the quartiles; 0 for fewer than four.
  double quartileDeviation() const {
    return size_ < 4 ? 0 : (sorted_[3 * size_ / 4] - sorted_[size_ / 4]) / 2;
  }
  double newest() const { return values_[(next_ + Capacity - 1) % Capacity]; }

 private:
  std::array<double, Capacity> values_{};
  std::array<double, Capacity> sorted_{};
  std::size_t next_ = 0;
  std::size_t size_ = 0;
};

}  // namespace Zephly::vitals
