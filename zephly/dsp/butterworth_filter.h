// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A second-order recursive filter in single precision, designed from a cut-off in hertz.
///
///     Zephly::ButterworthFilter lowPass(1.0F, 60, Zephly::Lowpass, 2.0F);
///     float smoothed = lowPass.process(sample);  // once per sample, in order

#include <zephly/platform/export.h>

namespace Zephly {

/// Which side of the cut-off frequency passes.
enum PassType : int {
  Highpass = 0,
  Lowpass = 1,
};

/// Two-pole filter with adjustable damping, direct form I.
///
/// The bilinear transform of the second-order analogue prototype s^2 + r s + 1, with the cut-off
/// pre-warped by tan(pi f / fs); r = sqrt(2) gives the maximally flat response after S.
/// Butterworth, "On the Theory of Filter Amplifiers", 1930. Everything but the tangent is computed
/// in float, in a fixed order, so that results are the same on every machine.
///
/// Sensible for 0 < frequency < sampleRate / 2; nothing is checked. A sample rate of 0, or samples
/// that are infinite or not a number, make every later output not a number: there is no reset.
/// Not thread-safe; one object filters one signal.
class ZEPHLY_EXPORT ButterworthFilter {
 public:
  /// @param frequency   cut-off in hertz
  /// @param sampleRate  samples per second
  /// @param passType    a value that is none of the enumeration's gives a filter whose coefficients
  ///                    are all 0, and with them every output for finite samples
  /// @param resonance   damping: larger values damp, smaller ones resonate at the cut-off
  ButterworthFilter(float frequency, int sampleRate, PassType passType, float resonance);

  /// Filters one sample. The history starts at 0, so the first output is the first feed-forward
  /// coefficient times the first input. Five multiplications, no allocation.
  float process(float input);

 private:
  void design();

  float resonance;
  float frequency;  // Hz
  int sampleRate;   // 1/s
  PassType passType;
  float c = 0.0F;                               // pre-warped frequency, its reciprocal for low-pass
  float a1 = 0.0F, a2 = 0.0F, a3 = 0.0F;        // feed-forward
  float b1 = 0.0F, b2 = 0.0F;                   // feedback
  float inputHistory[2] = {0.0F, 0.0F};         // newest first
  float outputHistory[3] = {0.0F, 0.0F, 0.0F};  // newest first
};

}  // namespace Zephly
