// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Elementary functions whose last bit is the same everywhere. Those of the system's mathematical
/// library differ between systems; these use only sums, products and quotients in a fixed order.
/// Relative errors below 1e-13 (sine and cosine: absolute), in the ranges given.

#include <bit>
#include <cstdint>

namespace Zephly::vitals {

inline constexpr double circle = 6.283185307179586;

struct SineCosine {
  double sine;
  double cosine;
};

/// |x| up to 2 circles. Taylor series of an eighth of the angle, doubled three times.
inline SineCosine sineCosine(double x) {
  const double small = x / 8;
  double sine = 0;
  double cosine = 0;
  double term = 1;
  for (int n = 0; n < 24; n += 2) {
    cosine += term;
    term *= small / (n + 1);
    sine += term;
    term *= -small / (n + 2);
  }
  for (int doubling = 0; doubling < 3; ++doubling) {
    const double doubled = 2 * sine * cosine;
    cosine = cosine * cosine - sine * sine;
    sine = doubled;
  }
  return {sine, cosine};
}

/// e to the power of x, for x from -40 to 40.
inline double exponential(double x) {
  const double small = x / 64;
  double term = 1;
  double sum = 0;
  for (int n = 1; n < 20; ++n) {
    sum += term;
    term *= small / n;
  }
  for (int squaring = 0; squaring < 6; ++squaring) sum *= sum;
  return sum;
}

/// The logarithm to base 2 of a normal number above 0; absolute error below 1e-7.
inline double logarithm(double x) {
  const auto bits = std::bit_cast<std::uint64_t>(x);
  const int exponent = static_cast<int>(bits >> 52U) - 1023;
  const double mantissa =
      std::bit_cast<double>((bits & 0x000fffffffffffffULL) | 0x3ff0000000000000ULL);
  // atanh series: |t| is at most a third.
  const double t = (mantissa - 1) / (mantissa + 1);
  const double square = t * t;
  double sum = 0;
  for (int n = 13; n > 0; n -= 2) sum = sum * square + 1.0 / n;
  return exponent + 2 * t * sum * 1.4426950408889634;
}

}  // namespace Zephly::vitals
