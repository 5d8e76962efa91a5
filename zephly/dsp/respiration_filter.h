// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Turns the raw respiration signal of the strap into a slow waveform in 0..1.
///
///     Zephly::RespirationFilter respiration;
///     const float breath = respiration.process(sample);
///     respiration.highPass->reset();  // after the electrodes have moved

#include <zephly/dsp/biquad_filter.h>
#include <zephly/dsp/multi_filter.h>
#include <zephly/dsp/normalization_filter.h>
#include <zephly/platform/export.h>

namespace Zephly {

/// Two notches, a running median over 300 samples, an 8th-order low-pass, a high-pass next to
/// constant level, and a normalisation over the latest 5000 samples, in double precision from end
/// to end.
///
/// The chain lives as long as the process: there is no destructor, and what the constructor
/// allocates is not given back. A process is meant to hold one chain, or a few. Not copyable, since
/// copies would share the stages and with them the history of the signal.
class ZEPHLY_EXPORT RespirationFilter {
 public:
  /// Builds all stages at rest. std::bad_alloc when memory runs out; nothing is left behind then.
  RespirationFilter();
  RespirationFilter(const RespirationFilter&) = delete;
  RespirationFilter& operator=(const RespirationFilter&) = delete;

  /// The next sample, in any unit, at a constant rate; the result lies in 0..1, a level of zero at
  /// 0.5. In a fresh chain the median, and with it the result, is 0 until half of the median's
  /// window is filled.
  float process(float x);

  /// The chain; owns all stages.
  MultiFilter* multiFilter;
  /// The fifth stage, for those who reset it. Owned by the chain.
  BiquadFilter* highPass;
  /// The sixth stage, for those who reset it. Owned by the chain.
  NormalizationFilter* normalization;
};

}  // namespace Zephly
