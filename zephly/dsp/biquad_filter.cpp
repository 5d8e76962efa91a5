// SPDX-License-Identifier: MIT
#include <zephly/dsp/biquad_filter.h>

#include <cmath>
#include <numbers>

namespace {

constexpr double pi = std::numbers::pi;
static_assert(pi == 3.141592653589793);

// Enough steps for the slowest filter of the chains to settle.
constexpr int settlingSteps = 50000;

int requireSection(int order) {
  Zephly::refuseNumbers("BiquadFilter: order", order, -1, 1);
  return order;
}

}  // namespace

BiquadFilter::BiquadFilter(BiquadFilterType type, double Fc, int order_, double Q)
    : order(requireSection(order_)), z1(order / 2), z2(order / 2) {
  design(type, Fc, Q);
}

void BiquadFilter::design(BiquadFilterType type, double Fc, double Q) {
  const double K = std::tan(pi * Fc);
  const double K2 = K * K;
  const double norm = 1.0 / (K2 + (K / Q + 1.0));
  const double twiceK2Minus1 = (K2 - 1.0) + (K2 - 1.0);
  switch (type) {
    case BiquadLowpass:
      a0 = K2 * norm;
      a1 = 2.0 * a0;
      a2 = a0;
      b1 = twiceK2Minus1 * norm;
      break;
    case BiquadHighpass:
      a0 = norm;
      a1 = -2.0 * norm;
      a2 = norm;
      b1 = twiceK2Minus1 * norm;
      break;
    case BiquadBandpass:
      a0 = (K / Q) * norm;
      a1 = 0.0;
      a2 = -a0;
      b1 = twiceK2Minus1 * norm;
      break;
    case BiquadNotch:
      a0 = (1.0 + K2) * norm;
      a1 = twiceK2Minus1 * norm;
      a2 = a0;
      b1 = a1;
      break;
    default:
      return;  // no such type: all coefficients stay 0
  }
  b2 = (K2 + (1.0 - K / Q)) * norm;
}

double BiquadFilter::process(double x) {
  Filter::process(x);
  double value = x;
  for (int i = 0; i < order / 2; ++i) {
    const double y = a0 * value + z1[i];
    z1[i] = a1 * value + z2[i] - b1 * y;
    z2[i] = a2 * value - b2 * y;
    value = y;
  }
  return value;
}

void BiquadFilter::reset() {
  const double level = lastInput();
  for (int step = 0; step < settlingSteps; ++step) process(level);
}
