// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Second-order recursive filters: low-pass, high-pass, band-pass and notch.
///
///     BiquadFilter notch(BiquadNotch, 50.0 / 250.0, 2, 5.0);  // 50 Hz out of 250 samples a second
///     const double cleaned = notch.process(sample);
///
/// The design is the bilinear transform of the analogue prototypes with tangent pre-warping, in the
/// form whose leading feedback coefficient is 1, as published in many places (e.g. U. Zölzer (ed.),
/// "DAFX: Digital Audio Effects", 2nd edition, Wiley 2011, section 2.2). Sections run in transposed
/// direct form II.

#include <zephly/dsp/filter.h>
#include <zephly/dsp/sample_array.h>
#include <zephly/platform/export.h>

/// What a BiquadFilter lets through.
enum BiquadFilterType : int {
  BiquadLowpass = 0,
  BiquadHighpass = 1,
  BiquadBandpass = 2,
  BiquadNotch = 3,
};

/// A cascade of identical second-order sections.
class ZEPHLY_EXPORT BiquadFilter : public Filter {
 public:
  /// @param type   what passes; a value that is none of the four gives a filter whose output is 0
  ///               for finite samples.
  /// @param Fc     corner or centre frequency as a fraction of the sample rate, 0 < Fc < 0.5.
  /// @param order  twice the number of sections, an odd one loses its half section. -1, 0 and 1 are
  ///               a fatal error; below that the allocation fails (std::bad_array_new_length).
  /// @param Q      quality factor of each section, above 0; 0.707 has no resonance peak.
  BiquadFilter(BiquadFilterType type, double Fc, int order, double Q);

  /// One step of every section; remembers lastInput().
  double process(double x) override;

  /// Settles the state on the last input, as if that level had been there for a long time: 50,000
  /// steps of the virtual process, so that a high-pass resumes near 0. Call it rarely.
  void reset() override;

 private:
  void design(BiquadFilterType type, double Fc, double Q);

  // Feed-forward and feedback coefficients, the same for every section.
  double a0 = 0.0;
  double a1 = 0.0;
  double a2 = 0.0;
  double b1 = 0.0;
  double b2 = 0.0;
  int order;
  // State, one element for each section.
  Zephly::SampleArray z1;
  Zephly::SampleArray z2;
};
