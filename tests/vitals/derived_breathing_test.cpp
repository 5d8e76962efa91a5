// SPDX-License-Identifier: MIT
#include <vitals/derived_breathing.h>

#include <simulator/random.h>
#include <tests/support/allocation_count.h>
#include <vitals/breathing_rate.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <numbers>
#include <optional>
#include <vector>

namespace Zephly::vitals {
namespace {

using namespace std::chrono_literals;
using std::numbers::pi;

// A heart on which breathing acts.
struct Heart {
  double perMinute = 64;
  double breathing = 0.25;        // Hz
  double interval = 0.03;         // s: of breathing in the interval
  double height = 0.1;            // mV: of breathing in the R wave of 1 mV
  double heightBreathing = 0.25;  // Hz, of the height alone
  double pressure = 0.02;         // s: of the 0.1 Hz wave in the interval
  double noise = 0.005;           // s and mV
};

std::vector<Beat> beatsOf(const Heart& heart, double from, double to, std::uint64_t seed = 1) {
  simulator::Random random(seed);
  std::vector<Beat> beats;
  double time = from;
  std::optional<double> rr;
  while (time < to) {
    Beat beat;
    beat.time = Time(std::llround(time * 1e9));
    beat.rr = rr;
    beat.amplitude = 1 + heart.height * std::sin(2 * pi * heart.heightBreathing * time) +
                     heart.noise * random.normal();
    beat.quality = 1;
    beats.push_back(beat);
    rr = 60 / heart.perMinute - heart.interval * std::sin(2 * pi * heart.breathing * time) +
         heart.pressure * std::sin(2 * pi * 0.1 * time) + heart.noise * random.normal();
    time += *rr;
  }
  return beats;
}

std::vector<Breath> breathsOf(DerivedBreathing& derived, const std::vector<Beat>& beats) {
  std::vector<Breath> breaths;
  for (const Beat& beat : beats) {
    derived.push(beat);
    while (const auto breath = derived.next()) breaths.push_back(*breath);
  }
  return breaths;
}

std::optional<BreathingRate::Rate> rateOf(const std::vector<Breath>& breaths, Time now) {
  BreathingRate rate;
  for (const Breath& breath : breaths) rate.add(breath);
  return rate.at(now, 1);
}

TEST(DerivedBreathingTest, FindsTheRateThatBothSeriesShow) {
  for (const double perMinute : {9.0, 12.0, 15.0, 20.0, 26.0}) {
    DerivedBreathing derived;
    const auto breaths = breathsOf(
        derived, beatsOf({.breathing = perMinute / 60, .heightBreathing = perMinute / 60}, 0, 120));
    for (const Breath& breath : breaths) EXPECT_TRUE(breath.derived);
    const auto rate = rateOf(breaths, 118s);
    ASSERT_TRUE(rate) << perMinute;
    EXPECT_NEAR(rate->perMinute, perMinute, 0.5);
    EXPECT_GT(rate->quality, 0.5) << perMinute;
    EXPECT_GE(derived.signalQuality(), 0.6) << perMinute;
  }
}

TEST(DerivedBreathingTest, OneSeriesAloneIsTrustedLess) {
  for (const Heart& heart : {Heart{.height = 0}, Heart{.interval = 0, .pressure = 0}}) {
    std::size_t breaths = 0;
    std::size_t trusted = 0;  // the period of noise may agree by chance
    for (std::uint64_t seed = 1; seed <= 10; ++seed) {
      DerivedBreathing derived;
      const auto found = breathsOf(derived, beatsOf(heart, 0, 300, seed));
      breaths += found.size();
      for (const Breath& breath : found) trusted += breath.quality > 0.6 ? 1 : 0;
      if (const auto rate = rateOf(found, 298s)) {
        EXPECT_NEAR(rate->perMinute, 15, 1);
      }
    }
    EXPECT_GT(breaths, 500U);
    EXPECT_LT(trusted, breaths / 10);
  }
}

TEST(DerivedBreathingTest, TwoSeriesThatDisagreeAreTrustedLess) {
  DerivedBreathing derived;
  const auto breaths =
      breathsOf(derived, beatsOf({.breathing = 0.2, .heightBreathing = 0.33}, 0, 120));
  EXPECT_LE(derived.signalQuality(), 0.6);
  for (const Breath& breath : breaths)
    if (breath.time > 30s) {
      EXPECT_LE(breath.quality, 0.6);
    }
}

TEST(DerivedBreathingTest, FindsNoBreathingInNoiseAndInTheWavesOfBloodPressure) {
  for (const double pressure : {0.0, 0.04}) {
    int answered = 0;
    for (std::uint64_t seed = 1; seed <= 5; ++seed) {
      DerivedBreathing derived;
      const auto breaths = breathsOf(
          derived,
          beatsOf({.interval = 0, .height = 0, .pressure = pressure, .noise = 0.02}, 0, 300, seed));
      BreathingRate rate;
      std::size_t next = 0;
      for (Time now = 30s; now < 300s; now += 1s) {
        while (next < breaths.size() && breaths[next].time + 4s <= now) rate.add(breaths[next++]);
        answered += rate.at(now, 1) ? 1 : 0;
      }
    }
    EXPECT_LT(answered, 5 * 270 / 20) << pressure;
  }
}

TEST(DerivedBreathingTest, LeavesOutArtefactsAndEctopicBeatsWithTheIntervalAfterThem) {
  const Heart heart;
  std::vector<Beat> beats = beatsOf(heart, 0, 120);
  for (std::size_t i = 10; i + 1 < beats.size(); i += 12) {
    beats[i].kind = i % 24 == 10 ? BeatClass::ectopic : BeatClass::artefact;
    beats[i].amplitude = 3;
    beats[i].rr = 0.6 * *beats[i].rr;
    beats[i + 1].rr = 1.6 * *beats[i + 1].rr;
  }
  DerivedBreathing derived;
  const auto rate = rateOf(breathsOf(derived, beats), 118s);
  EXPECT_GT(derived.signalQuality(), 0.6);
  ASSERT_TRUE(rate);
  EXPECT_NEAR(rate->perMinute, 15, 0.5);
}

TEST(DerivedBreathingTest, OfABeatOfAnotherShapeInRhythmTheIntervalCounts) {
  std::vector<Beat> beats = beatsOf({}, 0, 120);
  DerivedBreathing usual;
  const std::size_t found = breathsOf(usual, beats).size();
  for (std::size_t i = 10; i < beats.size(); i += 2) {
    beats[i].kind = BeatClass::ectopic;
    beats[i].amplitude = 3;
  }
  DerivedBreathing derived;
  const auto breaths = breathsOf(derived, beats);
  EXPECT_GE(breaths.size() + 4, found);
}

TEST(DerivedBreathingTest, BeginsAnewAfterAnInterruption) {
  DerivedBreathing derived;
  breathsOf(derived, beatsOf({}, 0, 60));
  EXPECT_GT(derived.signalQuality(), 0.7);
  derived.interrupt();
  EXPECT_EQ(derived.signalQuality(), 0);
  const auto breaths = breathsOf(derived, beatsOf({}, 61.5, 120));
  ASSERT_FALSE(breaths.empty());
  EXPECT_GT(breaths.front().time, 61s);
  EXPECT_GT(static_cast<double>(breaths.front().time.count()) / 1e9 -
                breaths.front().duration.value_or(0),
            61);
}

TEST(DerivedBreathingTest, ASilenceInterrupts) {
  DerivedBreathing derived;
  breathsOf(derived, beatsOf({}, 0, 60));
  for (const Breath& breath : breathsOf(derived, beatsOf({}, 64, 120))) EXPECT_GT(breath.time, 64s);
}

TEST(DerivedBreathingTest, ABeatFoundBySearchingBackIsLeftOut) {
  const std::vector<Beat> beats = beatsOf({}, 0, 60);
  DerivedBreathing derived;
  const auto usual = breathsOf(derived, beats);
  DerivedBreathing other;
  std::vector<Breath> breaths;
  for (const Beat& beat : beats) {
    Beat late = beat;
    late.time -= 300ms;
    late.amplitude = 9;
    other.push(beat);
    while (const auto breath = other.next()) breaths.push_back(*breath);
    other.push(late);
    while (const auto breath = other.next()) breaths.push_back(*breath);
  }
  EXPECT_EQ(breaths, usual);
}

TEST(DerivedBreathingTest, AllocatesOnlyWhenItIsMade) {
  const std::vector<Beat> beats = beatsOf({}, 0, 300);
  DerivedBreathing derived;
  const std::size_t before = allocationCount();
  for (const Beat& beat : beats) {
    derived.push(beat);
    while (derived.next()) {
    }
  }
  derived.interrupt();
  EXPECT_EQ(allocationCount(), before);
}

}  // namespace
}  // namespace Zephly::vitals
