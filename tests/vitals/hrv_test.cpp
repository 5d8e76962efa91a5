// SPDX-License-Identifier: MIT
#include <vitals/hrv.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <numbers>
#include <vector>

namespace Zephly::vitals {
namespace {

using namespace std::chrono_literals;

Beat beatAt(Time time, BeatClass kind = BeatClass::normal) {
  return {.time = time, .rr = 1.0, .amplitude = 1, .quality = 1, .kind = kind};
}

std::vector<Beat> beatsAfter(const std::vector<int>& milliseconds) {
  std::vector<Beat> beats = {beatAt(0s)};
  beats.front().rr.reset();
  for (const int interval : milliseconds) {
    beats.push_back(beatAt(beats.back().time + std::chrono::milliseconds(interval)));
  }
  return beats;
}

// Beats whose intervals follow a sine.
std::vector<Beat> sinusArrhythmia(Time duration, double frequency, double amplitude) {
  std::vector<Beat> beats = {beatAt(0s)};
  while (beats.back().time < duration) {
    const double time = std::chrono::duration<double>(beats.back().time).count();
    const double rr = 0.8 + amplitude * std::sin(2 * std::numbers::pi * frequency * time);
    beats.push_back(beatAt(beats.back().time + Time(static_cast<std::int64_t>(rr * 1e9))));
  }
  return beats;
}

// By hand: NN 800, 860, 800, 850 ms; differences 60, -60, 50.
TEST(HrvTest, FollowsItsDefinitions) {
  const Hrv hrv = hrvOf(beatsAfter({800, 860, 800, 850}));
  EXPECT_EQ(hrv.beats, 5U);
  EXPECT_EQ(hrv.nn, 4U);
  EXPECT_DOUBLE_EQ(hrv.share, 1);
  EXPECT_NEAR(*hrv.meanNN, 827.5, 1e-9);
  EXPECT_NEAR(*hrv.sdnn, std::sqrt((2 * 27.5 * 27.5 + 32.5 * 32.5 + 22.5 * 22.5) / 3), 1e-9);
  EXPECT_NEAR(*hrv.rmssd, std::sqrt((3600.0 + 3600 + 2500) / 3), 1e-9);
  EXPECT_NEAR(*hrv.pnn50, 100 * 2 / 3.0, 1e-9);  // 50 ms is not more than 50 ms
  const double mean = 50 / 3.0;
  const double variance =
      (std::pow(60 - mean, 2) + std::pow(-60 - mean, 2) + std::pow(50 - mean, 2)) / 2;
  EXPECT_NEAR(*hrv.sd1, std::sqrt(variance / 2), 1e-9);
  // Sums 1660, 1660, 1650.
  EXPECT_NEAR(*hrv.sd2, std::sqrt((2 * std::pow(10 / 3.0, 2) + std::pow(20 / 3.0, 2)) / 2 / 2),
              1e-9);
  EXPECT_FALSE(hrv.lf);
  EXPECT_FALSE(hrv.hf);
  EXPECT_FALSE(hrv.lfOverHf);
}

// Alternating intervals lie on both sides of the line of identity: no SD2 to speak of.
TEST(HrvTest, AlternatingIntervalsHaveOnlySD1) {
  std::vector<int> intervals;
  for (int i = 0; i < 200; ++i) intervals.push_back(i % 2 == 0 ? 780 : 820);
  const Hrv hrv = hrvOf(beatsAfter(intervals));
  EXPECT_NEAR(*hrv.rmssd, 40, 1e-9);
  EXPECT_NEAR(*hrv.pnn50, 0, 1e-9);
  EXPECT_NEAR(*hrv.sd1, 40 / std::sqrt(2.0), 0.1);
  EXPECT_NEAR(*hrv.sd2, 0, 1e-9);
}

TEST(HrvTest, AnEctopicBeatCostsItsTwoIntervalsAndThePairsWithThem) {
  auto beats = beatsAfter({800, 810, 500, 1100, 800, 830});
  beats[3].kind = BeatClass::ectopic;
  const Hrv hrv = hrvOf(beats);
  EXPECT_EQ(hrv.beats, 7U);
  EXPECT_EQ(hrv.nn, 4U);
  EXPECT_NEAR(hrv.share, 4 / 6.0, 1e-12);
  EXPECT_NEAR(*hrv.meanNN, (800 + 810 + 800 + 830) / 4.0, 1e-9);
  EXPECT_NEAR(*hrv.rmssd, std::sqrt((100 + 900) / 2.0), 1e-9);
}

TEST(HrvTest, AnArtefactBetweenTwoBeatsSeparatesThem) {
  auto beats = beatsAfter({800, 400, 400, 800});
  beats[2].kind = BeatClass::artefact;
  EXPECT_EQ(hrvOf(beats).nn, 2U);
}

TEST(HrvTest, NoIntervalCrossesAGap) {
  auto beats = beatsAfter({800, 800, 30'000, 800});
  beats[3].rr.reset();
  const Hrv hrv = hrvOf(beats);
  EXPECT_EQ(hrv.nn, 3U);
  EXPECT_NEAR(*hrv.meanNN, 800, 1e-9);
  EXPECT_NEAR(*hrv.rmssd, 0, 1e-9);
}

TEST(HrvTest, ASortedInLateBeatDividesTheInterval) {
  auto beats = beatsAfter({800, 800, 800});
  beats[2].rr = 0.8;
  beats[3].rr = 1.6;  // reported before the late one was found
  EXPECT_NEAR(*hrvOf(beats).meanNN, 800, 1e-9);
}

TEST(HrvTest, WithoutIntervalsNothingIsKnown) {
  EXPECT_EQ(hrvOf({}), Hrv{});
  const Hrv one = hrvOf(beatsAfter({}));
  EXPECT_EQ(one.beats, 1U);
  EXPECT_EQ(one.share, 0);
  EXPECT_FALSE(one.meanNN);
  const Hrv two = hrvOf(beatsAfter({800}));
  EXPECT_TRUE(two.meanNN);
  EXPECT_FALSE(two.sdnn);
  EXPECT_FALSE(two.rmssd);
  EXPECT_FALSE(two.pnn50);
}

TEST(HrvTest, AnArrhythmiaOfATenthOfAHertzIsLF) {
  const Hrv hrv = hrvOf(sinusArrhythmia(5min, 0.1, 0.04));
  EXPECT_NEAR(*hrv.lf, 800, 60);
  EXPECT_LT(*hrv.hf, 40);
  EXPECT_DOUBLE_EQ(*hrv.lfOverHf, *hrv.lf / *hrv.hf);
}

TEST(HrvTest, BreathingFifteenTimesAMinuteIsHF) {
  const Hrv hrv = hrvOf(sinusArrhythmia(5min, 0.25, 0.04));
  EXPECT_NEAR(*hrv.hf, 800, 60);
  EXPECT_LT(*hrv.lf, 40);
}

TEST(HrvTest, AMinuteHasHFOnlyAndLessHasNeither) {
  const Hrv minute = hrvOf(sinusArrhythmia(61s, 0.25, 0.04));
  EXPECT_TRUE(minute.hf);
  EXPECT_FALSE(minute.lf);
  EXPECT_FALSE(hrvOf(sinusArrhythmia(50s, 0.25, 0.04)).hf);
}

TEST(HrvTest, AWholeRecordingIsTheMeanOfItsSegmentsOfFiveMinutes) {
  // The second segment has twice the amplitude, and four times the power.
  auto beats = sinusArrhythmia(5min, 0.25, 0.02);
  const Time seam = beats.back().time;
  for (const Beat& beat : sinusArrhythmia(5min, 0.25, 0.04)) {
    beats.push_back(beatAt(beat.time + seam + 800ms));
  }
  EXPECT_NEAR(*hrvOf(beats).hf, (200 + 800) / 2.0, 40);
}

TEST(HrvTest, ASegmentOfMostlyArtefactsHasNoSpectrum) {
  auto beats = sinusArrhythmia(5min, 0.25, 0.04);
  for (std::size_t i = 0; i < beats.size(); i += 3) beats[i].kind = BeatClass::artefact;
  const Hrv hrv = hrvOf(beats);
  EXPECT_LT(hrv.share, 0.5);
  EXPECT_FALSE(hrv.hf);
  EXPECT_TRUE(hrv.sdnn);
}

TEST(HrvTest, LastBeatsAreThoseOfTheWindow) {
  const auto beats = beatsAfter({1000, 1000, 1000, 1000});
  EXPECT_EQ(lastBeats(beats, 2s).size(), 3U);
  EXPECT_EQ(lastBeats(beats, 2s).front().time, 2s);
  EXPECT_EQ(lastBeats(beats, 1h).size(), 5U);
  EXPECT_TRUE(lastBeats({}, 1h).empty());
}

}  // namespace
}  // namespace Zephly::vitals
