// SPDX-License-Identifier: MIT
#include <timing/clock_fit.h>

#include <tests/support/long_run.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

namespace {

using namespace Zephly::timing;
using namespace std::chrono_literals;

constexpr StreamRate waveform{.perSecond = 500, .samplesPerFrame = 6, .silence = 2s};

// The arrival times of frames over a radio. Each frame arrives later than its last sample. The
// delay has four causes: connection intervals, noise, stalls that end in a burst, and a slow start.
struct Radio {
  double drift = 0;           // of the strap's period: 200e-6 is slow by 200 ppm
  double noise = 0.008;       // mean, seconds, exponential
  double interval = 0.030;    // of the connection, seconds
  double stallEvery = 20;     // mean, seconds
  double longestStall = 1.5;  // seconds
  double slowStart = 0.5;     // seconds; extra delay at the start, decreasing over two seconds
};

struct Arrivals {
  std::vector<Nanoseconds> frames;
  std::vector<double> truth;  // seconds, of each sample
};

Nanoseconds nanoseconds(double seconds) { return Nanoseconds(std::llround(seconds * 1e9)); }

Arrivals arrivals(const Radio& radio, double begin, double length, std::uint64_t seed) {
  std::mt19937_64 random(seed);
  std::exponential_distribution<double> noise(1 / radio.noise);
  std::exponential_distribution<double> calm(1 / radio.stallEvery);
  std::uniform_real_distribution<double> stall(0.1, radio.longestStall);
  const double period = 0.002 * (1 + radio.drift);
  Arrivals result;
  double stallBegin = begin + calm(random);
  double stallEnd = stallBegin + stall(random);
  double last = begin;
  double time = begin;
  while (time < begin + length) {
    for (int i = 0; i < 6; ++i) {
      result.truth.push_back(time);
      time += period;
    }
    const double measured = result.truth.back();
    double sent =
        measured + noise(random) + radio.slowStart * std::max(0.0, 1 - (measured - begin) / 2);
    while (sent > stallEnd) {
      stallBegin = stallEnd + calm(random);
      stallEnd = stallBegin + stall(random);
    }
    if (sent > stallBegin) sent = stallEnd;
    sent = std::ceil(sent / radio.interval) * radio.interval;
    last = std::max(last, sent);  // a link preserves the order
    result.frames.push_back(nanoseconds(last));
  }
  return result;
}

StreamClock fitted(const Arrivals& arrived, double linkBegin) {
  ClockFit fit(waveform);
  fit.beginLink(nanoseconds(linkBegin));
  for (const Nanoseconds frame : arrived.frames) fit.frame(frame);
  return fit.finish();
}

// Greatest distance from the truth, seconds.
double worstError(const StreamClock& clock, const std::vector<double>& truth) {
  ClockWalk walk(clock);
  double worst = 0;
  for (const double taken : truth) {
    const double error = static_cast<double>(walk.next().time.count()) / 1e9 - taken;
    worst = std::max(worst, std::abs(error));
  }
  EXPECT_TRUE(walk.over());
  return worst;
}

void expectRising(const StreamClock& clock) {
  Nanoseconds last{-1};
  Nanoseconds edge{-1'000'000'000};
  for (ClockWalk walk(clock); !walk.over();) {
    const SampleTime sample = walk.next();
    ASSERT_GT(sample.time, last);
    ASSERT_GE(sample.from + 1us, edge);  // the periods of adjacent samples differ slightly
    ASSERT_GT(sample.to, sample.from);
    last = sample.time;
    edge = sample.to;
  }
}

TEST(LowerHullTest, TouchesTheArrivalsFromBelowAtTheirMean) {
  LowerHull hull;
  for (const auto& [x, y] : {std::pair{0.0, 0.0}, {1.0, 5.0}, {2.0, 2.0}, {3.0, 9.0}, {4.0, 6.0}}) {
    hull.add({x, y});
  }
  // The hull goes through 0, 2 and 4; the mean is 2, where the second edge begins.
  EXPECT_DOUBLE_EQ(hull.bestSlope(), 2);
  EXPECT_DOUBLE_EQ(hull.offset(2), -2);
  EXPECT_DOUBLE_EQ(hull.offset(1), 0);
}

TEST(ClockFitTest, FramesWithoutDelayGiveTheTimesOfTheSamples) {
  ClockFit fit(waveform);
  fit.beginLink(1s);
  for (int frame = 0; frame < 100; ++frame) fit.frame(1s + frame * 12ms + 10ms);
  const StreamClock clock = fit.finish();
  ASSERT_EQ(clock.segments.size(), 1U);
  ClockWalk walk(clock);
  for (int sample = 0; sample < 600; ++sample) ASSERT_EQ(walk.next().time, 1s + sample * 2ms);
  EXPECT_TRUE(walk.over());
}

// The bounds given in docs/export.md.
TEST(ClockFitTest, TenMinutesWithAnyDriftAreWithinFourMilliseconds) {
  for (const double drift : {-200e-6, -50e-6, 0.0, 50e-6, 200e-6}) {
    for (std::uint64_t seed = 1; seed <= longRun<std::uint64_t>(10, 2); ++seed) {
      const Arrivals arrived = arrivals({.drift = drift}, 3, 600, seed);
      const StreamClock clock = fitted(arrived, 3);
      ASSERT_EQ(clock.segments.size(), 1U);
      EXPECT_LT(worstError(clock, arrived.truth), 0.004) << drift << ' ' << seed;
      EXPECT_NEAR(clock.segments.front().period, 2e6 * (1 + drift), 2e6 * 5e-6);
      expectRising(clock);
    }
  }
}

TEST(ClockFitTest, TwoHoursAreWithinFourMilliseconds) {
  const Arrivals arrived = arrivals({.drift = 200e-6}, 3, 7200, 1);
  EXPECT_LT(worstError(fitted(arrived, 3), arrived.truth), 0.004);
}

TEST(ClockFitTest, TenSecondsAreWithinTenMilliseconds) {
  for (std::uint64_t seed = 1; seed <= 20; ++seed) {
    const Arrivals arrived = arrivals({.drift = 200e-6}, 3, 10, seed);
    EXPECT_LT(worstError(fitted(arrived, 3), arrived.truth), 0.010) << seed;
  }
}

TEST(ClockFitTest, ARadioWithTenthsOfSecondsOfDelayIsWithinATenthOfASecond) {
  for (std::uint64_t seed = 1; seed <= longRun<std::uint64_t>(10, 2); ++seed) {
    const Radio bad{.drift = 200e-6,
                    .noise = 0.1,
                    .interval = 0.1,
                    .stallEvery = 3,
                    .longestStall = 1.9,
                    .slowStart = 2};
    const Arrivals arrived = arrivals(bad, 3, 600, seed);
    const StreamClock clock = fitted(arrived, 3);
    EXPECT_LT(worstError(clock, arrived.truth), 0.100) << seed;
    expectRising(clock);
  }
}

TEST(ClockFitTest, AShortLinkTakesItsRateFromTheLongOne) {
  Arrivals all = arrivals({.drift = 200e-6}, 3, 600, 1);
  const Arrivals second = arrivals({.drift = 200e-6}, 700, 59, 2);
  ClockFit fit(waveform);
  fit.beginLink(3s);
  for (const Nanoseconds frame : all.frames) fit.frame(frame);
  fit.beginLink(700s);
  for (const Nanoseconds frame : second.frames) fit.frame(frame);
  all.truth.insert(all.truth.end(), second.truth.begin(), second.truth.end());
  const StreamClock clock = fit.finish();
  ASSERT_EQ(clock.segments.size(), 2U);
  EXPECT_EQ(clock.segments[1].period, clock.segments[0].period);
  EXPECT_LT(worstError(clock, all.truth), 0.006);
  EXPECT_NEAR(static_cast<double>(clock.segments[1].gap.count()) / 1e9,
              second.truth.front() - static_cast<double>(clock.segments[0].end().count()) / 1e9,
              0.006);
  expectRising(clock);
}

// All delayed frames arrive, so none is missing.
TEST(ClockFitTest, ALongStallWithoutLossIsNotAGap) {
  Arrivals arrived = arrivals({}, 3, 120, 1);
  for (Nanoseconds& frame : arrived.frames) {
    if (frame > 50s && frame < 54s) frame = 54s;
  }
  const StreamClock clock = fitted(arrived, 3);
  EXPECT_EQ(clock.segments.size(), 1U);
  EXPECT_LT(worstError(clock, arrived.truth), 0.004);
  expectRising(clock);
}

TEST(ClockFitTest, ALongSilenceWithLostFramesIsAGapOfItsLength) {
  const Arrivals whole = arrivals({}, 3, 120, 1);
  Arrivals arrived;
  for (std::size_t frame = 0; frame < whole.frames.size(); ++frame) {
    if (whole.frames[frame] > 50s && whole.frames[frame] < 54s) continue;
    arrived.frames.push_back(whole.frames[frame]);
    arrived.truth.insert(arrived.truth.end(),
                         whole.truth.begin() + static_cast<std::ptrdiff_t>(frame * 6),
                         whole.truth.begin() + static_cast<std::ptrdiff_t>(frame * 6 + 6));
  }
  const StreamClock clock = fitted(arrived, 3);
  ASSERT_EQ(clock.segments.size(), 2U);
  const std::size_t lost = whole.frames.size() - arrived.frames.size();
  EXPECT_NEAR(static_cast<double>(clock.segments.back().gap.count()) / 1e9,
              static_cast<double>(lost) * 0.012, 0.008);
  EXPECT_LT(worstError(clock, arrived.truth), 0.008);
}

TEST(ClockFitTest, ABurstStartsWithItsLink) {
  ClockFit fit(waveform);
  fit.beginLink(5s);
  for (int frame = 0; frame < 10'000; ++frame) fit.frame(6s);
  fit.beginLink(7s);
  for (int frame = 0; frame < 10'000; ++frame) fit.frame(8s);
  const StreamClock clock = fit.finish();
  EXPECT_EQ(clock.segments.front().begin, 5s - 12ms);
  EXPECT_EQ(clock.segments.front().gap, 5s - 12ms);
  EXPECT_EQ(clock.segments.back().gap, 0ns);
  expectRising(clock);
}

TEST(ClockFitTest, NothingIsBeforeTheSession) {
  ClockFit fit(waveform);
  fit.beginLink(0s);
  fit.frame(2ms);
  fit.frame(14ms);
  EXPECT_EQ(fit.finish().segments.front().begin, 0ns);
}

TEST(ClockFitTest, RejectsImplausibleRates) {
  ClockFit fit(waveform);
  fit.beginLink(0s);
  for (int frame = 0; frame < 10'000; ++frame) fit.frame(frame * 24ms);
  EXPECT_DOUBLE_EQ(fit.finish().segments.front().period, 2e6 * (1 + largestDrift));
}

TEST(ClockFitTest, NoFramesGiveNoSamples) {
  ClockFit fit(waveform);
  fit.beginLink(1s);
  EXPECT_TRUE(fit.finish().segments.empty());
  EXPECT_EQ(fit.finish().end(), 0ns);
}

TEST(ClockFitTest, OneReadingASecond) {
  ClockFit fit({.perSecond = 1, .samplesPerFrame = 1, .silence = 5s});
  std::mt19937_64 random(1);
  std::exponential_distribution<double> delay(1 / 0.05);
  fit.beginLink(2s);
  for (int reading = 0; reading < 600; ++reading) {
    fit.frame(nanoseconds(3 + reading * 1.0002 + delay(random)));
  }
  const StreamClock clock = fit.finish();
  ClockWalk again(clock);
  for (int reading = 0; reading < 600; ++reading) {
    EXPECT_NEAR(static_cast<double>(again.next().time.count()) / 1e9, 3 + reading * 1.0002, 0.010);
  }
}

}  // namespace
