// SPDX-License-Identifier: MIT
// No #pragma once: included once for each instruction set.
#if defined(ZEPHLY_OFFLINE_SECTION_LANES_INL_H) == defined(HWY_TARGET_TOGGLE)
#ifdef ZEPHLY_OFFLINE_SECTION_LANES_INL_H
#undef ZEPHLY_OFFLINE_SECTION_LANES_INL_H
#else
#define ZEPHLY_OFFLINE_SECTION_LANES_INL_H
#endif
/// @file
/// All sections of a chain advance in one step, each in a lane of its own. BiquadSections is the
/// scalar form; the operations of a section and their order are the same.
///
/// A section needs the output of the one before it, so it works `skew` samples behind it. With a
/// skew of 2, while section 0 takes sample t:
///
///   lane      0        1        2        3     |  4        5        6        7
///   section   7        6        5        4     |  3        2        1        0
///   sample    t - 14   t - 12   t - 10   t - 8 |  t - 6    t - 4    t - 2    t
///
/// The input of a lane is the output of the lane to its right, two steps ago. A skew of 1 would
/// make each step wait for the shift of the lanes after the one before.
///
/// At the beginning of a run the left lanes have no sample yet, at its end the right ones have none
/// left. There the states of idle lanes are kept by masks; so a run leaves each section as if it
/// had worked alone, and a signal can be cut anywhere.

#include <offline/lanes_inl.h>
#include <offline/section_lanes.h>

#include <hwy/highway.h>

#include <cstddef>

HWY_BEFORE_NAMESPACE();
namespace Zephly::offline::HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;

// Coefficients and states in vectors.
template <std::size_t vectors>
struct Sections {
  Row a0[vectors], a1[vectors], b1[vectors], b2[vectors], z1[vectors], z2[vectors];
};

template <std::size_t vectors>
HWY_INLINE void loadSections(const SectionLanes& from, Sections<vectors>& to) {
  const Doubles d;
  for (std::size_t j = 0; j < vectors; ++j) {
    to.a0[j] = hn::LoadU(d, from.a0 + j * doubleLanes);
    to.a1[j] = hn::LoadU(d, from.a1 + j * doubleLanes);
    to.b1[j] = hn::LoadU(d, from.b1 + j * doubleLanes);
    to.b2[j] = hn::LoadU(d, from.b2 + j * doubleLanes);
    to.z1[j] = hn::LoadU(d, from.z1 + j * doubleLanes);
    to.z2[j] = hn::LoadU(d, from.z2 + j * doubleLanes);
  }
}

template <std::size_t vectors>
HWY_INLINE void storeStates(const Sections<vectors>& from, SectionLanes& to) {
  const Doubles d;
  for (std::size_t j = 0; j < vectors; ++j) {
    hn::StoreU(from.z1[j], d, to.z1 + j * doubleLanes);
    hn::StoreU(from.z2[j], d, to.z2 + j * doubleLanes);
  }
}

// The samples that the lanes have: lane p works on sample `step - delay[p]` of `count[p]`.
struct LaneTimes {
  double delay[SectionLanes::most];
  double count[SectionLanes::most];
};

HWY_INLINE hn::Mask<Doubles> busyLanes(const LaneTimes& times, std::size_t step, std::size_t j) {
  const Doubles d;
  const Row sample =
      hn::Sub(hn::Set(d, static_cast<double>(step)), hn::LoadU(d, times.delay + j * doubleLanes));
  return hn::And(hn::Ge(sample, hn::Zero(d)),
                 hn::Lt(sample, hn::LoadU(d, times.count + j * doubleLanes)));
}

// One step of one vector of sections: its output for the input x.
template <bool masked, std::size_t vectors>
HWY_INLINE Row stepSections(Sections<vectors>& s, std::size_t j, Row x, const LaneTimes& times,
                            std::size_t step) {
  const Row direct = hn::Mul(s.a0[j], x);  // and a2 * x, because a2 is a0
  const Row y = hn::Add(direct, s.z1[j]);
  const Row z1 = hn::Sub(hn::Add(hn::Mul(s.a1[j], x), s.z2[j]), hn::Mul(s.b1[j], y));
  const Row z2 = hn::Sub(direct, hn::Mul(s.b2[j], y));
  if constexpr (masked) {
    const auto busy = busyLanes(times, step, j);
    s.z1[j] = hn::IfThenElse(busy, z1, s.z1[j]);
    s.z2[j] = hn::IfThenElse(busy, z2, s.z2[j]);
  } else {
    s.z1[j] = z1;
    s.z2[j] = z2;
  }
  return y;
}

