// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The last values of a series, found by their number in it.
///
///   Ring<float> ring(100);     // holds at least the last 100
///   ring.push(value);          // number 0, 1, 2, ...
///   ring[ring.size() - 1];     // the newest
///
/// Each value is stored twice, so that any run of them lies in one piece of memory.

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Zephly::vitals {

template <typename Value>
class Ring {
 public:
  explicit Ring(std::size_t capacity) {
    while (capacity_ < capacity) capacity_ *= 2;
    values_.resize(2 * capacity_);
  }

  void push(const Value& value) {
    const std::size_t at = static_cast<std::size_t>(size_) & (capacity_ - 1);
    values_[at] = value;
    values_[at + capacity_] = value;
    ++size_;
  }
  /// Begins anew: the next value has number 0, and all before it are `value`.
  void restart(const Value& value) {
    for (Value& each : values_) each = value;
    size_ = 0;
  }

  std::int64_t size() const { return size_; }
  std::int64_t capacity() const { return static_cast<std::int64_t>(capacity_); }
  const Value& operator[](std::int64_t number) const { return *at(number); }
  /// Half of the capacity may be read before and behind it.
  const Value* at(std::int64_t number) const {
    return values_.data() + (static_cast<std::size_t>(number) & (capacity_ - 1)) + offset(number);
  }

 private:
  // Of the two copies the one with more values on the side of the older ones, when there are any.
  std::size_t offset(std::int64_t number) const {
    return (static_cast<std::size_t>(number) & (capacity_ - 1)) < capacity_ / 2 ? capacity_ : 0;
  }

  std::size_t capacity_ = 1;
  std::int64_t size_ = 0;
  std::vector<Value> values_;
};

}  // namespace Zephly::vitals
