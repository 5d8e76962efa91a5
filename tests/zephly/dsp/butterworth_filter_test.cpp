// SPDX-License-Identifier: MIT
#include <zephly/dsp/butterworth_filter.h>

#include <tests/support/bits.h>
#include <tests/support/random_floats.h>
#include <tests/zephly/motion/literal_motion.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>
#include <type_traits>

namespace {

using Zephly::ButterworthFilter;
using Zephly::Highpass;
using Zephly::Lowpass;
using Zephly::PassType;

float settled(ButterworthFilter filter, float input) {
  float output = 0.0F;
  for (int i = 0; i < 20000; ++i) output = filter.process(input);
  return output;
}

TEST(ButterworthFilterTest, PassTypesAreIntegersInOrder) {
  static_assert(std::is_same_v<std::underlying_type_t<PassType>, int>);
  EXPECT_EQ(static_cast<int>(Highpass), 0);
  EXPECT_EQ(static_cast<int>(Lowpass), 1);
}

TEST(ButterworthFilterTest, IsFifteenFieldsOf32BitsWithoutVirtualOperations) {
  static_assert(sizeof(ButterworthFilter) == 15 * sizeof(float));
  static_assert(!std::is_polymorphic_v<ButterworthFilter>);
  static_assert(std::is_trivially_copyable_v<ButterworthFilter>);
}

TEST(ButterworthFilterTest, ALowPassConvergesToAConstantInput) {
  EXPECT_NEAR(settled(ButterworthFilter(1, 60, Lowpass, 2), 3.5F), 3.5, 1e-4);
  EXPECT_NEAR(settled(ButterworthFilter(5, 100, Lowpass, 1.4F), -2), -2, 1e-5);
}

TEST(ButterworthFilterTest, AHighPassConvergesToZero) {
  EXPECT_NEAR(settled(ButterworthFilter(1, 500, Highpass, 2), 3.5F), 0, 1e-4);
  EXPECT_NEAR(settled(ButterworthFilter(5, 100, Highpass, 1.4F), -2), 0, 1e-5);
}

// Without feedback of the last output, so that outputs can be checked by hand.
TEST(ButterworthFilterTest, AQuarterOfTheSampleRateIsTheSameForBothTypesUpToSigns) {
  ButterworthFilter high(15, 60, Highpass, 2);
  ButterworthFilter low(15, 60, Lowpass, 2);
  EXPECT_EQ(high.process(4), 1);
  EXPECT_EQ(high.process(0), -2);
  EXPECT_EQ(high.process(0), 1);
  EXPECT_EQ(high.process(0), 0);
  EXPECT_EQ(low.process(4), 1);
  EXPECT_EQ(low.process(0), 2);
  EXPECT_EQ(low.process(0), 1);
  EXPECT_EQ(low.process(0), 0);
}

TEST(ButterworthFilterTest, TheFirstOutputIsTheFirstCoefficientTimesTheInput) {
  for (const bool highPass : {true, false}) {
    ButterworthFilter filter(1, 60, highPass ? Highpass : Lowpass, 2);
    const literal::TwoPole expected(1, 60, highPass, 2);
    EXPECT_SAME_BITS(filter.process(0.7F), (Single(expected.first()) * Single(0.7F)).value());
  }
}

TEST(ButterworthFilterTest, MoreResonanceTermDampsMore) {
  ButterworthFilter damped(5, 100, Lowpass, 2);
  ButterworthFilter resonant(5, 100, Lowpass, 0.2F);
  float dampedPeak = 0.0F;
  float resonantPeak = 0.0F;
  for (int i = 0; i < 200; ++i) {
    dampedPeak = std::max(dampedPeak, damped.process(1));
    resonantPeak = std::max(resonantPeak, resonant.process(1));
  }
  EXPECT_LT(dampedPeak, 1.001F);
  EXPECT_GT(resonantPeak, 1.5F);
}

TEST(ButterworthFilterTest, AnUnknownPassTypeGivesZero) {
  ButterworthFilter filter(1, 60, static_cast<PassType>(2), 2);
  for (int i = 0; i < 5; ++i) EXPECT_THAT(filter.process(1), SameBits(0.0F));
}

TEST(ButterworthFilterTest, ASampleRateOfZeroGivesNan) {
  ButterworthFilter filter(1, 0, Lowpass, 2);
  EXPECT_TRUE(std::isnan(filter.process(1)));
}

TEST(ButterworthFilterTest, HasTheBitsOfTheDesignForAnyParameters) {
  RandomFloats random(41);
  const int rates[] = {60, 500, 30, 100, 1, 44100, -60, 0, std::numeric_limits<int>::max()};
  for (int i = 0; i < 3000; ++i) {
    const float frequency = random.awkward(100, 10);
    const float resonance = random.awkward(3, 10);
    const int rate = rates[random.below(std::size(rates))];
    const bool highPass = i % 2 == 0;
    ButterworthFilter filter(frequency, rate, highPass ? Highpass : Lowpass, resonance);
    literal::TwoPole expected(frequency, rate, highPass, resonance);
    for (int k = 0; k < 20; ++k) {
      const float input = random.within(2);
      ASSERT_SAME_BITS(filter.process(input), expected.process(input).value())
          << frequency << " Hz of " << rate << ", resonance " << resonance;
    }
  }
}

TEST(ButterworthFilterTest, HasTheBitsOfTheRecursionOverALongSignal) {
  RandomFloats random(42);
  for (const bool highPass : {true, false}) {
    ButterworthFilter filter(1, highPass ? 500 : 60, highPass ? Highpass : Lowpass, 2);
    literal::TwoPole expected(1, highPass ? 500 : 60, highPass, 2);
    float level = 0.0F;
    for (int i = 0; i < 200000; ++i) {
      level = i % 1000 == 0 ? random.within(1e6F) : level + random.within(0.1F);
      ASSERT_SAME_BITS(filter.process(level), expected.process(level).value()) << i;
    }
  }
}

TEST(ButterworthFilterTest, HasTheBitsOfTheRecursionForAnyInput) {
  RandomFloats random(43);
  for (int run = 0; run < 500; ++run) {
    ButterworthFilter filter(1, 60, Lowpass, 2);
    literal::TwoPole expected(1, 60, false, 2);
    for (int i = 0; i < 40; ++i) {
      const float input = random.awkward(1e30F, 20);
      ASSERT_SAME_BITS(filter.process(input), expected.process(input).value());
    }
  }
}

}  // namespace
