// SPDX-License-Identifier: MIT
#include <zephly/dsp/biquad_filter.h>

namespace {

// Enough steps for the slowest filter of the chains to settle.
constexpr int settlingSteps = 50000;

int requireSection(int order) {
  Zephly::refuseNumbers("BiquadFilter: order", order, -1, 1);
  return order;
}

}  // namespace

BiquadFilter::BiquadFilter(BiquadFilterType type, double Fc, int order_, double Q)
    : order(requireSection(order_)),
      coefficients(Zephly::designBiquad(type, Fc, Q)),
      z1(order / 2),
      z2(order / 2) {}

double BiquadFilter::process(double x) {
  Filter::process(x);
  const auto [a0, a1, a2, b1, b2] = coefficients;
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
