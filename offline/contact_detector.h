// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// LeadoffDetector without a search of its window.
///
///   ContactDetector detector;
///   const bool contact = detector.step(sample);
///   detector.process(in, contact);        // the same for a block
///
/// The answers are those of LeadoffDetector, also for infinities and NaN.

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace Zephly::offline {

/// Whether the latest 70 samples span more than 0.01.
class ContactDetector {
 public:
  bool step(float sample);

  /// The next samples. `contact` has the length of `in`; 1 or 0.
  void process(std::span<const float> in, std::span<std::uint8_t> contact);

 private:
  void processBlock(std::span<const float> in, std::span<std::uint8_t> contact);
  static constexpr std::size_t size = 70;

  static std::size_t next(std::size_t place) { return place + 1 < size ? place + 1 : 0; }

  // The samples that can still become the extreme, as in running_normalization.h.
  struct Extreme {
    struct Entry {
      float value;
      std::uint64_t count;
    };
    std::array<Entry, size> queue{};  // circular
    std::size_t front = 0;
    std::size_t held = 0;

    template <class IsBeaten>
    void push(float value, std::uint64_t count, const IsBeaten& isBeaten);
    void drop(std::uint64_t count);
    std::size_t back() const;
  };

  std::array<float, size> window_{};  // circular
  std::size_t place_ = 0;             // of the next sample
  std::uint64_t count_ = 0;           // samples so far
  Extreme largest_;
  Extreme smallest_;
};

}  // namespace Zephly::offline
