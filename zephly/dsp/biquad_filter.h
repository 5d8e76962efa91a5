// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Second-order recursive filters: low-pass, high-pass, band-pass and notch.
///
///     BiquadFilter notch(BiquadNotch, 50.0 / 250.0, 2, 5.0);  // 50 Hz out of 250 samples a second
///     const double cleaned = notch.process(sample);
///
/// biquad_design.h has the design. Sections run in transposed direct form II.

#include <zephly/dsp/biquad_design.h>
#include <zephly/dsp/filter.h>
#include <zephly/dsp/sample_array.h>
#include <zephly/platform/export.h>

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
  int order;
  Zephly::BiquadCoefficients coefficients;  // the same for every section
  // State, one element for each section.
  Zephly::SampleArray z1;
  Zephly::SampleArray z2;
};
