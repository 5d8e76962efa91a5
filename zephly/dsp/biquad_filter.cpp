#include <zephly/dsp/biquad_filter.h>

#include <cmath>
#include <numbers>

namespace {

constexpr double pi = std::numbers::pi;
static_assert(pi == 3.141592653589793);

// Enough steps for the slowest filter of the chains to settle.
constexpr int settlingSteps = 50000;

int requireSection(int order) {
  refuseNumbers("BiquadFilter: order", order, -1, 1);
  return order;
}

}  // namespace

BiquadFilter::BiquadFilter(BiquadFilterType type, double Fc, int order, double Q)
    : order_(requireSection(order)), z1_(order / 2), z2_(order / 2) {
  design(type, Fc, Q);
}

void BiquadFilter::design(BiquadFilterType type, double Fc, double Q) {
  const double K = std::tan(pi * Fc);
  const double K2 = K * K;
  const double norm = 1.0 / (K2 + (K / Q + 1.0));
  const double twiceK2Minus1 = (K2 - 1.0) + (K2 - 1.0);
  switch (type) {
    case BiquadLowpass:
      a0_ = K2 * norm;
      a1_ = 2.0 * a0_;
      a2_ = a0_;
      b1_ = twiceK2Minus1 * norm;
      break;
    case BiquadHighpass:
      a0_ = norm;
      a1_ = -2.0 * norm;
      a2_ = norm;
      b1_ = twiceK2Minus1 * norm;
      break;
    case BiquadBandpass:
      a0_ = (K / Q) * norm;
      a1_ = 0.0;
      a2_ = -a0_;
      b1_ = twiceK2Minus1 * norm;
      break;
    case BiquadNotch:
      a0_ = (1.0 + K2) * norm;
      a1_ = twiceK2Minus1 * norm;
      a2_ = a0_;
      b1_ = a1_;
      break;
    default:
      return;  // no such type: all coefficients stay 0
  }
  b2_ = (K2 + (1.0 - K / Q)) * norm;
}

double BiquadFilter::process(double x) {
  Filter::process(x);
  double value = x;
  for (int i = 0; i < order_ / 2; ++i) {
    const double y = a0_ * value + z1_[i];
    z1_[i] = a1_ * value + z2_[i] - b1_ * y;
    z2_[i] = a2_ * value - b2_ * y;
    value = y;
  }
  return value;
}

void BiquadFilter::reset() {
  const double level = lastInput();
  for (int step = 0; step < settlingSteps; ++step) process(level);
}
