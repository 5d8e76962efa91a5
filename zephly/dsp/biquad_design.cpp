// SPDX-License-Identifier: MIT
#include <zephly/dsp/biquad_design.h>

#include <cmath>
#include <numbers>

namespace Zephly {

namespace {

constexpr double pi = std::numbers::pi;
static_assert(pi == 3.141592653589793);

}  // namespace

BiquadCoefficients designBiquad(BiquadFilterType type, double Fc, double Q) {
  BiquadCoefficients c;
  const double K = std::tan(pi * Fc);
  const double K2 = K * K;
  const double norm = 1.0 / (K2 + (K / Q + 1.0));
  const double twiceK2Minus1 = (K2 - 1.0) + (K2 - 1.0);
  switch (type) {
    case BiquadLowpass:
      c.a0 = K2 * norm;
      c.a1 = 2.0 * c.a0;
      c.a2 = c.a0;
      c.b1 = twiceK2Minus1 * norm;
      break;
    case BiquadHighpass:
      c.a0 = norm;
      c.a1 = -2.0 * norm;
      c.a2 = norm;
      c.b1 = twiceK2Minus1 * norm;
      break;
    case BiquadBandpass:
      c.a0 = (K / Q) * norm;
      c.a1 = 0.0;
      c.a2 = -c.a0;
      c.b1 = twiceK2Minus1 * norm;
      break;
    case BiquadNotch:
      c.a0 = (1.0 + K2) * norm;
      c.a1 = twiceK2Minus1 * norm;
      c.a2 = c.a0;
      c.b1 = c.a1;
      break;
    default:
      return {};
  }
  c.b2 = (K2 + (1.0 - K / Q)) * norm;
  return c;
}

}  // namespace Zephly
