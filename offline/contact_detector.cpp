// SPDX-License-Identifier: MIT
#include <offline/contact_detector.h>

#include <algorithm>
#include <cmath>

namespace Zephly::offline {

namespace {

constexpr float leastSpan = 0.01F;

}  // namespace

std::size_t ContactDetector::Extreme::back() const {
  const std::size_t place = front + held - 1;
  return place < size ? place : place - size;
}

template <class IsBeaten>
void ContactDetector::Extreme::push(float value, std::uint64_t count, const IsBeaten& isBeaten) {
  while (held > 0 && isBeaten(queue[back()].value)) --held;
  ++held;
  queue[back()] = {value, count};
}

void ContactDetector::Extreme::drop(std::uint64_t count) {
  if (held == 0 || queue[front].count + size > count) return;
  front = next(front);
  --held;
}

bool ContactDetector::step(float sample) {
  window_[place_] = sample;
  place_ = next(place_);
  ++count_;
  largest_.drop(count_);
  smallest_.drop(count_);
  if (!std::isnan(sample)) {
    largest_.push(sample, count_, [=](float held) { return held <= sample; });
    smallest_.push(sample, count_, [=](float held) { return held >= sample; });
  }
  // The kit begins its search with the oldest sample: if that is NaN, so are both extremes.
  const float oldest = window_[count_ > size ? place_ : 0];
  if (std::isnan(oldest)) return false;
  return largest_.queue[largest_.front].value - smallest_.queue[smallest_.front].value > leastSpan;
}

}  // namespace Zephly::offline
