// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The coefficients of second-order recursive filters.
///
///     const auto c = Zephly::designBiquad(BiquadNotch, 50.0 / 250.0, 5.0);
///     const double y = c.a0 * x + z1;
///
/// The design is the bilinear transform of the analogue prototypes with tangent pre-warping, in the
/// form whose leading feedback coefficient is 1, as published in many places (e.g. U. Zölzer (ed.),
/// "DAFX: Digital Audio Effects", 2nd edition, Wiley 2011, section 2.2).

#include <zephly/platform/export.h>

/// What a BiquadFilter lets through.
enum BiquadFilterType : int {
  BiquadLowpass = 0,
  BiquadHighpass = 1,
  BiquadBandpass = 2,
  BiquadNotch = 3,
};

namespace Zephly {

/// Of one section, in transposed direct form II:
/// y = a0 x + z1; z1 = a1 x + z2 - b1 y; z2 = a2 x - b2 y.
struct BiquadCoefficients {
  double a0 = 0.0;
  double a1 = 0.0;
  double a2 = 0.0;
  double b1 = 0.0;
  double b2 = 0.0;
};

/// @param type  a value that is none of the four gives coefficients that are all 0.
/// @param Fc    corner or centre frequency as a fraction of the sample rate, 0 < Fc < 0.5.
/// @param Q     quality factor, above 0; 0.707 has no resonance peak.
ZEPHLY_EXPORT BiquadCoefficients designBiquad(BiquadFilterType type, double Fc, double Q);

}  // namespace Zephly
