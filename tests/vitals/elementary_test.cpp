// SPDX-License-Identifier: MIT
#include <vitals/elementary.h>

#include <gtest/gtest.h>

#include <cmath>

namespace Zephly::vitals {
namespace {

TEST(ElementaryTest, SineAndCosineKeepTheirError) {
  for (double x = -12.5; x <= 12.5; x += 0.01) {
    const SineCosine result = sineCosine(x);
    EXPECT_NEAR(result.sine, std::sin(x), 1e-13) << x;
    EXPECT_NEAR(result.cosine, std::cos(x), 1e-13) << x;
  }
}

TEST(ElementaryTest, ExponentialKeepsItsError) {
  for (double x = -40; x <= 40; x += 0.01) {
    EXPECT_NEAR(exponential(x) / std::exp(x), 1, 1e-13) << x;
  }
}

TEST(ElementaryTest, LogarithmKeepsItsError) {
  for (double x = 1e-30; x < 1e30; x *= 1.01) {
    EXPECT_NEAR(logarithm(x), std::log2(x), 1e-7) << x;
  }
}

}  // namespace
}  // namespace Zephly::vitals
