// SPDX-License-Identifier: MIT
// No #pragma once: included once for each instruction set.
#if defined(ZEPHLY_OFFLINE_LANES_INL_H) == defined(HWY_TARGET_TOGGLE)
#ifdef ZEPHLY_OFFLINE_LANES_INL_H
#undef ZEPHLY_OFFLINE_LANES_INL_H
#else
#define ZEPHLY_OFFLINE_LANES_INL_H
#endif
/// @file
/// Vectors of doubles for the stages, how they are shifted by one lane, and what they must not
/// hold.

#include <hwy/highway.h>

#include <cmath>
#include <cstddef>
#include <cstdint>

// For loops over arrays of vectors, which g++ -O2 would otherwise keep in memory. clang++ unrolls
// them by itself.
#undef ZEPHLY_UNROLL
#if defined(__clang__)
#define ZEPHLY_UNROLL
#else
#define ZEPHLY_UNROLL _Pragma("GCC unroll 8")
#endif

HWY_BEFORE_NAMESPACE();
namespace Zephly::offline::HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;

// Four or two lanes.
using Doubles = hn::CappedTag<double, 4>;
using Row = hn::Vec<Doubles>;
constexpr std::size_t doubleLanes = hn::MaxLanes(Doubles());

// Lanes 1 and higher of `low`, then lane 0 of `high`.
HWY_INLINE Row shiftDown(Row low, Row high) {
  const Doubles d;
  const Row middle = hn::ConcatLowerUpper(d, high, low);
  if constexpr (doubleLanes == 2) {
    return middle;
  } else {
    // low 2, low 3, high 0, high 1 shares the middle of each pair with the result.
    return hn::CombineShiftRightBytes<8>(d, middle, low);
  }
}

// The last lane of `low`, then all lanes of `high` but the last.
HWY_INLINE Row shiftUp(Row low, Row high) {
  const Doubles d;
  const Row middle = hn::ConcatLowerUpper(d, high, low);
  if constexpr (doubleLanes == 2) {
    return middle;
  } else {
    return hn::CombineShiftRightBytes<8>(d, high, middle);
  }
}

// The last lane in each lane.
HWY_INLINE Row spreadLast(Row x) {
  const Doubles d;
  const Row upper = hn::ConcatUpperUpper(d, x, x);
  return hn::InterleaveUpper(d, upper, upper);
}

// The first lane in each lane.
HWY_INLINE Row spreadFirst(Row x) {
  const Doubles d;
  const Row lower = hn::ConcatLowerLower(d, x, x);
  return hn::InterleaveLower(d, lower, lower);
}

HWY_NOINLINE bool finite(const double* samples, std::size_t count) {
  const Doubles d;
  // The products are 0 for finite numbers, else NaN, and so is the sum.
  Row sum = hn::Zero(d);
  std::size_t i = 0;
  for (; i + doubleLanes <= count; i += doubleLanes) {
    sum = hn::Add(sum, hn::Mul(hn::LoadU(d, samples + i), hn::Zero(d)));
  }
  double rest = hn::GetLane(hn::SumOfLanes(d, sum));
  for (; i < count; ++i) rest += samples[i] * 0.0;
  return rest == 0.0;
}

HWY_NOINLINE bool ordinary(const double* samples, std::size_t count) {
  const Doubles d;
  const hn::RebindToUnsigned<Doubles> bits;
  const auto negativeZero = hn::Set(bits, std::uint64_t{1} << 63);
  auto found = hn::Zero(bits);
  std::size_t i = 0;
  for (; i + doubleLanes <= count; i += doubleLanes) {
    const auto x = hn::BitCast(bits, hn::LoadU(d, samples + i));
    found = hn::Or(found, hn::VecFromMask(bits, hn::Eq(x, negativeZero)));
  }
  bool good = hn::AllTrue(bits, hn::Eq(found, hn::Zero(bits)));
  for (; i < count; ++i) good = good && !(samples[i] == 0.0 && std::signbit(samples[i]));
  return good && finite(samples, count);
}

}  // namespace Zephly::offline::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif
