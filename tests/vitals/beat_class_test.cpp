// SPDX-License-Identifier: MIT
#include <vitals/beat_detector.h>

#include <tests/vitals/synthetic_ecg.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <random>
#include <vector>

namespace Zephly::vitals {
namespace {

constexpr double classRate = 360;

// Beats with a QRS complex three times as broad, downwards, are added at `others`.
DetectorRun runWith(const std::vector<double>& beats, const std::vector<double>& others,
                    double seconds) {
  BeatDetector detector(classRate);
  return runDetector(detector, classRate, seconds, [&](double time) {
    double sum = syntheticEcg(beats, 60, time);
    for (const double other : others) {
      const double x = (time - other) / 0.03;
      sum -= 1.4 * std::exp(-x * x / 2);
    }
    return sum;
  });
}

void expectEctopicOnly(const DetectorRun& run, const std::vector<double>& expected) {
  std::size_t found = 0;
  for (const Beat& beat : run.beats) {
    const double time = secondsOf(beat.time);
    const bool here = std::any_of(expected.begin(), expected.end(),
                                  [time](double each) { return std::abs(time - each) < 0.05; });
    found += here ? 1 : 0;
    EXPECT_EQ(beat.kind == BeatClass::ectopic, here) << time;
  }
  EXPECT_EQ(found, expected.size());
}

// Intervals as in deep, slow breathing: from 0.7 to 1.1 s within two seconds.
std::vector<double> respiratoryArrhythmia(double seconds) {
  std::vector<double> beats = {0.3};
  while (beats.back() < seconds) {
    beats.push_back(beats.back() + 0.9 + 0.2 * std::sin(2 * std::numbers::pi * beats.back() / 5));
  }
  return beats;
}

TEST(BeatClassTest, RespiratoryArrhythmiaIsNormal) {
  const DetectorRun run = runWith(respiratoryArrhythmia(120), {}, 120);
  EXPECT_GT(run.beats.size(), 120U);
  expectEctopicOnly(run, {});
}

TEST(BeatClassTest, AnEarlyBeatOfTheUsualShapeIsEctopic) {
  std::vector<double> beats = steadyBeats(60, 40);
  beats[20] -= 0.35;
  expectEctopicOnly(runWith(beats, {}, 40), {beats[20]});
}

TEST(BeatClassTest, BroadEarlyBeatsAreEctopicEvenEverySecond) {
  std::vector<double> beats;
  std::vector<double> others;
  for (double at = 0.3; at < 60; at += at < 20 ? 1.0 : 1.6) {
    beats.push_back(at);
    if (at >= 20) others.push_back(at + 0.6);
  }
  expectEctopicOnly(runWith(beats, others, 61), others);
}

TEST(BeatClassTest, ABroadBeatNeedNotBeVeryEarly) {
  // Upwards, as the others.
  std::vector<double> beats = steadyBeats(60, 40);
  const double broad = beats[20] - 0.08;
  beats.erase(beats.begin() + 20);
  BeatDetector detector(classRate);
  const DetectorRun run = runDetector(detector, classRate, 40, [&](double time) {
    const double x = (time - broad) / 0.03;
    return syntheticEcg(beats, 60, time) + 1.4 * std::exp(-x * x / 2);
  });
  expectEctopicOnly(run, {broad});
}

TEST(BeatClassTest, ASlowingHeartIsNormal) {
  std::vector<double> beats;
  double at = 0.3;
  for (int i = 0; i < 40; ++i) {
    beats.push_back(at);
    at += i < 20 ? 1.0 : 1.5;
  }
  expectEctopicOnly(runWith(beats, {}, at), {});
}

TEST(BeatClassTest, AShapeThatStaysBecomesTheUsualOne) {
  // Two minutes of narrow complexes; then all are broad.
  const std::vector<double> narrow = steadyBeats(60, 120);
  std::vector<double> broad;
  for (int i = 0; i < 90; ++i) broad.push_back(narrow.back() + 1 + i);
  const DetectorRun run = runWith(narrow, broad, 210);
  ASSERT_GT(run.beats.size(), 200U);
  EXPECT_EQ(run.beats.back().kind, BeatClass::normal);
  EXPECT_EQ(run.beats[125].kind, BeatClass::ectopic);
}

TEST(BeatClassTest, InNoiseOneBeatInAHundredIsEctopicAtMost) {
  const std::vector<double> beats = respiratoryArrhythmia(300);
  BeatDetector detector(classRate);
  std::mt19937 random(20);
  const DetectorRun run = runDetector(detector, classRate, 300, [&](double time) {
    double noise = 0;
    for (int i = 0; i < 12; ++i) noise += static_cast<double>(random()) / 4294967296.0 - 0.5;
    return syntheticEcg(beats, 60, time) + 0.2 * noise;
  });
  ASSERT_GT(run.beats.size(), 320U);
  const auto hundredth = static_cast<double>(run.beats.size()) / 100;
  double quality = 0;
  double ectopic = 0;
  for (const Beat& beat : run.beats) {
    quality += beat.quality;
    ectopic += beat.kind == BeatClass::ectopic ? 1 : 0;
  }
  EXPECT_LT(quality, 85 * hundredth);
  EXPECT_LE(ectopic, hundredth);
}

// The rest of its shape is not known.
TEST(BeatClassTest, ABeatCutByTheLossOfContactIsNormal) {
  for (const double behind : {0.01, 0.02, 0.03, 0.05, 0.08}) {
    std::vector<double> beats = steadyBeats(60, 30);
    beats.back() -= 0.08;
    const double end = beats.back() + behind;
    BeatDetector detector(classRate);
    DetectorRun run = runDetector(detector, classRate, end,
                                  [&](double time) { return syntheticEcg(beats, 60, time); });
    detector.setContact(false);
    while (const auto beat = detector.next()) run.beats.push_back(*beat);
    ASSERT_FALSE(run.beats.empty());
    EXPECT_NEAR(secondsOf(run.beats.back().time), beats.back(), 0.01) << behind;
    EXPECT_EQ(run.beats.back().kind, BeatClass::normal) << behind;
  }
}

}  // namespace
}  // namespace Zephly::vitals
