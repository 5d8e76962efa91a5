// SPDX-License-Identifier: MIT
#include <vitals/heart_rate.h>

#include <gtest/gtest.h>

namespace Zephly::vitals {
namespace {

using namespace std::chrono_literals;

Beat beatAt(Time time, std::optional<double> rr, double quality = 1) {
  return {.time = time, .rr = rr, .amplitude = 1, .quality = quality, .kind = BeatClass::normal};
}

HeartRate steady(Time rr, int beats) {
  HeartRate rate;
  for (int i = 1; i <= beats; ++i) {
    const auto interval =
        i == 1 ? std::nullopt : std::optional(std::chrono::duration<double>(rr).count());
    rate.take(beatAt(i * rr, interval));
  }
  return rate;
}

TEST(HeartRateTest, IsTheMedianOfTheIntervals) {
  HeartRate rate;
  rate.take(beatAt(1s, std::nullopt));
  rate.take(beatAt(1800ms, 0.8));
  rate.take(beatAt(2300ms, 0.5));
  rate.take(beatAt(3200ms, 0.9));
  const auto value = rate.at(3500ms);
  EXPECT_NEAR(value.perMinute.value(), 75, 1e-9);
  EXPECT_NEAR(value.quality, 1, 1e-9);
}

TEST(HeartRateTest, OfAnEvenNumberItIsTheMeanOfTheTwoInTheMiddle) {
  HeartRate rate = steady(1s, 4);
  rate.take(beatAt(4500ms, 0.5));
  rate.take(beatAt(5000ms, 0.5));
  rate.take(beatAt(5500ms, 0.5));
  EXPECT_NEAR(rate.at(6s).perMinute.value(), 80, 1e-9);
}

TEST(HeartRateTest, NeedsThreeIntervals) {
  EXPECT_FALSE(steady(1s, 3).at(3s).perMinute);
  EXPECT_TRUE(steady(1s, 4).at(4s).perMinute);
}

TEST(HeartRateTest, AnswersFrom25To240) {
  EXPECT_NEAR(steady(2400ms, 10).at(24s + 2s).perMinute.value(), 25, 1e-9);
  EXPECT_NEAR(steady(250ms, 100).at(25s).perMinute.value(), 240, 1e-9);
}

TEST(HeartRateTest, VanishesThreeSecondsAfterTheLastBeat) {
  EXPECT_TRUE(steady(1s, 8).at(11s).perMinute);
  EXPECT_FALSE(steady(1s, 8).at(11s + 1ms).perMinute);
}

TEST(HeartRateTest, DoesNotLookBeyondNow) {
  HeartRate rate = steady(1s, 8);
  const auto before = rate.at(8s);
  for (int i = 1; i <= 9; ++i) rate.take(beatAt(8s + i * 300ms, 0.3));
  EXPECT_EQ(rate.at(8s).perMinute, before.perMinute);
}

TEST(HeartRateTest, ForgetsWhatIsOlderThanTenSeconds) {
  HeartRate rate = steady(1s, 20);
  for (int i = 1; i <= 21; ++i) rate.take(beatAt(20s + i * 500ms, 0.5));
  EXPECT_NEAR(rate.at(30500ms).perMinute.value(), 120, 1e-9);
}

TEST(HeartRateTest, AnArtefactCostsBothOfItsIntervals) {
  HeartRate rate = steady(1s, 5);
  Beat artefact = beatAt(5300ms, 0.3);
  artefact.kind = BeatClass::artefact;
  rate.take(artefact);
  rate.take(beatAt(6s, 0.7));
  rate.take(beatAt(7s, 1.0));
  const auto value = rate.at(7s);
  EXPECT_NEAR(value.perMinute.value(), 60, 1e-9);
  EXPECT_NEAR(value.quality, 7.0 / 8 * 5 / 6, 1e-9);
}

TEST(HeartRateTest, IsAbsentWhenItsQualityIsLow) {
  HeartRate rate;
  rate.take(beatAt(1s, std::nullopt, 0.2));
  for (int i = 2; i <= 8; ++i) rate.take(beatAt(i * 1s, 1.0, 0.2));
  const auto value = rate.at(8s);
  EXPECT_FALSE(value.perMinute);
  EXPECT_NEAR(value.quality, 0.2, 1e-9);
}

TEST(HeartRateTest, AGapLowersTheQuality) {
  HeartRate rate = steady(1s, 4);
  rate.take(beatAt(8s, std::nullopt));
  rate.take(beatAt(9s, 1.0));
  EXPECT_NEAR(rate.at(9s).quality, 4.0 / 8, 1e-9);
}

TEST(HeartRateTest, HasForgottenEverythingAfterClear) {
  HeartRate rate = steady(1s, 8);
  rate.clear();
  EXPECT_FALSE(rate.at(8s).perMinute);
}

}  // namespace
}  // namespace Zephly::vitals
