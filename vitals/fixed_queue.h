// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A queue of bounded length that never allocates: a push into a full queue drops the oldest value.
///
///   FixedQueue<Beat, 64> beats;
///   beats.push(beat);
///   while (!beats.empty()) use(beats.pop());

#include <array>
#include <cstddef>

namespace Zephly::vitals {

template <typename Value, std::size_t capacity>
class FixedQueue {
 public:
  void push(const Value& value) {
    if (size_ == capacity) pop();
    values_[(begin_ + size_) % capacity] = value;
    ++size_;
  }
  /// The oldest; the queue must not be empty.
  Value pop() {
    const Value value = values_[begin_];
    begin_ = (begin_ + 1) % capacity;
    --size_;
    return value;
  }
  void clear() { size_ = 0; }

  bool empty() const { return size_ == 0; }
  bool full() const { return size_ == capacity; }
  std::size_t size() const { return size_; }
  /// 0 is the oldest.
  const Value& operator[](std::size_t index) const { return values_[(begin_ + index) % capacity]; }
  const Value& front() const { return values_[begin_]; }

 private:
  std::array<Value, capacity> values_{};
  std::size_t begin_ = 0;
  std::size_t size_ = 0;
};

}  // namespace Zephly::vitals
