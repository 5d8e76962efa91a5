// SPDX-License-Identifier: MIT
#include <zephly/dsp/respiration_filter_helper.h>

#include <tests/support/fake_processor_clock.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <random>
#include <utility>

namespace {

using Zephly::RespirationFilterHelper;

constexpr std::uint64_t second = 1000000;

class RespirationFilterHelperTest : public testing::Test {
 protected:
  bool callAt(std::uint64_t microseconds, bool leadoff) {
    FakeProcessorClock::now = microseconds;
    return helper.shouldResetRespiration(leadoff);
  }
  // A call with true, then one with false, at `microseconds`. The change from true to false is a
  // fall.
  void fallAt(std::uint64_t microseconds) {
    EXPECT_FALSE(callAt(microseconds, true));
    EXPECT_FALSE(callAt(microseconds, false));
  }

  FakeProcessorClock clock;
  RespirationFilterHelper helper{4.0F};
};

TEST_F(RespirationFilterHelperTest, NeverFiresWithoutContact) {
  for (std::uint64_t time = 0; time < 100 * second; time += second / 2) {
    EXPECT_FALSE(callAt(time, false));
  }
}

TEST_F(RespirationFilterHelperTest, NeverFiresWithoutAFall) {
  for (std::uint64_t time = 0; time < 100 * second; time += second / 2) {
    EXPECT_FALSE(callAt(time, true));
  }
}

TEST_F(RespirationFilterHelperTest, ARiseDoesNotArm) {
  EXPECT_FALSE(callAt(0, false));
  EXPECT_FALSE(callAt(0, true));
  EXPECT_FALSE(callAt(50 * second, true));
}

TEST_F(RespirationFilterHelperTest, FiresOnTheFirstCallAfterTheTimeoutCountedFromTheFall) {
  EXPECT_FALSE(callAt(0, true));
  EXPECT_FALSE(callAt(10 * second, false));
  EXPECT_FALSE(callAt(13 * second, false));
  EXPECT_FALSE(callAt(14 * second, false));  // a reset is due after the timeout, not at it
  EXPECT_TRUE(callAt(14 * second + 1, false));
}

TEST_F(RespirationFilterHelperTest, FiresOncePerFall) {
  fallAt(0);
  EXPECT_TRUE(callAt(5 * second, false));
  for (std::uint64_t time = 5; time < 60; ++time) EXPECT_FALSE(callAt(time * second, false));
  fallAt(60 * second);
  EXPECT_FALSE(callAt(64 * second, false));
  EXPECT_TRUE(callAt(65 * second, false));
}

TEST_F(RespirationFilterHelperTest, ARiseDoesNotDisarm) {
  fallAt(0);
  EXPECT_FALSE(callAt(1 * second, true));
  EXPECT_FALSE(callAt(4 * second, true));
  EXPECT_TRUE(callAt(5 * second, true));
}

TEST_F(RespirationFilterHelperTest, ASecondFallRestartsTheTimer) {
  fallAt(0);
  fallAt(3 * second);
  EXPECT_FALSE(callAt(5 * second, false));
  EXPECT_FALSE(callAt(7 * second, false));
  EXPECT_TRUE(callAt(7 * second + 1, false));
  EXPECT_FALSE(callAt(50 * second, false));
}

TEST_F(RespirationFilterHelperTest, AnswerOnTheFiringCallIsNotRemembered) {
  fallAt(0);
  EXPECT_TRUE(callAt(5 * second, true));
  EXPECT_FALSE(
      callAt(6 * second, false));  // not a fall: the firing call does not store its argument
  EXPECT_FALSE(callAt(60 * second, false));
}

TEST_F(RespirationFilterHelperTest, AFallOnTheDueCallRestartsTheTimerInsteadOfFiring) {
  fallAt(0);
  EXPECT_FALSE(callAt(1 * second, true));
  EXPECT_FALSE(callAt(5 * second, false));
  EXPECT_FALSE(callAt(9 * second, false));
  EXPECT_TRUE(callAt(9 * second + 1, false));
}

TEST_F(RespirationFilterHelperTest, ReadsTheClockTwiceOnAnArmingCallAndOnceOnEveryOther) {
  const auto readsOf = [&](std::uint64_t time, bool leadoff) {
    FakeProcessorClock::reads = 0;
    callAt(time, leadoff);
    return FakeProcessorClock::reads;
  };
  EXPECT_EQ(readsOf(0, false), 1);
  EXPECT_EQ(readsOf(0, true), 1);
  EXPECT_EQ(readsOf(0, true), 1);
  EXPECT_EQ(readsOf(0, false), 2);           // a fall starts the timer
  EXPECT_EQ(readsOf(second, false), 1);      // the timer runs
  EXPECT_EQ(readsOf(second, true), 1);       // the timer runs
  EXPECT_EQ(readsOf(2 * second, false), 2);  // a fall restarts the timer
  EXPECT_EQ(readsOf(9 * second, false), 1);  // the reset is due
  EXPECT_EQ(readsOf(9 * second, false), 1);
}

TEST_F(RespirationFilterHelperTest, StartIsTheFirstOfTheTwoReadings) {
  // The clock advances by five seconds at each reading, so the reset is due in the call that starts
  // the timer.
  const Zephly::ProcessorClock before = Zephly::setProcessorClock([] {
    FakeProcessorClock::now += 5 * second;
    return FakeProcessorClock::now;
  });
  EXPECT_FALSE(helper.shouldResetRespiration(true));
  EXPECT_TRUE(helper.shouldResetRespiration(false));
  // A call that returns true does not store its argument. The stored answer is still true, so this
  // false is a fall too.
  EXPECT_TRUE(helper.shouldResetRespiration(false));
  Zephly::setProcessorClock(before);
}

TEST_F(RespirationFilterHelperTest, TimeoutsAreComparedInSinglePrecision) {
  helper = RespirationFilterHelper(4.1F);
  fallAt(0);
  // The float nearest to 4.1 is less than 4.1. In double precision a reset would be due here.
  EXPECT_FALSE(callAt(4100000, false));
  EXPECT_TRUE(callAt(4100001, false));
}

TEST_F(RespirationFilterHelperTest, ElapsedTimeIsRoundedToSinglePrecisionBeforeTheDivision) {
  helper = RespirationFilterHelper(20.0F);
  fallAt(0);
  EXPECT_FALSE(callAt(20000001, false));  // the elapsed time rounds to 20,000,000
  EXPECT_TRUE(callAt(20000002, false));
}

TEST_F(RespirationFilterHelperTest, ElapsedTimeSurvivesTheWrapOfTheClock) {
  const std::uint64_t start = std::numeric_limits<std::uint64_t>::max() - second;
  fallAt(start);
  EXPECT_FALSE(callAt(start + 4 * second, false));
  EXPECT_TRUE(callAt(start + 4 * second + 1, false));
}

TEST_F(RespirationFilterHelperTest, HelpersAreIndependent) {
  RespirationFilterHelper later(4.1F);
  const auto bothAt = [&](std::uint64_t time, bool leadoff) {
    const bool earlierFires = callAt(time, leadoff);
    const bool laterFires = later.shouldResetRespiration(leadoff);
    return std::pair(earlierFires, laterFires);
  };
  EXPECT_EQ(bothAt(0, true), std::pair(false, false));
  EXPECT_EQ(bothAt(0, false), std::pair(false, false));
  EXPECT_EQ(bothAt(4050000, false), std::pair(true, false));
  EXPECT_EQ(bothAt(4150000, false), std::pair(false, true));
  EXPECT_EQ(bothAt(9000000, false), std::pair(false, false));
}

TEST_F(RespirationFilterHelperTest, MatchesTheReferenceOverRandomAnswers) {
  std::mt19937_64 random(51);
  bool pending = false;
  bool last = false;
  std::uint64_t start = 0;
  std::uint64_t time = 0;
  bool leadoff = false;
  int fired = 0;
  for (int i = 0; i < 200000; ++i) {
    time += random() % 50000;
    if (random() % 100 == 0) leadoff = !leadoff;
    bool expected = false;
    if (last && !leadoff) {
      pending = true;
      start = time;
    }
    if (pending && static_cast<float>(time - start) / 1000000.0F > 4.0F) {
      pending = false;
      expected = true;
      ++fired;
    } else {
      last = leadoff;
    }
    ASSERT_EQ(callAt(time, leadoff), expected) << i;
  }
  EXPECT_GT(fired, 100);
}

}  // namespace
