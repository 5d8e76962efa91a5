// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The ECG and respiration chains stage by stage. The kit's chains end in a normalisation,
/// which hides the linear part; here it can be omitted. Both are built from the kit's stages, and
/// their constructors check that with the normalisation the results are those of the kit's chain,
/// bit for bit.
///
///     EcgStages ecg;
///     const float cleaned = ecg.beforeNormalization(sample);

#include <zephly/dsp/biquad_filter.h>
#include <zephly/dsp/low_cut_filter.h>
#include <zephly/dsp/median_filter.h>
#include <zephly/dsp/normalization_filter.h>

namespace figures {

inline constexpr double waveformRate = 500;  ///< samples per second

/// The stages of Zephly::ECGMultiBandpassFilter.
struct EcgStages {
  BiquadFilter notch50{BiquadNotch, static_cast<double>(0.1F), 4, 5.0};
  BiquadFilter notch60{BiquadNotch, static_cast<double>(0.12F), 4, 5.0};
  BiquadFilter notch100{BiquadNotch, static_cast<double>(0.2F), 2, 15.0};
  BiquadFilter notch125{BiquadNotch, 0.25, 2, 1.0};
  BiquadFilter lowPass{BiquadLowpass, static_cast<double>(0.1F), 8, 1.0};
  LowCutFilter lowCut{110, static_cast<double>(0.004F), 4};
  NormalizationFilter normalization{1000, true};

  float notches(float sample);
  float beforeNormalization(float sample);
  float process(float sample);
};

/// The stages of Zephly::RespirationFilter.
struct RespirationStages {
  BiquadFilter notch50{BiquadNotch, 0.1, 4, 5.0};
  BiquadFilter notch125{BiquadNotch, 0.25, 2, 1.0};
  MedianFilter median{300};
  BiquadFilter lowPass{BiquadLowpass, 0.004, 8, 0.707};
  BiquadFilter highPass{BiquadHighpass, 8e-5, 2, 0.707};
  NormalizationFilter normalization{5000, true};

  double notches(double sample);
  double withoutMedian(double sample);
  double beforeNormalization(double sample);
  float process(float sample);
};

/// Throws std::logic_error when one of the above differs from the chain of the kit.
void requireTheKitsChains();

}  // namespace figures
