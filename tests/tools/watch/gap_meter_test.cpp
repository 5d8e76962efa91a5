// SPDX-License-Identifier: MIT
#include <tools/watch/gap_meter.h>

#include <gtest/gtest.h>

#include <chrono>

namespace Zephly::watch {
namespace {

using namespace std::chrono_literals;

TEST(GapMeterTest, NothingIsMissingBeforeTheFirstSample) {
  GapMeter meter(1s);
  EXPECT_FALSE(meter.missing(10s));
  EXPECT_FALSE(meter.share(10s));
  meter.count(10s);
  EXPECT_EQ(meter.missing(10s), 0s);
  EXPECT_FALSE(meter.share(10s)) << "no time has passed";
}

TEST(GapMeterTest, SumsSilencesLongerThanTheLimit) {
  GapMeter meter(1s);
  meter.count(10s);
  meter.count(11s);
  EXPECT_EQ(meter.missing(11s), 0s);
  meter.count(13s);
  meter.count(18s);
  EXPECT_EQ(meter.missing(18s), 7s);
  EXPECT_EQ(meter.share(18s), 7.0 / 8);
}

TEST(GapMeterTest, IncludesTheSilenceUntilNow) {
  GapMeter meter(1s);
  meter.count(10s);
  EXPECT_EQ(meter.missing(11s), 0s);
  EXPECT_EQ(meter.missing(12s), 2s);
  EXPECT_EQ(meter.share(12s), 1);
}

TEST(GapMeterTest, TheLimitOfAStreamIsManyTimesItsInterval) {
  EXPECT_EQ(gapLimit(Stream::ecg), 500ms);
  EXPECT_EQ(gapLimit(Stream::temperature), 2500ms);
  EXPECT_EQ(gapLimit(Stream::battery), 25s);
}

}  // namespace
}  // namespace Zephly::watch
