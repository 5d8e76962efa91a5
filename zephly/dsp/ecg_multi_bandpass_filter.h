// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Cleans the ECG of the strap and scales it to 0..1.
///
///     Zephly::ECGMultiBandpassFilter ecg;
///     const float level = ecg.process(millivolts);

#include <zephly/platform/export.h>

class BiquadFilter;
class LowCutFilter;
class NormalizationFilter;

namespace Zephly {

/// Four notches against narrow interference, an 8th-order low-pass against noise, a low cut against
/// baseline wander, and a normalisation over the latest 1000 samples. Every stage takes and gives a
/// single-precision sample and computes in double precision.
///
/// The stages live as long as the process: there is no destructor, and what the constructor
/// allocates is not given back. A process is meant to hold one chain, or a few. Not copyable, since
/// copies would share the stages and with them the history of the signal.
class ZEPHLY_EXPORT ECGMultiBandpassFilter {
 public:
  /// Builds all stages at rest. std::bad_alloc when memory runs out; nothing is left behind then.
  ECGMultiBandpassFilter();
  ECGMultiBandpassFilter(const ECGMultiBandpassFilter&) = delete;
  ECGMultiBandpassFilter& operator=(const ECGMultiBandpassFilter&) = delete;

  /// The next sample, in any unit, at a constant rate; the result lies in 0..1, a level of zero at
  /// 0.5. The very first result is 0 or 1, because the window holds nothing else yet.
  float process(float x);

 private:
  BiquadFilter* ecgLowPass;
  BiquadFilter* notch1;
  BiquadFilter* notch2;
  BiquadFilter* notch3;
  BiquadFilter* notch4;
  LowCutFilter* lowCut;
  NormalizationFilter* normalization;
};

}  // namespace Zephly
