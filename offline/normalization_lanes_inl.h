// SPDX-License-Identifier: MIT
// No #pragma once: included once for each instruction set.
#if defined(ZEPHLY_OFFLINE_NORMALIZATION_LANES_INL_H) == defined(HWY_TARGET_TOGGLE)
#ifdef ZEPHLY_OFFLINE_NORMALIZATION_LANES_INL_H
#undef ZEPHLY_OFFLINE_NORMALIZATION_LANES_INL_H
#else
#define ZEPHLY_OFFLINE_NORMALIZATION_LANES_INL_H
#endif
/// @file
/// Running maxima of magnitudes and the division by them; RunningNormalization is the scalar form
/// and has the idea. The maximum of each lane and all before it takes two shifts:
///
///   a         b         c         d
///   0         a         b         c           shifted by one lane
///   a         ab        bc        cd          the maxima of both
///   0         0         a         ab          shifted by two
///   a         ab        abc       abcd        the maxima of both

#include <offline/lanes_inl.h>

#include <hwy/highway.h>

#include <cstddef>

HWY_BEFORE_NAMESPACE();
namespace Zephly::offline::HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;

HWY_INLINE Row maximaUp(Row x) {
  const Doubles d;
  x = hn::Max(x, shiftUp(hn::Zero(d), x));
  if constexpr (doubleLanes == 4) x = hn::Max(x, hn::ConcatLowerUpper(d, x, hn::Zero(d)));
  return x;
}

HWY_INLINE Row maximaDown(Row x) {
  const Doubles d;
  x = hn::Max(x, shiftDown(x, hn::Zero(d)));
  if constexpr (doubleLanes == 4) x = hn::Max(x, hn::ConcatLowerUpper(d, hn::Zero(d), x));
  return x;
}

HWY_INLINE Row normalized(Row x, Row magnitude) {
  const Doubles d;
  const Row range = hn::Add(magnitude, magnitude);
  const Row level = hn::Div(hn::Add(x, magnitude), range);
  return hn::IfThenElse(hn::Eq(range, hn::Zero(d)), hn::Zero(d), level);
}

HWY_NOINLINE void normalize(const double* samples, std::size_t count, double* window,
                            double* largest, float* out) {
  const Doubles d;
  const hn::Rebind<float, Doubles> single;
  Row carried = hn::Set(d, *largest);
  std::size_t i = 0;
  for (; i + doubleLanes <= count; i += doubleLanes) {
    const Row x = hn::LoadU(d, samples + i);
    const Row older = hn::LoadU(d, window + i + 1);
    const Row magnitude = hn::Abs(x);
    hn::StoreU(magnitude, d, window + i);
    const Row maxima = maximaUp(magnitude);
    const Row whole = hn::Max(hn::Max(maxima, carried), older);
    carried = hn::Max(carried, spreadLast(maxima));
    hn::StoreU(hn::DemoteTo(single, normalized(x, whole)), single, out + i);
  }
  for (; i < count; ++i) {
    const Row x = hn::Set(d, samples[i]);
    const Row magnitude = hn::Abs(x);
    carried = hn::Max(carried, magnitude);
    const Row whole = hn::Max(carried, hn::Set(d, window[i + 1]));
    window[i] = hn::GetLane(magnitude);
    out[i] = static_cast<float>(hn::GetLane(normalized(x, whole)));
  }
  *largest = hn::GetLane(carried);
}

// Each element becomes the largest of itself and those after it. `count` is a multiple of 4.
HWY_NOINLINE void maximaToTheEnd(double* window, std::size_t count) {
  const Doubles d;
  Row carried = hn::Zero(d);
  for (std::size_t i = count; i > 0;) {
    i -= doubleLanes;
    const Row maxima = maximaDown(hn::LoadU(d, window + i));
    hn::StoreU(hn::Max(maxima, carried), d, window + i);
    carried = hn::Max(carried, spreadFirst(maxima));
  }
}

}  // namespace Zephly::offline::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif
