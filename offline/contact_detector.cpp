// SPDX-License-Identifier: MIT
#include <offline/contact_detector.h>

#include <offline/vector_forms.h>

#include <algorithm>
#include <cmath>

namespace Zephly::offline {

namespace {

constexpr float leastSpan = 0.01F;
// The window is built again after each block.
constexpr std::size_t leastContactsInVectors = 300;
constexpr std::size_t mostContactsInVectors = 8'192;

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

void ContactDetector::process(std::span<const float> in, std::span<std::uint8_t> contact) {
  for (std::size_t done = 0; done < in.size();) {
    const std::size_t length = std::min(in.size() - done, mostContactsInVectors);
    processBlock(in.subspan(done, length), contact.subspan(done, length));
    done += length;
  }
}

void ContactDetector::processBlock(std::span<const float> in, std::span<std::uint8_t> contact) {
  const VectorForms* const forms =
      in.size() < leastContactsInVectors || count_ < size ? nullptr : vectorForms();
  std::array<float, size - 1 + mostContactsInVectors> samples{};
  const std::size_t count = size - 1 + in.size();
  if (forms != nullptr) {
    // All of the window but the oldest sample, then the block.
    const auto oldest = window_.begin() + static_cast<std::ptrdiff_t>(place_);
    auto end = std::copy(oldest + 1, window_.end(), samples.begin());
    end = std::copy(window_.begin(), oldest, end);
    std::copy(in.begin(), in.end(), end);
  }
  if (forms == nullptr || !forms->finiteFloats(samples.data(), count)) {
    for (std::size_t i = 0; i < in.size(); ++i) contact[i] = step(in[i]) ? 1 : 0;
    return;
  }
  forms->contacts(samples.data(), in.size(), contact.data());
  // The last window again, sample by sample. After it nothing older is left in the queues.
  for (std::size_t i = count - size; i < count; ++i) step(samples[i]);
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
