// SPDX-License-Identifier: MIT
#include <vitals/breath_detector.h>

#include <simulator/random.h>
#include <tests/support/allocation_count.h>
#include <tests/support/breathing_trial.h>
#include <vitals/breathing_rate.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <numbers>
#include <stdexcept>
#include <vector>

namespace Zephly::vitals {
namespace {

using namespace std::chrono_literals;
using std::numbers::pi;

// A signal of the time in seconds.
using Signal = std::function<double(double)>;

Time timeOf(std::int64_t index, double rate) {
  return Time(std::llround(static_cast<double>(index) * 1e9 / rate));
}

double breathing(double seconds) { return 0.3 * std::sin(2 * pi * 0.25 * seconds); }

std::vector<Breath> push(BreathDetector& detector, const Signal& signal, Time from, Time to,
                         double rate) {
  std::vector<Breath> breaths;
  for (std::int64_t i = 0; from + timeOf(i, rate) < to; ++i) {
    const Time time = from + timeOf(i, rate);
    detector.push(time, static_cast<float>(signal(std::chrono::duration<double>(time).count())));
    while (const auto breath = detector.next()) breaths.push_back(*breath);
  }
  return breaths;
}

std::vector<Breath> breathsOf(const Signal& signal, Time length, double rate = 100) {
  BreathDetector detector(rate);
  return push(detector, signal, 0s, length, rate);
}

double secondsOf(Time time) { return std::chrono::duration<double>(time).count(); }

TEST(BreathDetectorTest, FindsEachTopOfASineAtItsTime) {
  for (const double rate : {10.0, 14.0, 15.0, 25.0, 100.0, 128.0, 250.0, 360.0, 500.0, 1000.0}) {
    const auto breaths = breathsOf(breathing, 61s, rate);
    ASSERT_GE(breaths.size(), 14U) << rate;
    ASSERT_LE(breaths.size(), 15U) << rate;
    for (std::size_t i = 0; i < breaths.size(); ++i) {
      const double offset = std::remainder(secondsOf(breaths[i].time) - 1, 4);
      EXPECT_NEAR(offset, 0, 0.02) << rate;
      if (i > 0) {
        EXPECT_NEAR(*breaths[i].duration, 4, 0.02) << rate;
      }
      EXPECT_NEAR(breaths[i].depth, 1, 0.03) << rate;
      if (i > 3) {
        EXPECT_GT(breaths[i].quality, 0.9) << rate;
      }
      EXPECT_FALSE(breaths[i].derived);
    }
  }
}

TEST(BreathDetectorTest, FindsFiveToFortyFiveBreathsAMinute) {
  for (const double perMinute : {5.0, 8.0, 20.0, 30.0, 40.0, 45.0}) {
    const auto breaths =
        breathsOf([&](double s) { return std::sin(2 * pi * perMinute / 60 * s); }, 120s);
    EXPECT_NEAR(static_cast<double>(breaths.size()), 2 * perMinute, 2) << perMinute;
    EXPECT_GT(breaths.back().quality, 0.6) << perMinute;
  }
}

TEST(BreathDetectorTest, DoesNotDependOnTheUnit) {
  const auto usual = breathsOf(breathing, 60s);
  for (const double gain : {0x1.0p-20, 0x1.0p-4, 0x1.0p+20})
    EXPECT_EQ(
        breathsOf(
            [&](double s) { return gain * static_cast<double>(static_cast<float>(breathing(s))); },
            60s),
        usual)
        << gain;
}

TEST(BreathDetectorTest, ReportsABreathWhenTheSignalHasFallenFromIt) {
  const BreathingTrial trial =
      tryBreathing({.plan = simulator::TrainingPlan::quiet(), .wearer = simulator::Wearer{}}, 120s);
  ASSERT_GE(trial.breaths.size(), 25U);
  for (std::size_t i = 0; i < trial.breaths.size(); ++i) {
    const Time delay = trial.reported[i] - trial.breaths[i].time;
    EXPECT_GT(delay, 300ms);
    EXPECT_LT(delay, 2s);
  }
}

TEST(BreathDetectorTest, ReportsNoBreathThatIsHeldAtItsTop) {
  // In for a second, held for 14, out.
  const auto held = [](double s) {
    if (s < 40) return breathing(s);
    if (s < 41) return breathing(s);
    if (s < 55) return 0.3;
    return breathing(s - 14);
  };
  for (const Breath& breath : breathsOf(held, 90s))
    EXPECT_TRUE(breath.time < 38s || breath.time > 56s) << secondsOf(breath.time);
}

TEST(BreathDetectorTest, DepthFollowsTheSwing) {
  const auto breaths =
      breathsOf([](double s) { return (s > 59.2 && s < 63 ? 2 : 1) * (breathing(s) + 0.3); }, 100s);
  const auto deepest = std::ranges::max_element(breaths, {}, &Breath::depth);
  EXPECT_NEAR(secondsOf(deepest->time), 61, 0.1);
  EXPECT_NEAR(deepest->depth, 2, 0.1);
}

TEST(BreathDetectorTest, RatesBeyondItsRangeAreRefused) {
  const double none = std::numeric_limits<double>::quiet_NaN();
  for (const double rate : {0.0, -1.0, 9.9, 1000.1, none})
    EXPECT_THROW(BreathDetector{rate}, std::invalid_argument) << rate;
}

TEST(BreathDetectorTest, ARateThatIsOffBy500PartsInAMillionChangesNothing) {
  BreathDetector detector(500);
  const auto breaths = push(detector, breathing, 0s, 120s, 500 * 1.0005);
  EXPECT_GE(breaths.size(), 28U);
  for (const Breath& breath : breaths)
    EXPECT_NEAR(std::remainder(secondsOf(breath.time) - 1, 4), 0, 0.02);
}

TEST(BreathDetectorTest, MainsHumOfTenTimesTheBreathDoesNotMatter) {
  for (const double mains : {50.0, 60.0}) {
    for (const double rate : {250.0, 500.0, 1000.0}) {
      const auto breaths = breathsOf(
          [&](double s) { return breathing(s) + 3 * std::sin(2 * pi * mains * s); }, 120s, rate);
      ASSERT_GE(breaths.size(), 29U) << mains << ' ' << rate;
      ASSERT_LE(breaths.size(), 30U) << mains << ' ' << rate;
      for (const Breath& breath : breaths)
        EXPECT_NEAR(std::remainder(secondsOf(breath.time) - 1, 4), 0, 0.1);
      EXPECT_GT(breaths.back().quality, 0.9);
    }
  }
}

TEST(BreathDetectorTest, FindsNothingInNoise) {
  for (std::uint64_t seed = 1; seed <= 5; ++seed) {
    simulator::Random random(seed);
    BreathDetector detector(500);
    const auto breaths = push(
        detector, [&](double) { return random.normal(); }, 0s, 600s, 500);
    double sum = 0;
    for (const Breath& breath : breaths) sum += breath.quality;
    EXPECT_LT(sum, 1) << breaths.size();
    EXPECT_LT(detector.signalQuality(), 0.3);
  }
}

TEST(BreathDetectorTest, FindsNothingInAFlatLine) {
  BreathDetector detector(500);
  push(detector, breathing, 0s, 60s, 500);
  EXPECT_GT(detector.signalQuality(), 0.9);
  const auto level = [](double value) { return [value](double) { return value; }; };
  // The last value stays: at most the breath before it is reported.
  EXPECT_LE(push(detector, level(0), 60s, 70s, 500).size(), 1U);
  EXPECT_EQ(detector.signalQuality(), 0);
  // Saturated.
  EXPECT_THAT(push(detector, level(2.42), 70s, 180s, 500), testing::IsEmpty());
  EXPECT_EQ(detector.signalQuality(), 0);
  EXPECT_THAT(breathsOf([](double) { return 0; }, 100s), testing::IsEmpty());
}

TEST(BreathDetectorTest, CountsBreathsThatAreClipped) {
  const auto breaths = breathsOf([](double s) { return std::min(0.1, breathing(s)); }, 120s);
  EXPECT_GE(breaths.size(), 28U);
  for (const Breath& breath : breaths)
    EXPECT_NEAR(std::remainder(secondsOf(breath.time) - 1, 4), 0, 0.8);
}

TEST(BreathDetectorTest, AStepOfTheLevelIsNoBreath) {
  for (const double step : {-20.0, -1.0, 1.0, 20.0}) {
    const auto breaths =
        breathsOf([&](double s) { return breathing(s) + (s > 63 ? step : 0); }, 120s);
    EXPECT_GE(breaths.size(), 28U) << step;
    EXPECT_LE(breaths.size(), 30U) << step;
    for (const Breath& breath : breaths)
      EXPECT_NEAR(std::remainder(secondsOf(breath.time) - 1, 4), 0, 0.3) << step;
  }
}

TEST(BreathDetectorTest, ValuesThatAreNotFiniteAreMissingSamples) {
  const auto usual = breathsOf(breathing, 120s, 500);
  for (const float bad :
       {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity(),
        -std::numeric_limits<float>::infinity()}) {
    BreathDetector detector(500);
    std::vector<Breath> breaths;
    for (std::int64_t i = 0; i < 60000; ++i) {
      const Time time = timeOf(i, 500);
      detector.push(time, i % 7 == 0 ? bad : static_cast<float>(breathing(secondsOf(time))));
      while (const auto breath = detector.next()) breaths.push_back(*breath);
    }
    ASSERT_EQ(breaths.size(), usual.size());
    for (std::size_t i = 0; i < usual.size(); ++i)
      EXPECT_NEAR(secondsOf(breaths[i].time), secondsOf(usual[i].time), 0.02);
    // Only such values for a while are a gap.
    push(
        detector, [&](double) { return static_cast<double>(bad); }, 120s, 121s, 500);
    EXPECT_EQ(detector.signalQuality(), 0);
  }
}

TEST(BreathDetectorTest, TheLargestFloatsDoNoHarm) {
  BreathDetector detector(100);
  push(detector, breathing, 0s, 30s, 100);
  const double most = std::numeric_limits<float>::max();
  push(
      detector, [&](double s) { return std::fmod(s, 2) < 1 ? most : -most; }, 30s, 60s, 100);
  detector.finish();
  // The next minute forgets.
  push(detector, breathing, 60s, 130s, 100);
  EXPECT_GE(push(detector, breathing, 130s, 170s, 100).size(), 9U);
}

TEST(BreathDetectorTest, TimesThatDoNotIncreaseAreIgnored) {
  BreathDetector detector(100);
  std::vector<Breath> breaths;
  for (std::int64_t i = 0; i < 6000; ++i) {
    const Time time = timeOf(i, 100);
    detector.push(time, static_cast<float>(breathing(secondsOf(time))));
    while (const auto breath = detector.next()) breaths.push_back(*breath);
    detector.push(time, 5);
    detector.push(time - 1s, -5);
  }
  EXPECT_EQ(breaths, breathsOf(breathing, 60s));
}

TEST(BreathDetectorTest, ALostNotificationIsNoGap) {
  BreathDetector detector(500);
  std::vector<Breath> breaths;
  for (std::int64_t i = 0; i < 60000; ++i) {
    if (i / 6 % 50 == 0) continue;  // 12 ms, each 0.6 s
    const Time time = timeOf(i, 500);
    detector.push(time, static_cast<float>(breathing(secondsOf(time))));
    while (const auto breath = detector.next()) breaths.push_back(*breath);
  }
  ASSERT_GE(breaths.size(), 29U);
  for (std::size_t i = 1; i < breaths.size(); ++i)
    EXPECT_NEAR(breaths[i].duration.value_or(0), 4, 0.05);
}

TEST(BreathDetectorTest, AfterAGapTheDurationIsNotKnown) {
  for (const Time gap : {Time(1s), Time(10s), Time(1h)}) {
    BreathDetector detector(500);
    push(detector, breathing, 0s, 60s, 500);
    const auto breaths = push(detector, breathing, 60s + gap, 120s + gap, 500);
    ASSERT_GE(breaths.size(), 13U);
    for (const Breath& breath : breaths) EXPECT_GT(breath.time, 60s + gap);
    // Measured from a top that was seen in part, or not at all.
    if (breaths[0].duration) {
      EXPECT_GT(breaths[0].time - 4100ms, 60s + gap);
    }
    EXPECT_NEAR(breaths[1].duration.value_or(0), 4, 0.02);
  }
}

TEST(BreathDetectorTest, WithoutContactThereIsNothing) {
  BreathDetector detector(500);
  push(detector, breathing, 0s, 60s, 500);
  detector.setContact(false);
  EXPECT_EQ(detector.signalQuality(), 0);
  EXPECT_THAT(push(detector, breathing, 60s, 120s, 500), testing::IsEmpty());
  EXPECT_EQ(detector.signalQuality(), 0);
  detector.setContact(true);
  const auto breaths = push(detector, breathing, 120s, 160s, 500);
  ASSERT_GE(breaths.size(), 8U);
  EXPECT_GT(breaths.front().time, 120s);
}

TEST(BreathDetectorTest, ContactThatChattersGivesNothing) {
  BreathDetector detector(500);
  push(detector, breathing, 0s, 60s, 500);
  std::vector<Breath> breaths;
  for (int i = 0; i < 60; ++i) {
    detector.setContact(i % 2 == 1);
    const Time from = 60s + i * 500ms;
    for (const Breath& breath : push(detector, breathing, from, from + 500ms, 500))
      breaths.push_back(breath);
  }
  EXPECT_THAT(breaths, testing::IsEmpty());
}

TEST(BreathDetectorTest, FinishBeginsAnew) {
  BreathDetector detector(100);
  push(
      detector, [](double s) { return 20 * breathing(s); }, 0s, 61s, 100);
  detector.finish();
  EXPECT_EQ(detector.signalQuality(), 0);
  // Also with earlier times. The small breaths are usual ones now.
  const auto breaths = push(detector, breathing, 0s, 30s, 100);
  ASSERT_GE(breaths.size(), 6U);
  for (const Breath& breath : breaths) EXPECT_NEAR(breath.depth, 1, 0.05);
}

TEST(BreathDetectorTest, MovementIsNoBreath) {
  const auto moved = [](double s) {
    const bool moving = s > 60 && s < 70;
    return breathing(s) + (moving ? std::sin(2 * pi * 1.3 * s) + std::sin(2 * pi * 0.9 * s) : 0);
  };
  BreathDetector detector(100);
  push(detector, moved, 0s, 62s, 100);
  EXPECT_THAT(push(detector, moved, 62s, 72s, 100), testing::IsEmpty());
  const auto breaths = push(detector, moved, 72s, 120s, 100);
  ASSERT_GE(breaths.size(), 10U);
  // No duration reaches over the movement.
  for (const Breath& breath : breaths) EXPECT_NEAR(breath.duration.value_or(4), 4, 0.1);
}

// The first rate of a session comes from it.
TEST(BreathDetectorTest, ABreathIsKnownFromOneBeginningToTheNext) {
  BreathDetector detector(100);
  std::vector<BreathCycle> cycles;
  for (std::int64_t i = 0; i < 6000; ++i) {
    // A rest of 1 s before each breath in.
    const double part = std::fmod(static_cast<double>(i) / 100 + 1.5, 5);
    const double value = part < 4 ? 1 - std::cos(2 * pi * part / 4) : 0;
    detector.push(timeOf(i, 100), static_cast<float>(value));
    while (const auto cycle = detector.nextCycle()) cycles.push_back(*cycle);
  }
  ASSERT_GE(cycles.size(), 10U);
  for (const BreathCycle& cycle : cycles) {
    EXPECT_NEAR(cycle.duration, 5, 0.15);
    EXPECT_NEAR(std::remainder(secondsOf(cycle.time) + 1.5 - 0.4, 5), 0, 0.5);
    EXPECT_GT(cycle.quality, 0.6);
  }
}

// It may be the last part of a breath, and would hide all others for a minute.
TEST(BreathDetectorTest, TheRiseWithWhichASignalBeginsIsNoScale) {
  for (std::uint64_t seed = 1; seed <= 20; ++seed) {
    const BreathingTrial trial =
        tryBreathing({.seed = seed, .plan = simulator::TrainingPlan::quiet()}, 30s);
    EXPECT_GE(trial.breaths.size() + 2, trial.truth.ends.size()) << seed;
    EXPECT_GT(trial.seconds.back().signalQuality, 0.9) << seed;
  }
}

// After two minutes of it, and after two minutes in which the electrodes were pulled.
TEST(BreathDetectorTest, FindsBreathsSoonAfterNoise) {
  for (const bool pulled : {false, true}) {
    for (std::uint64_t seed = 1; seed <= 4; ++seed) {
      simulator::Random random(seed);
      BreathDetector detector(100);
      double slow = 0;
      const auto noisy = [&](double s) {
        if (s < 30 || s >= 150) return breathing(s);
        const double noise = 4 * random.normal();
        slow += 0.1 * (noise - slow);
        return breathing(s) + (pulled ? 3 * slow : noise);
      };
      push(detector, noisy, 0s, 150s, 100);
      const auto breaths = push(detector, noisy, 150s, 200s, 100);
      ASSERT_FALSE(breaths.empty()) << pulled << seed;
      EXPECT_LT(secondsOf(breaths.front().time), 185) << pulled << seed;
      EXPECT_GT(detector.signalQuality(), 0.9) << pulled << seed;
      for (const Breath& breath : breaths) {
        if (breath.time < 160s) continue;
        EXPECT_NEAR(std::remainder(secondsOf(breath.time) - 1, 4), 0, 0.1);
      }
    }
  }
}

TEST(BreathDetectorTest, AllocatesOnlyWhenItIsMade) {
  BreathDetector detector(500);
  const std::size_t before = allocationCount();
  for (std::int64_t i = 0; i < 100000; ++i) {
    const Time time = timeOf(i, 500) + (i > 60000 ? 10s : 0s);
    if (i == 80000) detector.setContact(false);
    if (i == 81000) detector.setContact(true);
    detector.push(time, static_cast<float>(breathing(secondsOf(time))));
    while (detector.next()) {
    }
  }
  EXPECT_EQ(allocationCount(), before);
}

}  // namespace
}  // namespace Zephly::vitals
