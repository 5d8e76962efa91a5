// SPDX-License-Identifier: MIT
#include <zephly/dsp/body_temperature_estimator.h>

#include <tests/support/bits.h>
#include <tests/support/random_floats.h>
#include <tests/support/recording.h>
#include <tests/support/single.h>
#include <tests/support/special_floats.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>
#include <vector>

namespace {

using Zephly::BodyTemperatureEstimator;

constexpr float beyondIntegers = -214748364.8F;

// A reference implementation of the rule.
class Estimate {
 public:
  float process(float object, float ambient) {
    objects.push_back(object);
    ambients.push_back(ambient);
    const Single skin = mean(objects, 5);
    const Single surroundings = mean(ambients, 20);
    const bool cool = skin.value() <= std::bit_cast<float>(0x420F5555U);
    const Single slope = std::bit_cast<float>(cool ? 0xBD946017U : 0x3C2D4BFEU);
    const Single offset = std::bit_cast<float>(cool ? 0x4071F6A9U : 0x3F4E3A4BU);
    const Single factor = skin * slope + offset;
    const Single core = (skin - surroundings) * factor + surroundings;
    const double tenths = std::trunc((core * Single(10.0F)).value());
    const bool fits = tenths >= -2147483648.0 && tenths <= 2147483647.0;
    // Plus zero: integers have no negative zero.
    const Single whole = static_cast<float>(fits ? tenths + 0.0 : -2147483648.0);
    return (whole / Single(10.0F)).value();
  }

 private:
  static Single mean(const std::vector<float>& all, std::size_t window) {
    const std::size_t count = std::min(all.size(), window);
    Single sum = 0.0F;
    for (std::size_t i = all.size() - count; i < all.size(); ++i) sum = sum + all[i];
    return sum / Single(static_cast<float>(count));
  }

