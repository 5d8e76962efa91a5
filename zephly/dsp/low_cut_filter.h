// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Takes the slow wander of the baseline out of a signal.
///
///     LowCutFilter lowCut(110, 0.004, 4);  // the delay line has 110 samples: a delay of 109
///     const double level = lowCut.process(sample);

#include <zephly/dsp/biquad_filter.h>
#include <zephly/dsp/filter.h>
#include <zephly/dsp/sample_array.h>
#include <zephly/platform/export.h>

/// The input delayed by `delayLength - 1` samples, less the low-passed input. Until that delay has
/// passed, the delayed part is 0. Has no way to clear its history (reset does nothing) and does not
/// maintain lastInput().
class ZEPHLY_EXPORT LowCutFilter : public Filter {
 public:
  /// @param delayLength  length of the delay line: the delay in samples plus 1, 1 or more; best
  ///                     near the delay of the low-pass. 0 is a fatal error; a negative one fails
  ///                     in allocation (std::bad_array_new_length).
  /// @param Fc           corner of the low-pass as a fraction of the sample rate.
  /// @param order        order of the low-pass, as BiquadFilter has it; its Q is 0.707.
  LowCutFilter(int delayLength, double Fc, int order);

  /// The delayed sample less the low-passed one; the delay line moves on by one sample.
  double process(double x) override;

  /// One step of the low-pass alone.
  double lowPass(double x);
  /// Moves both ends of the delay line on by one sample.
  void delayLineShift();

 private:
  BiquadFilter lowPassFilter;
  int delayLength;
  Zephly::SampleArray delayLine;  // circular
  int readIndex = 0;
  int writeIndex;
};
