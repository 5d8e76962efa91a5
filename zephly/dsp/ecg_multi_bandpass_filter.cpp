// SPDX-License-Identifier: MIT
#include <zephly/dsp/ecg_multi_bandpass_filter.h>

#include <zephly/dsp/biquad_filter.h>
#include <zephly/dsp/low_cut_filter.h>
#include <zephly/dsp/normalization_filter.h>

#include <bit>
#include <cstdint>
#include <limits>
#include <memory>

namespace Zephly {
namespace {

// The design frequencies are single-precision constants: widened to double they differ from the
// double constants of the same decimals.
constexpr double tenth = static_cast<double>(0.1F);
constexpr double twelveHundredths = static_cast<double>(0.12F);
constexpr double fifth = static_cast<double>(0.2F);
constexpr double quarter = 0.25;
constexpr double fourThousandths = static_cast<double>(0.004F);
static_assert(std::bit_cast<std::uint64_t>(tenth) == 0x3FB99999A0000000);
static_assert(std::bit_cast<std::uint64_t>(twelveHundredths) == 0x3FBEB851E0000000);
static_assert(std::bit_cast<std::uint64_t>(fifth) == 0x3FC99999A0000000);
static_assert(std::bit_cast<std::uint64_t>(fourThousandths) == 0x3F70624DE0000000);

// Rounding a double that is too large for a float gives infinity.
static_assert(std::numeric_limits<float>::is_iec559 && std::numeric_limits<double>::is_iec559);

float step(Filter& stage, float sample) {
  return static_cast<float>(stage.process(static_cast<double>(sample)));
}

}  // namespace

ECGMultiBandpassFilter::ECGMultiBandpassFilter() {
  auto builtNotch1 = std::make_unique<BiquadFilter>(BiquadNotch, tenth, 4, 5.0);
  auto builtNotch2 = std::make_unique<BiquadFilter>(BiquadNotch, twelveHundredths, 4, 5.0);
  auto builtNotch3 = std::make_unique<BiquadFilter>(BiquadNotch, fifth, 2, 15.0);
  auto builtNotch4 = std::make_unique<BiquadFilter>(BiquadNotch, quarter, 2, 1.0);
  auto builtEcgLowPass = std::make_unique<BiquadFilter>(BiquadLowpass, tenth, 8, 1.0);
  auto builtLowCut = std::make_unique<LowCutFilter>(110, fourThousandths, 4);
  auto builtNormalization = std::make_unique<NormalizationFilter>(1000, true);

  ecgLowPass = builtEcgLowPass.release();
  notch1 = builtNotch1.release();
  notch2 = builtNotch2.release();
  notch3 = builtNotch3.release();
  notch4 = builtNotch4.release();
  lowCut = builtLowCut.release();
  normalization = builtNormalization.release();
}

float ECGMultiBandpassFilter::process(float x) {
  float sample = x;
  sample = step(*notch1, sample);
  sample = step(*notch2, sample);
  sample = step(*notch3, sample);
  sample = step(*notch4, sample);
  sample = step(*ecgLowPass, sample);
  sample = step(*lowCut, sample);
  sample = step(*normalization, sample);
  return sample;
}

}  // namespace Zephly
