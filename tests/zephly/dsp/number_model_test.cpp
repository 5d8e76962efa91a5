// SPDX-License-Identifier: MIT
// The assumptions of every result of the kit: each operation is rounded once to its own type, to
// nearest, and nothing is reassociated, fused or flushed. A build with other flags fails here.

#include <gtest/gtest.h>

#include <cfenv>
#include <cfloat>
#include <cmath>
#include <limits>

namespace {

// Values unknown to the compiler.
template <class Number>
Number opaque(Number value) {
  volatile Number hidden = value;
  return hidden;
}

TEST(NumberModelTest, FloatsAreTheIeeeFormats) {
  static_assert(std::numeric_limits<float>::is_iec559 && sizeof(float) == 4);
  static_assert(std::numeric_limits<double>::is_iec559 && sizeof(double) == 8);
  static_assert(FLT_RADIX == 2 && FLT_MANT_DIG == 24 && DBL_MANT_DIG == 53);
  EXPECT_EQ(std::fegetround(), FE_TONEAREST);
}

TEST(NumberModelTest, ExpressionsAreEvaluatedInTheirOwnType) { EXPECT_EQ(FLT_EVAL_METHOD, 0); }

TEST(NumberModelTest, NoFastMathIsDeclared) {
#if defined(__FAST_MATH__) || (defined(__FINITE_MATH_ONLY__) && __FINITE_MATH_ONLY__ != 0)
  FAIL() << "compiled with a fast-math option";
#endif
}

// The product of `a` with itself ends in a bit that the first rounding removes.
template <class Number>
void expectTwoRoundings(Number a, Number minusProduct) {
  const Number x = opaque(a);
  const Number y = opaque(a);
  const Number c = opaque(minusProduct);
  EXPECT_EQ(x * y + c, Number(0));
  EXPECT_EQ(c + x * y, Number(0));
  EXPECT_EQ(c - (-x) * y, Number(0));
  EXPECT_NE(std::fma(x, y, c), Number(0));  // the result of a fused build
}

TEST(NumberModelTest, ASumOfAProductIsRoundedTwice) {
  expectTwoRoundings<float>(1.0F + 0x1p-12F, -(1.0F + 0x1p-11F));
  expectTwoRoundings<double>(1.0 + 0x1p-27, -(1.0 + 0x1p-26));
}

TEST(NumberModelTest, IntermediateResultsHaveNoLargerRange) {
  const float large = opaque(FLT_MAX);
  EXPECT_TRUE(std::isinf(large * opaque(2.0F) * opaque(0.5F)));
  const double huge = opaque(DBL_MAX);
  EXPECT_TRUE(std::isinf(huge * opaque(2.0) * opaque(0.5)));
}

TEST(NumberModelTest, IntermediateResultsHaveNoMoreDigits) {
  EXPECT_EQ(opaque(16777216.0F) + opaque(1.0F) - opaque(16777216.0F), 0.0F);
  EXPECT_EQ(opaque(9007199254740992.0) + opaque(1.0) - opaque(9007199254740992.0), 0.0);
}

TEST(NumberModelTest, SumsAreNotReassociated) {
  const float a = opaque(1.0e8F);
  const float b = opaque(1.0F);
  EXPECT_EQ((a + b) - a, 0.0F);
  const double c = opaque(1.0e17);
  const double d = opaque(1.0);
  EXPECT_EQ((c + d) - c, 0.0);
}

TEST(NumberModelTest, NotANumberIsUnequalToItself) {
  const float x = opaque(std::numeric_limits<float>::quiet_NaN());
  EXPECT_TRUE(x != x);  // NOLINT(misc-redundant-expression): this very comparison is meant
  EXPECT_FALSE(x <= 0.0F || x > 0.0F);
}

TEST(NumberModelTest, ZeroKeepsItsSign) {
  const float x = opaque(-0.0F);
  EXPECT_FALSE(std::signbit(x + 0.0F));
  EXPECT_TRUE(std::signbit(x - 0.0F));
}

TEST(NumberModelTest, SubnormalNumbersAreKept) {
  EXPECT_GT(opaque(FLT_MIN) / opaque(2.0F), 0.0F);
  EXPECT_GT(opaque(std::numeric_limits<float>::denorm_min()) * opaque(2.0F), 0.0F);
  EXPECT_GT(opaque(DBL_MIN) / opaque(2.0), 0.0);
}

TEST(NumberModelTest, QuotientsAndRootsAreRoundedCorrectly) {
  for (int divisor = 1; divisor < 2000; ++divisor) {
    const float x = opaque(static_cast<float>(divisor));
    ASSERT_EQ(7.0F / x, static_cast<float>(7.0 / static_cast<double>(divisor)));
    ASSERT_EQ(std::sqrt(x), static_cast<float>(std::sqrt(static_cast<double>(divisor))));
  }
}

}  // namespace