  std::vector<float> objects;
  std::vector<float> ambients;
};

float first(float object, float ambient) {
  return BodyTemperatureEstimator().process(object, ambient);
}

TEST(BodyTemperatureEstimatorTest, TheFirstReadingsAreAveragedAlone) {
  EXPECT_THAT(first(34.0F, 25.0F), SameBits(36.8F));
}

TEST(BodyTemperatureEstimatorTest, AWarmSkinTakesTheSecondPiece) {
  EXPECT_THAT(first(36.0F, 25.0F), SameBits(38.0F));
}

TEST(BodyTemperatureEstimatorTest, ConstantReadingsGiveAConstantEstimate) {
  BodyTemperatureEstimator estimator;
  for (int i = 0; i < 100; ++i) ASSERT_THAT(estimator.process(34.0F, 25.0F), SameBits(36.8F));
}

// The two pieces of the function nearly meet at the knee. With an ambient temperature this extreme
// their results differ by more than the rounding to tenths.
TEST(BodyTemperatureEstimatorTest, TheKneeItselfBelongsToTheFirstPiece) {
  const float knee = 35.833332F;
  const float ambient = -1e6F;
  const auto estimate = [&](float slope, float offset) {
    const Single skin = knee;
    const Single outside = ambient;
    const Single core = (skin - outside) * (skin * Single(slope) + Single(offset)) + outside;
    return (Single(std::trunc((core * Single(10.0F)).value())) / Single(10.0F)).value();
  };
  const float firstPiece = estimate(-0.0724489F, 3.78068F);
  const float secondPiece = estimate(0.0105772F, 0.805577F);
  ASSERT_NE(firstPiece, secondPiece);
  EXPECT_THAT(first(knee, ambient), SameBits(firstPiece));
}

TEST(BodyTemperatureEstimatorTest, JustAboveTheKneeIsTheSecondPiece) {
  const float above = std::nextafter(35.833332F, 40.0F);
  Estimate expected;
  EXPECT_THAT(first(above, -1e6F), SameBits(expected.process(above, -1e6F)));
}

// With equal temperatures the estimate is the temperature, for every factor.
TEST(BodyTemperatureEstimatorTest, EqualTemperaturesAreTheEstimate) {
  for (const float temperature : {-40.0F, 0.0F, 20.5F, 35.0F, 36.5F, 42.0F}) {
    EXPECT_THAT(first(temperature, temperature), SameBits(temperature));
  }
}

TEST(BodyTemperatureEstimatorTest, TruncatesTowardsZero) {
  EXPECT_THAT(first(36.89F, 36.89F), SameBits(36.8F));
  EXPECT_THAT(first(-1.27F, -1.27F), SameBits(-1.2F));
  EXPECT_THAT(first(0.09F, 0.09F), SameBits(0.0F));
  EXPECT_THAT(first(-0.09F, -0.09F), SameBits(0.0F));
}

// Only the readings in the windows are equal to each other.
TEST(BodyTemperatureEstimatorTest, TheSkinIsAveragedOverFiveReadingsAndTheSurroundingsOverTwenty) {
  BodyTemperatureEstimator estimator;
  Estimate expected;
  float result = 0.0F;
  for (const float object : {30.0F, 31.0F, 32.0F, 33.0F, 34.0F, 35.0F}) {
    result = estimator.process(object, object);
    EXPECT_THAT(result, SameBits(expected.process(object, object)));
  }
  // Skin 33 (the last five), surroundings 32.5 (all six).
  EXPECT_THAT(result, SameBits(first(33.0F, 32.5F)));
  for (int i = 0; i < 20; ++i) result = estimator.process(20.0F, 20.0F);
  EXPECT_THAT(result, SameBits(20.0F));
}

TEST(BodyTemperatureEstimatorTest, WindowsEndAfterTheirLastReading) {
  BodyTemperatureEstimator estimator;
  estimator.process(100.0F, 20.0F);
  for (int i = 0; i < 4; ++i) EXPECT_NE(estimator.process(20.0F, 20.0F), 20.0F) << i;
  EXPECT_EQ(estimator.process(20.0F, 20.0F), 20.0F);
  estimator.process(20.0F, 100.0F);
  for (int i = 0; i < 19; ++i) EXPECT_NE(estimator.process(20.0F, 20.0F), 20.0F) << i;
  EXPECT_EQ(estimator.process(20.0F, 20.0F), 20.0F);
}

TEST(BodyTemperatureEstimatorTest, GivesTheSmallestIntegerForAnUnrepresentableEstimate) {
  EXPECT_THAT(first(notANumber, 25.0F), SameBits(beyondIntegers));
  EXPECT_THAT(first(34.0F, notANumber), SameBits(beyondIntegers));
  EXPECT_THAT(first(infinity, 25.0F), SameBits(beyondIntegers));
  EXPECT_THAT(first(3e8F, 3e8F), SameBits(beyondIntegers));
  EXPECT_THAT(first(-3e8F, -3e8F), SameBits(beyondIntegers));
  EXPECT_THAT(first(2e8F, 2e8F), SameBits(2e8F));
}

TEST(BodyTemperatureEstimatorTest, ANanReadingSpoilsTheEstimateWhileItIsInItsWindow) {
  BodyTemperatureEstimator estimator;
  estimator.process(notANumber, 25.0F);
  for (int i = 0; i < 4; ++i) EXPECT_EQ(estimator.process(34.0F, 25.0F), beyondIntegers) << i;
  EXPECT_THAT(estimator.process(34.0F, 25.0F), SameBits(36.8F));
}

TEST(BodyTemperatureEstimatorTest, HasTheBitsOfTheRule) {
  RandomFloats random(47);
  BodyTemperatureEstimator estimator;
  Estimate expected;
  for (int i = 0; i < 20000; ++i) {
    const float object = 34.5F + random.within(4);
    const float ambient = 22.0F + random.within(15);
    ASSERT_SAME_BITS(estimator.process(object, ambient), expected.process(object, ambient)) << i;
  }
}

TEST(BodyTemperatureEstimatorTest, HasTheBitsOfTheRuleForAnyReadings) {
  RandomFloats random(48);
  BodyTemperatureEstimator estimator;
  Estimate expected;
  for (int i = 0; i < 20000; ++i) {
    const float object = random.awkward(1e9F, 40);
    const float ambient = random.awkward(1e3F, 40);
    ASSERT_SAME_BITS(estimator.process(object, ambient), expected.process(object, ambient)) << i;
  }
}

TEST(BodyTemperatureEstimatorTest, HasTheBitsOfTheRuleOverARecording) {
  const auto rows = readRecording("skin_temperature_4hz.csv");
  BodyTemperatureEstimator estimator;
  Estimate expected;
  for (std::size_t i = 2; i < rows.size(); ++i) {  // after start time and rate
    const float skin = rows[i].at(0);
    const float result = estimator.process(skin, 22.0F);
    ASSERT_SAME_BITS(result, expected.process(skin, 22.0F)) << i;
    ASSERT_GT(result, 30);
    ASSERT_LT(result, 42);
  }
}

}  // namespace
