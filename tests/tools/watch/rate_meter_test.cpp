// SPDX-License-Identifier: MIT
#include <tools/watch/rate_meter.h>

#include <gtest/gtest.h>

#include <chrono>
#include <optional>

namespace Zephly::watch {
namespace {

using namespace std::chrono_literals;

TEST(RateMeterTest, IsStationaryForEachStreamOfTheStrap) {
  RateMeter waveform;
  RateMeter motion;
  StrapTime nextMotion{};
  for (StrapTime now{}; now < 20s; now += 12ms) {
    for (int sample = 0; sample < 6; ++sample) waveform.count(now);
    for (; nextMotion <= now; nextMotion += 33'333'333ns) motion.count(now);
    if (now < 4s) continue;
    ASSERT_EQ(waveform.perSecond(now), 500) << now.count();
    ASSERT_NEAR(*motion.perSecond(now), 30, 0.4) << now.count();
  }
}

TEST(RateMeterTest, IsEmptyInTheFirstSecondAndRightFromThenOn) {
  RateMeter meter;
  for (StrapTime now = 5040ms; now < 9s; now += 12ms) {
    for (int sample = 0; sample < 6; ++sample) meter.count(now);
    const auto rate = meter.perSecond(now);
    ASSERT_EQ(rate.has_value(), now >= 6100ms) << now.count();
    ASSERT_NEAR(rate.value_or(500), 500, 6) << now.count();
  }
}

TEST(RateMeterTest, FallsToZeroWithinItsWindow) {
  RateMeter meter;
  for (StrapTime now{}; now < 1s; now += 10ms) meter.count(now);
  EXPECT_FALSE(meter.perSecond(1050ms)) << "the step is not complete";
  EXPECT_EQ(meter.perSecond(1100ms), 90);
  EXPECT_EQ(meter.perSecond(3900ms), 10.0 / 3);
  EXPECT_EQ(meter.perSecond(4s), 0);
  EXPECT_EQ(meter.perSecond(1000h), 0);
  meter.count(1000h);
  EXPECT_EQ(meter.perSecond(1000h + 200ms), 1.0 / 3);
}

TEST(RateMeterTest, BeginsAgainWithANewLink) {
  RateMeter meter;
  EXPECT_FALSE(meter.perSecond(100s));
  for (StrapTime now{}; now < 10s; now += 10ms) meter.count(now);
  meter.restart(10s);
  EXPECT_FALSE(meter.perSecond(10s)) << "nothing of the last link counts";
  EXPECT_EQ(meter.perSecond(13s), 0) << "no sample in the whole window";
  for (StrapTime now = 13s; now < 14200ms; now += 10ms) meter.count(now);
  EXPECT_FALSE(meter.perSecond(14s));
  EXPECT_EQ(meter.perSecond(14100ms), 100);
}

}  // namespace
}  // namespace Zephly::watch
