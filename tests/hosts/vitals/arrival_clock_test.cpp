// SPDX-License-Identifier: MIT
#include <hosts/vitals/arrival_clock.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <random>
#include <vector>

namespace {

using Zephly::Stream;
using Zephly::hosts::ArrivalClock;
using Nanoseconds = ArrivalClock::Nanoseconds;
using namespace std::chrono_literals;

// When the last sample of frame `index` was taken.
Nanoseconds takenAt(int index, double drift = 0) {
  return Nanoseconds(std::llround((index * 12e6 + 10e6) * (1 + drift)));
}

// The error of the last sample of a frame.
Nanoseconds errorOf(const ArrivalClock::Frame& frame, Nanoseconds taken) {
  return frame.first + 5 * frame.period - taken;
}

TEST(ArrivalClockTest, FramesOnTimeHaveTheTimesOfTheirArrival) {
  ArrivalClock clock(Stream::ecg);
  clock.beginLink();
  for (int i = 0; i < 1000; ++i) {
    const auto frame = clock.frame(7s + takenAt(i));
    EXPECT_EQ(frame.period, 2ms);
    ASSERT_EQ(frame.first, 7s + i * 12ms);
  }
}

TEST(ArrivalClockTest, JitterMovesTheSamplesByAThousandthAtMost) {
  ArrivalClock clock(Stream::ecg);
  std::mt19937 random(3);
  Nanoseconds arrival{};
  std::vector<Nanoseconds> times;
  for (int i = 0; i < 10'000; ++i) {
    arrival = std::max(arrival, takenAt(i) + Nanoseconds(random() % 40'000'000));
    const auto frame = clock.frame(arrival);
    times.push_back(frame.first);
    if (i > 1000) {
      ASSERT_LT(std::chrono::abs(errorOf(frame, takenAt(i))), 15ms) << i;
    }
  }
  // Over the time of a beat.
  for (std::size_t i = 1000; i + 67 < times.size(); ++i) {
    ASSERT_LT(std::chrono::abs(times[i + 67] - times[i] - 67 * 12ms), 3ms) << i;
  }
}

TEST(ArrivalClockTest, FollowsAStrapWhoseClockIsOffBy500Ppm) {
  for (const double drift : {-500e-6, 500e-6}) {
    ArrivalClock clock(Stream::ecg);
    for (int i = 0; i < 100'000; ++i) {
      const auto frame = clock.frame(takenAt(i, drift));
      ASSERT_LT(std::chrono::abs(errorOf(frame, takenAt(i, drift))), 1ms) << i;
    }
  }
}

TEST(ArrivalClockTest, AStallThatEndsInABurstHardlyMovesTheSamples) {
  ArrivalClock clock(Stream::ecg);
  for (int i = 0; i < 3000; ++i) {
    // Two seconds late, then all at once.
    const bool held = i >= 1000 && i < 1160;
    const auto frame = clock.frame(held ? takenAt(1160) : takenAt(i));
    ASSERT_LT(std::chrono::abs(errorOf(frame, takenAt(i))), 5ms) << i;
  }
}

TEST(ArrivalClockTest, ASlowStartIsMadeUpInFiveSeconds) {
  ArrivalClock clock(Stream::ecg);
  for (int i = 0; i < 2000; ++i) {
    const auto frame = clock.frame(takenAt(i) + (i < 40 ? 400ms : 0ms));
    if (i > 500) {
      ASSERT_LT(std::chrono::abs(errorOf(frame, takenAt(i))), 10ms) << i;
    }
  }
}

TEST(ArrivalClockTest, LostFramesLeaveAGapWithinASecondOfSamples) {
  ArrivalClock clock(Stream::ecg);
  for (int i = 0; i < 1000; ++i) clock.frame(takenAt(i));
  Nanoseconds last = 1000 * 12ms;
  Nanoseconds gap{};
  for (int i = 1300; i < 1500; ++i) {
    const auto frame = clock.frame(takenAt(i));
    gap = std::max(gap, frame.first - last);
    last = frame.first;
    if (i > 1300 + 90) {
      ASSERT_LT(std::chrono::abs(errorOf(frame, takenAt(i))), 20ms) << i;
    }
  }
  EXPECT_GT(gap, 3s);
}

TEST(ArrivalClockTest, ANewLinkBeginsAtItsFirstFrameAndNeverBeforeTheLastSample) {
  ArrivalClock clock(Stream::ecg);
  clock.beginLink();
  for (int i = 0; i < 100; ++i) clock.frame(takenAt(i));
  clock.beginLink();
  EXPECT_EQ(clock.frame(60s + 10ms).first, 60s);
  clock.beginLink();
  EXPECT_EQ(clock.frame(60s + 10ms).first, 60s + 12ms);
}

TEST(ArrivalClockTest, TimesIncreaseWhateverTheArrivals) {
  ArrivalClock clock(Stream::ecg);
  std::mt19937 random(4);
  Nanoseconds arrival{};
  Nanoseconds end{-1};
  for (int i = 0; i < 20'000; ++i) {
    if (random() % 50 == 0) arrival += Nanoseconds(random() % 3'000'000'000U);
    if (random() % 3 == 0) arrival += Nanoseconds(random() % 40'000'000U);
    if (random() % 500 == 0) clock.beginLink();
    const auto frame = clock.frame(arrival);
    ASSERT_GT(frame.first, end);
    end = frame.first + 5 * frame.period;
  }
}

}  // namespace
