// SPDX-License-Identifier: MIT
#include <tools/view/body_estimate.h>

#include <zephly/dsp/signal_processor.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <limits>
#include <optional>

namespace Zephly::view {
namespace {

using namespace std::chrono_literals;

// `count` steady readings, one a second from `first` on.
void takeReadings(BodyEstimate& estimate, StrapTime first, int count) {
  for (int i = 0; i < count; ++i) estimate.take(first + i * 1s, 34, 25);
}

TEST(BodyEstimateTest, HasNoValueUntilTwentyReadings) {
  BodyEstimate estimate;
  EXPECT_EQ(estimate.readings(), 0U);
  takeReadings(estimate, 1s, 19);
  EXPECT_EQ(estimate.readings(), 19U);
  EXPECT_EQ(estimate.celsius(), std::nullopt);
  estimate.take(20s, 34, 25);
  EXPECT_EQ(estimate.readings(), 20U);
  EXPECT_EQ(estimate.celsius(), 36.8F);
  takeReadings(estimate, 21s, 100);
  EXPECT_EQ(estimate.readings(), 20U);
}

TEST(BodyEstimateTest, IsTheEnginesValueForAllReadingsSoFar) {
  BodyEstimate estimate;
  SignalProcessor engine;
  for (int i = 0; i < 60; ++i) {
    const float skin = 33 + static_cast<float>(i % 7) / 3;
    const float ambient = 22 + static_cast<float>(i) / 20;
    estimate.take(i * 1s, skin, ambient);
    const float expected = engine.processBodyTemperature(skin, ambient);
    if (i < 19) continue;
    EXPECT_EQ(estimate.celsius(), expected) << i;
  }
}

TEST(BodyEstimateTest, AShortLinkLossDoesNotUnsettleIt) {
  BodyEstimate estimate;
  takeReadings(estimate, 1s, 20);
  estimate.take(28s, 34, 25);
  EXPECT_EQ(estimate.readings(), 20U);
  EXPECT_TRUE(estimate.celsius());
}

TEST(BodyEstimateTest, SettlesAnewAfterALongLinkLoss) {
  BodyEstimate estimate;
  takeReadings(estimate, 1s, 20);
  takeReadings(estimate, 100s, 19);
  EXPECT_EQ(estimate.readings(), 19U);
  EXPECT_EQ(estimate.celsius(), std::nullopt);
  estimate.take(119s, 34, 25);
  EXPECT_EQ(estimate.celsius(), 36.8F);
}

TEST(BodyEstimateTest, ReadingsOfThirtySecondsAreRecent) {
  BodyEstimate estimate;
  takeReadings(estimate, 1s, 19);
  estimate.take(31s, 34, 25);
  EXPECT_EQ(estimate.readings(), 20U);
  estimate.take(31s + 1us, 34, 25);
  EXPECT_EQ(estimate.readings(), 20U);
  estimate.take(33s + 1us, 34, 25);
  EXPECT_EQ(estimate.readings(), 19U);
}

TEST(BodyEstimateTest, AReadingThatIsNoNumberUnsettlesIt) {
  for (const float bad : {std::numeric_limits<float>::quiet_NaN(), HUGE_VALF}) {
    for (const bool skin : {true, false}) {
      BodyEstimate estimate;
      takeReadings(estimate, 1s, 20);
      estimate.take(21s, skin ? bad : 34, skin ? 25 : bad);
      EXPECT_EQ(estimate.readings(), 0U);
      takeReadings(estimate, 22s, 19);
      EXPECT_EQ(estimate.celsius(), std::nullopt);
      estimate.take(41s, 34, 25);
      EXPECT_EQ(estimate.celsius(), 36.8F);
    }
  }
}

}  // namespace
}  // namespace Zephly::view