// --- Respiration: two notches, the median, low-pass and high-pass. The sections before the median
// are in lanes 5 to 7 and those after it in lanes 0 to 4, which start at the same time:
//
//   lane      0        1        2        3     |  4        5        6        7
//   section   high     low 3    low 2    low 1 |  low 0    notch 2  notch 1  notch 1
//   sample    t - 8    t - 6    t - 4    t - 2 |  t        t - 4    t - 2    t
//             of the medians of one block                  of the next block

constexpr std::size_t respirationSkew = 2;
constexpr std::size_t respirationVectors = 8 / doubleLanes;
constexpr std::size_t firstAfterMedian = 4;  // lane
constexpr std::size_t outDelay = 4 * respirationSkew;
constexpr std::size_t notchedDelay = 3 * respirationSkew;

// `y` are the outputs of `skew` steps ago, and then those of this step.
template <bool masked>
HWY_INLINE void stepRespiration(Sections<respirationVectors>& s, std::size_t step,
                                const RespirationRun& run, const LaneTimes& times,
                                Row (&y)[respirationVectors], Row& lastInput) {
  const Doubles d;
  double sample = 0.0;
  double median = 0.0;
  if (!masked || step < run.inCount) sample = static_cast<double>(run.in[step]);
  if (!masked || step < run.medianCount) median = run.medians[step];
  constexpr std::size_t cut = firstAfterMedian / doubleLanes;
  Row x[respirationVectors];
  ZEPHLY_UNROLL
  for (std::size_t j = 0; j < respirationVectors; ++j) {
    x[j] = shiftDown(y[j], j + 1 < respirationVectors ? y[j + 1 < respirationVectors ? j + 1 : 0]
                                                      : hn::Set(d, sample));
  }
  if (!masked || (step >= notchedDelay && step - notchedDelay < run.inCount)) {
    run.notched[step - notchedDelay] = hn::GetLane(x[cut]);
  }
  x[cut] = hn::IfThenElse(hn::FirstN(d, 1), hn::Set(d, median), x[cut]);
  ZEPHLY_UNROLL
  for (std::size_t j = 0; j < respirationVectors; ++j) {
    y[j] = stepSections<masked>(s, j, x[j], times, step);
  }
  if (!masked || (step >= outDelay && step - outDelay < run.medianCount)) {
    run.out[step - outDelay] = hn::GetLane(y[0]);
  }
  if constexpr (masked) lastInput = hn::IfThenElse(busyLanes(times, step, 0), x[0], lastInput);
}

HWY_NOINLINE void respirationSections(SectionLanes& lanes, const RespirationRun& run) {
  constexpr std::size_t skew = respirationSkew;
  LaneTimes times;
  for (std::size_t p = 0; p < 8; ++p) {
    const bool before = p > firstAfterMedian;
    times.delay[p] = static_cast<double>(((before ? 7 : firstAfterMedian) - p) * skew);
    times.count[p] = static_cast<double>(before ? run.inCount : run.medianCount);
  }
  Sections<respirationVectors> s;
  loadSections(lanes, s);
  Row even[respirationVectors];
  Row odd[respirationVectors];
  for (std::size_t j = 0; j < respirationVectors; ++j) even[j] = odd[j] = hn::Zero(Doubles());
  Row lastInput = hn::Set(Doubles(), *run.lastOfLowPass);

  const std::size_t common = HWY_MIN(run.inCount, run.medianCount) / skew * skew;
  const std::size_t end = HWY_MAX(run.inCount + notchedDelay, run.medianCount + outDelay);
  std::size_t step = 0;
  for (; step < HWY_MIN(outDelay, end); step += skew) {
    stepRespiration<true>(s, step, run, times, even, lastInput);
    stepRespiration<true>(s, step + 1, run, times, odd, lastInput);
  }
  for (; step < common; step += skew) {
    stepRespiration<false>(s, step, run, times, even, lastInput);
    stepRespiration<false>(s, step + 1, run, times, odd, lastInput);
  }
  for (; step < end; step += skew) {
    stepRespiration<true>(s, step, run, times, even, lastInput);
    stepRespiration<true>(s, step + 1, run, times, odd, lastInput);
  }
  storeStates(s, lanes);
  *run.lastOfLowPass = hn::GetLane(lastInput);
}

// --- ECG: four notches, the low-pass, and the low-pass of the baseline. Between the stages, but
// not inside them, samples are rounded to single precision:
//
//   lane      0       1       2       3     |  4      5      6      7     |  8      9     10     11
//   section   base 1  base 0  low 3   low 2 |  low 1  low 0  n 4    n 3   |  n 2    n 2   n 1    n
//   1 rounded                   yes           |                yes    yes   |  yes          yes
//
// The skew is 3, because the rounding takes longer.

