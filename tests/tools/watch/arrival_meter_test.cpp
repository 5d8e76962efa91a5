// SPDX-License-Identifier: MIT
#include <tools/watch/arrival_meter.h>

#include <gtest/gtest.h>

#include <chrono>

namespace Zephly::watch {
namespace {

using namespace std::chrono_literals;

TEST(ArrivalMeterTest, HasNoFiguresBeforeTheFirstSample) {
  ArrivalMeter meter;
  meter.stop(10s);
  EXPECT_FALSE(meter.longestGap());
  EXPECT_FALSE(meter.perSecond());
}

TEST(ArrivalMeterTest, CountsFromTheFirstSampleOn) {
  ArrivalMeter meter;
  for (const auto time : {5s, 6s, 8s, 9s}) meter.count(time);
  meter.stop(9s);
  EXPECT_EQ(meter.longestGap(), 2s);
  EXPECT_EQ(meter.perSecond(), 1.0);
}

TEST(ArrivalMeterTest, IncludesSilenceUntilTheEnd) {
  ArrivalMeter meter;
  meter.count(1s);
  meter.count(2s);
  meter.stop(9s);
  EXPECT_EQ(meter.longestGap(), 7s);
  EXPECT_EQ(meter.perSecond(), 0.25);
}

TEST(ArrivalMeterTest, ExcludesTheTimeWithoutALink) {
  ArrivalMeter meter;
  meter.count(1s);
  meter.stop(2s);
  meter.stop(50s);
  meter.count(100s);
  meter.count(101s);
  meter.stop(103s);
  EXPECT_EQ(meter.longestGap(), 2s);
  EXPECT_EQ(meter.perSecond(), 0.75);
}

TEST(ArrivalMeterTest, SimultaneousSamplesHaveNoRate) {
  ArrivalMeter meter;
  meter.count(1s);
  meter.count(1s);
  meter.stop(1s);
  EXPECT_EQ(meter.longestGap(), 0s);
  EXPECT_FALSE(meter.perSecond());
}

}  // namespace
}  // namespace Zephly::watch
