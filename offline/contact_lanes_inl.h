// SPDX-License-Identifier: MIT
// No #pragma once: included once for each instruction set.
#if defined(ZEPHLY_OFFLINE_CONTACT_LANES_INL_H) == defined(HWY_TARGET_TOGGLE)
#ifdef ZEPHLY_OFFLINE_CONTACT_LANES_INL_H
#undef ZEPHLY_OFFLINE_CONTACT_LANES_INL_H
#else
#define ZEPHLY_OFFLINE_CONTACT_LANES_INL_H
#endif
/// @file
/// Whether the latest 70 samples span more than 0.01; ContactDetector is the scalar form. Each lane
/// is one time. An extreme of 70 samples comes from extremes of 8, which overlap at the end:
///
///   samples   0 - 7   8 - 15   16 - 23   24 - 31   32 - 39   40 - 47   48 - 55   56 - 63   62 - 69

#include <offline/lanes_inl.h>

#include <hwy/highway.h>

#include <cstddef>
#include <cstdint>

HWY_BEFORE_NAMESPACE();
namespace Zephly::offline::HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;

// Eight or four lanes.
using Floats = hn::CappedTag<float, 8>;
using FloatRow = hn::Vec<Floats>;
constexpr std::size_t floatLanes = hn::MaxLanes(Floats());

constexpr std::size_t contactHistory = 69;
constexpr std::size_t contactBlock = 1024;
constexpr std::size_t leastContacts = 64;

HWY_NOINLINE bool finiteFloats(const float* samples, std::size_t count) {
  const Floats d;
  FloatRow sum = hn::Zero(d);
  std::size_t i = 0;
  for (; i + floatLanes <= count; i += floatLanes) {
    sum = hn::Add(sum, hn::Mul(hn::LoadU(d, samples + i), hn::Zero(d)));
  }
  float rest = hn::GetLane(hn::SumOfLanes(d, sum));
  for (; i < count; ++i) rest += samples[i] * 0.0F;
  return rest == 0.0F;
}

HWY_NOINLINE void contacts(const float* samples, std::size_t count, std::uint8_t* contact) {
  const Floats d;
  const hn::Rebind<std::int32_t, Floats> whole;
  const hn::Rebind<std::uint8_t, Floats> bytes;
  constexpr std::size_t longest = contactBlock + leastContacts;
  constexpr std::size_t length = longest + 64;
  HWY_ALIGN float largest[length];
  HWY_ALIGN float smallest[length];
  for (std::size_t done = 0; done < count;) {
    const std::size_t rest = count - done;
    const std::size_t block = rest <= longest ? rest : contactBlock;
    const float* const from = samples + done;
    // Of the eight samples from each on.
    const std::size_t eights = block + contactHistory - 7;
    for (std::size_t i = 0; i < eights;) {
      FloatRow high = hn::LoadU(d, from + i);
      FloatRow low = high;
      ZEPHLY_UNROLL
      for (std::size_t k = 1; k < 8; ++k) {
        const FloatRow x = hn::LoadU(d, from + i + k);
        high = hn::Max(high, x);
        low = hn::Min(low, x);
      }
      hn::StoreU(high, d, largest + i);
      hn::StoreU(low, d, smallest + i);
      // The last vector overlaps.
      i = i + floatLanes < eights ? HWY_MIN(i + floatLanes, eights - floatLanes) : eights;
    }
    for (std::size_t i = 0; i < block;) {
      FloatRow high = hn::LoadU(d, largest + i);
      FloatRow low = hn::LoadU(d, smallest + i);
      ZEPHLY_UNROLL
      for (std::size_t k = 8; k < 64; k += 8) {
        high = hn::Max(high, hn::LoadU(d, largest + i + k));
        low = hn::Min(low, hn::LoadU(d, smallest + i + k));
      }
      high = hn::Max(high, hn::LoadU(d, largest + i + 62));
      low = hn::Min(low, hn::LoadU(d, smallest + i + 62));
      const auto on = hn::Gt(hn::Sub(high, low), hn::Set(d, 0.01F));
      const auto ones = hn::IfThenElseZero(hn::RebindMask(whole, on), hn::Set(whole, 1));
      hn::StoreU(hn::DemoteTo(bytes, ones), bytes, contact + done + i);
      i = i + floatLanes < block ? HWY_MIN(i + floatLanes, block - floatLanes) : block;
    }
    done += block;
  }
}

}  // namespace Zephly::offline::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif
