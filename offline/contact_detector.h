// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// LeadoffDetector without a search of its window.
///
///   ContactDetector detector;
///   const bool contact = detector.step(sample);
///
/// The answers are those of LeadoffDetector, also for infinities and NaN.

#include <array>
#include <cstddef>
#include <cstdint>

namespace Zephly::offline {

/// Whether the latest 70 samples span more than 0.01.
class ContactDetector {
 public:
  bool step(float sample);

 private:
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
