// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Single-precision arithmetic spelled out, for restating a rule in a test.
///
///     const Single sum = a * b + c;  // rounded to float after the product and after the sum
///
/// Every operator computes in double and rounds once to float. For one sum, difference, product,
/// quotient or square root of floats that is the correctly rounded single-precision result (double
/// has more than twice the digits), however the compiler treats float expressions.

#include <cmath>

class Single {
 public:
  constexpr Single() = default;
  constexpr Single(float value) : value_(value) {}  // NOLINT(google-explicit-constructor): a number
  constexpr float value() const { return value_; }

  friend Single operator+(Single a, Single b) { return rounded(a.wide() + b.wide()); }
  friend Single operator-(Single a, Single b) { return rounded(a.wide() - b.wide()); }
  friend Single operator*(Single a, Single b) { return rounded(a.wide() * b.wide()); }
  friend Single operator/(Single a, Single b) { return rounded(a.wide() / b.wide()); }
  friend Single operator-(Single a) { return {-a.value_}; }
  friend Single squareRoot(Single a) { return rounded(std::sqrt(a.wide())); }

 private:
  static Single rounded(double value) { return {static_cast<float>(value)}; }
  constexpr double wide() const { return value_; }

  float value_ = 0.0F;
};
