// SPDX-License-Identifier: MIT
#include <simulator/random.h>

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <set>

namespace Zephly::simulator {
namespace {

TEST(RandomTest, ScramblesLikeThePublishedGenerator) {
  // The first numbers of SplitMix64 from the state 1234567, as published with it.
  EXPECT_EQ(scramble(1234567, 0), 6457827717110365317U);
  EXPECT_EQ(scramble(1234567, 1), 3203168211198807973U);
  EXPECT_EQ(scramble(1234567, 2), 9817491932198370423U);
}

TEST(RandomTest, BitsAreThoseOfTheStandardGenerator) {
  Random random(7, 3);
  std::mt19937_64 standard(scramble(7, 3));
  for (int i = 0; i < 1000; ++i) ASSERT_EQ(random.bits(), standard());
}

TEST(RandomTest, ASeedAndAPurposeDetermineTheSequence) {
  Random first(5);
  Random same(5);
  Random otherPurpose(5, 1);
  Random otherSeed(6);
  for (int i = 0; i < 100; ++i) {
    const double number = first.normal();
    ASSERT_EQ(number, same.normal());
    ASSERT_NE(number, otherPurpose.normal());
    ASSERT_NE(number, otherSeed.normal());
  }
}

TEST(RandomTest, UniformNumbersFillTheirRangeEvenly) {
  Random random(1);
  std::array<int, 10> tenths{};
  for (int i = 0; i < 100'000; ++i) {
    const double number = random.uniform(-3, 7);
    ASSERT_GE(number, -3);
    ASSERT_LT(number, 7);
    ++tenths.at(static_cast<std::size_t>(number + 3));
  }
  for (const int count : tenths) EXPECT_NEAR(count, 10'000, 500);
}

TEST(RandomTest, WholeNumbersAreEvenlySpread) {
  Random random(2);
  std::array<int, 7> counts{};
  for (int i = 0; i < 70'000; ++i) ++counts.at(random.below(7));
  for (const int count : counts) EXPECT_NEAR(count, 10'000, 500);
  EXPECT_EQ(random.below(1), 0U);
}

TEST(RandomTest, NormalNumbersHaveTheMomentsOfTheNormalDistribution) {
  Random random(3);
  constexpr int count = 200'000;
  std::array<double, 5> moments{};
  for (int i = 0; i < count; ++i) {
    const double number = random.normal();
    for (std::size_t k = 1; k < moments.size(); ++k)
      moments.at(k) += std::pow(number, static_cast<double>(k)) / count;
  }
  EXPECT_NEAR(moments[1], 0, 0.02);
  EXPECT_NEAR(moments[2], 1, 0.02);
  EXPECT_NEAR(moments[3], 0, 0.05);
  EXPECT_NEAR(moments[4], 3, 0.1);
}

TEST(RandomTest, ScrambledNumbersStayInTheirRangeAndDiffer) {
  std::set<double> seen;
  for (std::uint64_t i = 0; i < 1000; ++i) {
    const double number = scrambledUniform(9, i, 2, 3);
    EXPECT_GE(number, 2);
    EXPECT_LT(number, 3);
    seen.insert(number);
  }
  EXPECT_EQ(seen.size(), 1000U);
}

}  // namespace
}  // namespace Zephly::simulator
