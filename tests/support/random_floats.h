// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Seeded random input for comparisons bit for bit; the same numbers on every machine.
///
///     RandomFloats random(1);
///     filter.process(random.within(2.42F));

#include <bit>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <limits>
#include <random>

class RandomFloats {
 public:
  explicit RandomFloats(std::uint32_t seed) : engine_(seed) {}

  /// Uniform within +-limit.
  float within(float limit) {
    constexpr double half = 2147483648.0;
    return static_cast<float>((static_cast<double>(bits()) - half) / half) * limit;
  }

  /// Any bit pattern: all magnitudes, and sometimes infinities, NaN and subnormal numbers.
  float anything() { return std::bit_cast<float>(bits()); }

  /// Mostly within +-limit. One in `rarity` is a special value: zero, infinity, NaN, the smallest
  /// or the largest float.
  float awkward(float limit, std::size_t rarity) {
    if (below(rarity) != 0) return within(limit);
    using Limits = std::numeric_limits<float>;
    const float numbers[] = {0.0F,
                             -0.0F,
                             Limits::infinity(),
                             -Limits::infinity(),
                             Limits::max(),
                             Limits::lowest(),
                             Limits::quiet_NaN(),
                             Limits::min(),
                             Limits::denorm_min(),
                             -Limits::denorm_min()};
    return numbers[below(std::size(numbers))];
  }

  /// 0 to count - 1.
  std::size_t below(std::size_t count) { return bits() % count; }

 private:
  std::uint32_t bits() { return static_cast<std::uint32_t>(engine_()); }

  std::mt19937 engine_;
};
