// SPDX-License-Identifier: MIT
#include <vitals/breathing_rate.h>

#include <tests/support/breathing_trial.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <vector>

namespace Zephly::vitals {
namespace {

using namespace std::chrono_literals;

Breath breathAt(Time time, std::optional<double> duration, double quality = 1) {
  return {.time = time, .duration = duration, .depth = 1, .quality = quality};
}

// Breaths of 4 s until `end`.
BreathingRate steady(Time end) {
  BreathingRate rate;
  rate.add(breathAt(4s, {}));
  for (Time time = 8s; time <= end; time += 4s) rate.add(breathAt(time, 4.0));
  return rate;
}

TEST(BreathingRateTest, IsKnownFromTheSecondEndOfInspirationOn) {
  BreathingRate rate;
  EXPECT_FALSE(rate.at(1s, 1));
  rate.add(breathAt(4s, {}));
  EXPECT_FALSE(rate.at(5s, 1));
  rate.add(breathAt(8s, 4.0));
  ASSERT_TRUE(rate.at(9s, 1));
  EXPECT_DOUBLE_EQ(rate.at(9s, 1)->perMinute, 15);
  EXPECT_LT(rate.at(9s, 1)->quality, 0.6);
}

TEST(BreathingRateTest, IsKnownSoonerFromAWholeBreathBetweenTwoBeginnings) {
  BreathingRate rate;
  rate.add(BreathCycle{1s, 3.0, 0.2});  // too poor
  rate.add(breathAt(4s, {}));
  EXPECT_FALSE(rate.at(5s, 1));
  rate.interrupt();
  rate.add(breathAt(14s, {}));
  rate.add(BreathCycle{16s, 4.0, 0.7});
  ASSERT_TRUE(rate.at(17s, 1));
  EXPECT_DOUBLE_EQ(rate.at(17s, 1)->perMinute, 15);
  EXPECT_LT(rate.at(17s, 1)->quality, 0.5);
  EXPECT_FALSE(rate.at(17s, 0.3));
  // A later one does not change it, a breath between two ends does.
  rate.add(BreathCycle{17s, 1.5, 0.7});
  EXPECT_DOUBLE_EQ(rate.at(17s, 1)->perMinute, 15);
  rate.add(breathAt(19s, 5.0));
  EXPECT_DOUBLE_EQ(rate.at(20s, 1)->perMinute, 12);
}

TEST(BreathingRateTest, OfABreathBetweenTwoBeginningsItVanishesLikeOfOthers) {
  const auto first = [](Breath breath, BreathCycle cycle) {
    BreathingRate rate;
    rate.add(breath);
    rate.add(cycle);
    return rate;
  };
  BreathingRate rate = first(breathAt(4s, {}), {6s, 4.0, 0.7});
  EXPECT_TRUE(rate.at(14s, 1));
  EXPECT_FALSE(rate.at(14s + 1ms, 1));
  rate.interrupt();
  rate.add(breathAt(15s, {}));
  EXPECT_FALSE(rate.at(16s, 1));
  // There is a pause in it.
  EXPECT_FALSE(first(breathAt(12s, {}), {14s, 10.1, 0.7}).at(15s, 1));
  // The first end of inspiration was before a pause, so the beginning may have been in it.
  rate = first(breathAt(4s, {}), {6s, 4.0, 0.7});
  rate.add(breathAt(16s, 12.0));
  EXPECT_FALSE(rate.at(17s, 1));
}

TEST(BreathingRateTest, IsTheNumberOfBreathsByTheirTime) {
  BreathingRate rate = steady(40s);
  rate.add(breathAt(42s, 2.0));
  rate.add(breathAt(48s, 6.0));
  // Of the last 30 s: five of 4 s, one of 2 s and one of 6 s.
  EXPECT_DOUBLE_EQ(rate.at(49s, 1)->perMinute, 60 * 7 / 28.0);
}

TEST(BreathingRateTest, QualityRisesWithTheNumberOfBreathsAndFallsWithUnevenness) {
  EXPECT_DOUBLE_EQ(steady(40s).at(41s, 1)->quality, 1);
  EXPECT_LT(steady(12s).at(13s, 1)->quality, steady(40s).at(41s, 1)->quality);
  BreathingRate uneven;
  for (int i = 0; i < 8; ++i)
    uneven.add(
        breathAt(i * 4s + (i % 2) * 2s, i == 0 ? std::nullopt : std::optional(i % 2 ? 6.0 : 2.0)));
  EXPECT_NEAR(uneven.at(35s, 1)->quality, 0.5, 0.05);
}

TEST(BreathingRateTest, IsAbsentWhereTheQualityIsLow) {
  BreathingRate rate;
  for (int i = 0; i < 8; ++i) rate.add(breathAt(i * 4s, 4.0, 0.29));
  EXPECT_FALSE(rate.at(30s, 1));
  for (int i = 8; i < 16; ++i) rate.add(breathAt(i * 4s, 4.0, 0.31));
  EXPECT_TRUE(rate.at(62s, 1));
}

TEST(BreathingRateTest, IsAbsentWhileTheSignalIsPoor) {
  const BreathingRate rate = steady(40s);
  EXPECT_TRUE(rate.at(41s, 0.36));
  EXPECT_FALSE(rate.at(41s, 0.34));
}

TEST(BreathingRateTest, VanishesTenSecondsAfterTheLastBreath) {
  const BreathingRate rate = steady(40s);
  EXPECT_TRUE(rate.at(50s, 1));
  EXPECT_FALSE(rate.at(50s + 1ms, 1));
}

TEST(BreathingRateTest, ABreathWithAPauseInItCountsInNoRate) {
  BreathingRate rate = steady(40s);
  rate.add(breathAt(56s, 16.0));
  EXPECT_FALSE(rate.at(57s, 1));
  rate.add(breathAt(60s, 4.0));
  EXPECT_DOUBLE_EQ(rate.at(61s, 1)->perMinute, 15);
}

TEST(BreathingRateTest, SlowBreathsAreNoPauses) {
  BreathingRate rate;
  for (int i = 1; i < 8; ++i)
    rate.add(breathAt(i * 12s, i == 1 ? std::nullopt : std::optional(12.0)));
  ASSERT_TRUE(rate.at(95s, 1));
  EXPECT_DOUBLE_EQ(rate.at(95s, 1)->perMinute, 5);
  // A pause is then one of more than 1.5 breaths.
  EXPECT_TRUE(rate.at(84s + 18s, 1));
  EXPECT_FALSE(rate.at(84s + 18001ms, 1));
}

TEST(BreathingRateTest, AfterAnInterruptionItWaitsForABreath) {
  BreathingRate rate = steady(40s);
  rate.interrupt();
  EXPECT_FALSE(rate.at(41s, 1));
  rate.add(breathAt(46s, {}));
  EXPECT_DOUBLE_EQ(rate.at(47s, 1)->perMinute, 15);
  // Nothing from before is left after half a minute.
  rate.interrupt();
  rate.add(breathAt(80s, {}));
  EXPECT_FALSE(rate.at(81s, 1));
}

using simulator::StrapOptions;
using simulator::TrainingPlan;
using simulator::Wearer;

TEST(BreathingRateTest, FollowsASimulatedWearer) {
  StrapOptions options{.plan = TrainingPlan::quiet(), .wearer = Wearer{.irregularity = 0.1}};
  const BreathingTrial trial = tryBreathing(options, 300s);
  double sum = 0;
  int answered = 0;
  for (const auto& second : trial.seconds) {
    const auto truth = trial.trueRate(second.time - 1500ms);
    if (!truth || !second.perMinute) continue;
    sum += std::abs(*truth - *second.perMinute);
    ++answered;
  }
  EXPECT_GT(answered, 280);
  EXPECT_LT(sum / answered, 0.3);
}

TEST(BreathingRateTest, IsKnownTwoSecondsAfterTheSecondEndOfInspiration) {
  for (std::uint64_t seed = 1; seed <= 20; ++seed) {
    const BreathingTrial trial =
        tryBreathing({.seed = seed, .plan = TrainingPlan::quiet(), .wearer = Wearer{}}, 14s);
    // At 14 a minute this is 7 to 11 s after the beginning. A top within the first second is not
    // seen.
    const std::size_t first = trial.truth.ends.at(0) < 1s ? 1 : 0;
    for (const auto& second : trial.seconds)
      if (second.time > trial.truth.ends.at(first + 1) + 2s) {
        EXPECT_TRUE(second.perMinute) << seed << ' ' << second.time.count();
      }
  }
}

// At 14 a minute, whatever part of a breath the signal begins with.
TEST(BreathingRateTest, IsKnownNineSecondsAfterContact) {
  for (std::uint64_t seed = 1; seed <= 20; ++seed) {
    for (const bool described : {false, true}) {
      StrapOptions options{.seed = seed, .plan = TrainingPlan::quiet()};
      if (described) options.wearer = Wearer{};
      const BreathingTrial trial = tryBreathing(options, 10s);
      ASSERT_EQ(trial.seconds.at(8).time, 9s);
      ASSERT_TRUE(trial.seconds.at(8).perMinute) << seed;
      EXPECT_NEAR(*trial.seconds.at(8).perMinute, 14, 2) << seed;
    }
  }
}

TEST(BreathingRateTest, AnApnoeaOfTenSecondsIsNoticed) {
  for (std::uint64_t seed = 1; seed <= 5; ++seed) {
    StrapOptions options{.seed = seed, .plan = TrainingPlan::quiet(), .wearer = Wearer{}};
    options.wearer->apnoeas = {{60s, 14s}};  // from the end of the breath that goes on
    const BreathingTrial trial = tryBreathing(options, 120s);
    bool noticed = false;
    for (const auto& second : trial.seconds) {
      if (second.time < 55s || second.time > 100s) {
        if (second.time > 15s) {
          EXPECT_TRUE(second.perMinute) << second.time.count();
        }
      } else if (!second.perMinute) {
        noticed = true;
      }
      // The signal is good all the time: not a reason to turn to the ECG.
      if (second.time > 15s) {
        EXPECT_GT(second.signalQuality, 0.5);
      }
    }
    EXPECT_TRUE(noticed) << seed;
  }
}

TEST(BreathingRateTest, ThereIsNoneWhileTheElectrodesAreOff) {
  StrapOptions options{.plan = TrainingPlan::quiet(), .wearer = Wearer{}};
  options.plan.electrodesOff = {{60s, 20s}};
  const BreathingTrial trial = tryBreathing(options, 120s);
  for (const auto& second : trial.seconds) {
    if (second.time > 60s && second.time <= 80s) {
      EXPECT_FALSE(second.perMinute);
      EXPECT_EQ(second.signalQuality, 0);
    }
    if (second.time > 95s) {
      EXPECT_TRUE(second.perMinute);
    }
  }
}

}  // namespace
}  // namespace Zephly::vitals