constexpr std::size_t ecgSkew = 3;
constexpr std::size_t ecgDelay = 109;  // samples
constexpr std::size_t ecgVectors = 12 / doubleLanes;
constexpr std::size_t slowDelay = 11 * ecgSkew;
constexpr std::size_t lowPassedDelay = 10 * ecgSkew;

HWY_INLINE Row roundSome(Row y, std::size_t j) {
  const Doubles d;
  const hn::Rebind<float, Doubles> single;
  if (doubleLanes == 2 && (j == 0 || j == 2)) return y;
  const Row rounded = hn::PromoteTo(d, hn::DemoteTo(single, y));
  if constexpr (doubleLanes == 2) {
    return j == 3 ? rounded : hn::OddEven(y, rounded);
  } else {
    // Lane 0 does not matter: no other lane takes it.
    return j == 1 ? hn::ConcatUpperLower(d, rounded, y) : hn::OddEven(y, rounded);
  }
}

template <bool masked>
HWY_INLINE void stepEcg(Sections<ecgVectors>& s, std::size_t step, const float* in,
                        std::size_t count, const LaneTimes& times, Row (&y)[ecgVectors],
                        double* lowPassed, double* slow) {
  const Doubles d;
  double sample = 0.0;
  if (!masked || step < count) sample = static_cast<double>(in[step]);
  Row x[ecgVectors];
  ZEPHLY_UNROLL
  for (std::size_t j = 0; j < ecgVectors; ++j) {
    x[j] = shiftDown(y[j],
                     j + 1 < ecgVectors ? y[j + 1 < ecgVectors ? j + 1 : 0] : hn::Set(d, sample));
  }
  if (!masked || (step >= lowPassedDelay && step - lowPassedDelay < count)) {
    lowPassed[step - lowPassedDelay] = hn::GetLane(shiftDown(x[0], x[0]));
  }
  ZEPHLY_UNROLL
  for (std::size_t j = 0; j < ecgVectors; ++j) {
    const Row out = stepSections<masked>(s, j, x[j], times, step);
    if (j == 0 && (!masked || (step >= slowDelay && step - slowDelay < count))) {
      slow[step - slowDelay] = hn::GetLane(out);
    }
    y[j] = roundSome(out, j);
  }
}

HWY_NOINLINE void ecgSections(SectionLanes& lanes, const float* in, std::size_t count,
                              double* lowPassed, double* out) {
  LaneTimes times;
  for (std::size_t p = 0; p < 12; ++p) {
    times.delay[p] = static_cast<double>((11 - p) * ecgSkew);
    times.count[p] = static_cast<double>(count);
  }
  Sections<ecgVectors> s;
  loadSections(lanes, s);
  Row first[ecgVectors];
  Row second[ecgVectors];
  Row third[ecgVectors];
  for (std::size_t j = 0; j < ecgVectors; ++j) {
    first[j] = second[j] = third[j] = hn::Zero(Doubles());
  }
  const std::size_t common = count / ecgSkew * ecgSkew;
  const std::size_t end = count + slowDelay;
  std::size_t step = 0;
  for (; step < slowDelay; step += ecgSkew) {
    stepEcg<true>(s, step, in, count, times, first, lowPassed, out);
    stepEcg<true>(s, step + 1, in, count, times, second, lowPassed, out);
    stepEcg<true>(s, step + 2, in, count, times, third, lowPassed, out);
  }
  for (; step < common; step += ecgSkew) {
    stepEcg<false>(s, step, in, count, times, first, lowPassed, out);
    stepEcg<false>(s, step + 1, in, count, times, second, lowPassed, out);
    stepEcg<false>(s, step + 2, in, count, times, third, lowPassed, out);
  }
  for (; step < end; step += ecgSkew) {
    stepEcg<true>(s, step, in, count, times, first, lowPassed, out);
    stepEcg<true>(s, step + 1, in, count, times, second, lowPassed, out);
    stepEcg<true>(s, step + 2, in, count, times, third, lowPassed, out);
  }
  storeStates(s, lanes);
  // The baseline, of the samples of some time ago.
  const Doubles d;
  const hn::Rebind<float, Doubles> single;
  const double* const delayed = lowPassed - ecgDelay;
  std::size_t i = 0;
  for (; i + doubleLanes <= count; i += doubleLanes) {
    const Row level = hn::Sub(hn::LoadU(d, delayed + i), hn::LoadU(d, out + i));
    hn::StoreU(hn::PromoteTo(d, hn::DemoteTo(single, level)), d, out + i);
  }
  for (; i < count; ++i) {
    out[i] = static_cast<double>(static_cast<float>(delayed[i] - out[i]));
  }
}

}  // namespace Zephly::offline::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif
