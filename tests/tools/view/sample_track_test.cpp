// SPDX-License-Identifier: MIT
#include <tools/view/sample_track.h>

#include <tests/tools/view/decoded.h>
#include <zephly/protocol/strap_time.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <vector>

namespace Zephly::view {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

// Frames of six samples, 12 ms apart, as a strap sends them; values count up.
class SampleTrackTest : public testing::Test {
 protected:
  void frames(StrapTime first, int count, StrapTime apart = 12ms) {
    for (int frame = 0; frame < count; ++frame) {
      for (int i = 0; i < 6; ++i) track.append(first + frame * apart, std::array{value_++});
    }
  }
  std::vector<Samples> take(StrapTime now = 0s) { return decodedAll(track.take(now)); }

  SampleTrack track{Trace::ecg};

 private:
  float value_ = 0;
};

TEST_F(SampleTrackTest, SpacesTheSamplesOfAFrameEvenlyFromItsArrival) {
  frames(1s, 2);
  const auto taken = take();
  ASSERT_THAT(taken, SizeIs(1));
  EXPECT_EQ(taken[0].trace, Trace::ecg);
  EXPECT_EQ(taken[0].index, 0U);
  EXPECT_EQ(taken[0].seconds, 1.0);
  EXPECT_THAT(taken[0].values, ElementsAre(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11));
  EXPECT_EQ(track.pending(), 0U);
  EXPECT_THAT(take(), IsEmpty());
}

TEST_F(SampleTrackTest, TheNextBatchContinuesNumbersAndTime) {
  frames(1s, 2);
  take();
  frames(1024ms, 1);
  const auto taken = take();
  ASSERT_THAT(taken, SizeIs(1));
  EXPECT_EQ(taken[0].index, 12U);
  EXPECT_EQ(taken[0].seconds, 1.024);
}

TEST_F(SampleTrackTest, JitterDoesNotMoveTheAxis) {
  frames(1s, 1);
  frames(1200ms, 1);
  frames(1201ms, 1);
  frames(1036ms + 249ms, 1);
  const auto taken = take();
  ASSERT_THAT(taken, SizeIs(1));
  EXPECT_THAT(taken[0].values, SizeIs(24));
}

TEST_F(SampleTrackTest, SlightlyLateArrivalsDoNotMoveTheAxis) {
  frames(1s, 1);
  frames(1012ms + 240ms, 100);
  const auto taken = take();
  ASSERT_THAT(taken, SizeIs(1));
  EXPECT_THAT(taken[0].values, SizeIs(606));
}

TEST_F(SampleTrackTest, ALostLinkIsAGapInTimeButNotInIndexes) {
  frames(1s, 1);
  track.interrupt();
  frames(3s, 1);
  const auto taken = take();
  ASSERT_THAT(taken, SizeIs(2));
  EXPECT_EQ(taken[1].index, 6U);
  EXPECT_EQ(taken[1].seconds, 3.0);
}

TEST_F(SampleTrackTest, AnImmediateReconnectDoesNotGoBackInTime) {
  frames(1s, 10, 0ms);  // a burst: laid until 1.12 s
  track.interrupt();
  frames(1010ms, 1);
  const auto taken = take();
  ASSERT_THAT(taken, SizeIs(2));
  EXPECT_EQ(taken[1].seconds, 1.12);
}

TEST_F(SampleTrackTest, MoreThanASecondWithoutSamplesIsAGap) {
  frames(1s, 1);
  frames(2013ms, 1);
  const auto taken = take();
  ASSERT_THAT(taken, SizeIs(2));
  EXPECT_EQ(taken[1].seconds, 2.013);
}

TEST_F(SampleTrackTest, AStallWithoutLossIsNotAGap) {
  frames(1s, 1);
  frames(1800ms, 66, 0ms);  // all that was measured meanwhile
  frames(1804ms, 100);
  const auto taken = take();
  ASSERT_THAT(taken, SizeIs(1));
  EXPECT_EQ(taken[0].seconds, 1.0);
  EXPECT_THAT(taken[0].values, SizeIs(167 * 6));
}

TEST_F(SampleTrackTest, SamplesThatStayLateAreAGap) {
  frames(1s, 1);
  frames(1512ms, 42);  // half a second late until 2.004 s: the missing samples do not arrive
  EXPECT_THAT(take(), SizeIs(1));
  frames(1512ms + 42 * 12ms, 1);
  const auto taken = take();
  ASSERT_THAT(taken, SizeIs(1));
  EXPECT_EQ(taken[0].index, 43U * 6);
  EXPECT_EQ(taken[0].seconds, 2.016);
}

TEST_F(SampleTrackTest, FollowsAFastStrapClock) {
  // 12 ms worth of samples every 10 ms: a quarter of a second ahead after 121 frames and 5 samples.
  frames(1s, 121, 10ms);
  EXPECT_THAT(take(), SizeIs(1));
  frames(2210ms, 1);
  const auto taken = take();
  ASSERT_THAT(taken, SizeIs(2));
  EXPECT_EQ(taken[0].seconds, 2.452);
  EXPECT_EQ(taken[1].index, 121U * 6 + 5);
  EXPECT_EQ(taken[1].seconds, 2.21);
}

TEST_F(SampleTrackTest, LimitsTheSizeOfABatch) {
  frames(1s, 1000);
  const auto taken = take();
  ASSERT_THAT(taken, SizeIs(2));
  EXPECT_THAT(taken[0].values, SizeIs(SampleTrack::largestBatch));
  EXPECT_EQ(taken[1].index, SampleTrack::largestBatch);
  EXPECT_EQ(taken[1].seconds, 1 + 4096 / 500.0);
  EXPECT_THAT(taken[1].values, SizeIs(6000 - SampleTrack::largestBatch));
}

TEST_F(SampleTrackTest, HistoryHoldsTheLastHalfMinute) {
  frames(0s, 5000);  // a minute
  track.take(60s);
  frames(60s, 1);  // not taken
  const auto kept = decodedAll(track.kept());
  ASSERT_FALSE(kept.empty());
  EXPECT_EQ(kept.front().index, 15'000U);
  EXPECT_EQ(kept.front().seconds, 30.0);
  EXPECT_EQ(kept.front().values.front(), 15'000.0F);
  EXPECT_EQ(kept.back().index + kept.back().values.size(), 30'000U);
}

TEST_F(SampleTrackTest, HistoryKeepsItsGapsAndForgetsOldOnes) {
  frames(1s, 1);
  track.interrupt();
  frames(10s, 1);
  track.interrupt();
  frames(20s, 1);
  track.take(20s);
  EXPECT_THAT(track.kept(), SizeIs(3));
  track.take(32s);
  const auto kept = decodedAll(track.kept());
  ASSERT_THAT(kept, SizeIs(2));
  EXPECT_EQ(kept[0].index, 6U);
  EXPECT_EQ(kept[0].seconds, 10.0);
  track.take(100s);
  EXPECT_THAT(track.kept(), IsEmpty());
  track.interrupt();
  frames(100s, 1);
  const auto taken = take(100s);
  ASSERT_THAT(taken, SizeIs(1));
  EXPECT_EQ(taken[0].index, 18U);
  EXPECT_EQ(taken[0].seconds, 100.0);
}

TEST_F(SampleTrackTest, MotionSamplesHaveTwoValuesAndTheirRate) {
  SampleTrack motion(Trace::motion);
  for (int i = 0; i < 31; ++i) {
    motion.append(sampleTime(i, 30), std::array{static_cast<float>(i), -1.0F});
  }
  motion.take(0s);
  motion.append(sampleTime(31, 30), std::array{31.0F, 0.5F});
  const auto taken = decodedAll(motion.take(0s));
  ASSERT_THAT(taken, SizeIs(1));
  EXPECT_EQ(taken[0].count, 1U);
  EXPECT_EQ(taken[0].index, 31U);
  EXPECT_NEAR(taken[0].seconds, 31 / 30.0, 1e-9);
  EXPECT_THAT(taken[0].values, ElementsAre(31.0F, 0.5F));
}

}  // namespace
}  // namespace Zephly::view
