// SPDX-License-Identifier: MIT
// What the beat detector answers where the signal is not an ECG, or not only one.
#include <vitals/beat_detector.h>

#include <tests/vitals/synthetic_ecg.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <numbers>

namespace Zephly::vitals {
namespace {

constexpr double ecgRate = 500;
constexpr double testLength = 40;
constexpr float notANumber = std::numeric_limits<float>::quiet_NaN();
constexpr float infinite = std::numeric_limits<float>::infinity();

class HostileEcgTest : public testing::Test {
 protected:
  DetectorRun runOn(const std::function<double(double)>& signal) {
    return runDetector(detector, ecgRate, testLength, signal);
  }
  void expectAll(const DetectorRun& run, double from, double to) {
    const Agreement result = agreement(run, beats, from, to);
    EXPECT_GT(result.expected, 0);
    EXPECT_EQ(result.found, result.expected);
    EXPECT_EQ(result.extra, 0);
  }
  double ecg(double time) const { return syntheticEcg(beats, perMinute, time); }
  static int countBetween(const DetectorRun& run, double from, double to) {
    return static_cast<int>(
        std::count_if(run.beats.begin(), run.beats.end(), [&](const Beat& beat) {
          return secondsOf(beat.time) >= from && secondsOf(beat.time) < to;
        }));
  }

  double perMinute = 72;
  std::vector<double> beats = steadyBeats(perMinute, testLength);
  BeatDetector detector{ecgRate};
};

TEST_F(HostileEcgTest, FlatLineHasNoBeatsAndNoQuality) {
  const DetectorRun flat = runOn([](double) { return 0.3; });
  EXPECT_TRUE(flat.beats.empty());
  for (const double quality : flat.qualities) EXPECT_EQ(quality, 0);
}

TEST_F(HostileEcgTest, FlatLineAfterBeatsHasNoBeatsAndSoonNoQuality) {
  const DetectorRun run = runOn([this](double time) { return time < 20.1 ? ecg(time) : 0.3; });
  EXPECT_EQ(countBetween(run, 20.3, 40), 0);
  for (std::size_t i = 24; i < run.qualities.size(); ++i) EXPECT_EQ(run.qualities[i], 0);
}

TEST_F(HostileEcgTest, SaturationHasNoBeatsAndIsLeftWithinTwoSeconds) {
  const DetectorRun run = runOn([this](double time) {
    const double moved = time > 15 && time < 25 ? 10 : 0;
    return std::clamp(ecg(time) + moved, -2.42, 2.42);
  });
  expectAll(run, 1, 14.5);
  EXPECT_EQ(agreement(run, beats, 16, 24).extra, 0);
  expectAll(run, 27, 39);
}

TEST_F(HostileEcgTest, NotANumberIsAMissingSample) {
  int number = 0;
  const DetectorRun run =
      runOn([&](double time) { return ++number % 10 == 0 ? notANumber : ecg(time); });
  expectAll(run, 1, 39);
}

TEST_F(HostileEcgTest, InfinityIsAMissingSample) {
  int number = 0;
  const DetectorRun run = runOn([&](double time) {
    ++number;
    return number % 50 == 0 ? infinite : number % 50 == 25 ? -infinite : ecg(time);
  });
  expectAll(run, 1, 39);
}

TEST_F(HostileEcgTest, ValuesTooLargeToSquareAreMissing) {
  int number = 0;
  const DetectorRun run = runOn([&](double time) { return ++number % 50 == 0 ? 3e38 : ecg(time); });
  expectAll(run, 1, 39);
}

TEST_F(HostileEcgTest, ASecondOfNotANumberIsAGap) {
  const DetectorRun run =
      runOn([&](double time) { return time > 20.5 && time < 21.5 ? notANumber : ecg(time); });
  EXPECT_EQ(countBetween(run, 20.5, 21.5), 0);
  expectAll(run, 1, 20.5);
  expectAll(run, 22, 39);
  const auto after = std::find_if(run.beats.begin(), run.beats.end(),
                                  [](const Beat& beat) { return secondsOf(beat.time) > 21.5; });
  ASSERT_NE(after, run.beats.end());
  EXPECT_FALSE(after->rr);
}

TEST_F(HostileEcgTest, StepsHideAtMostTheBeatsBesideThem) {
  // Every 3.1 s a step of five times the R wave, up and down in turn.
  const DetectorRun run = runOn(
      [this](double time) { return ecg(time) + (static_cast<int>(time / 3.1) % 2 == 0 ? 0 : 5); });
  const Agreement result = agreement(run, beats, 1, 39);
  EXPECT_GE(result.found, result.expected - 24);
  EXPECT_LE(result.extra, 12);  // one a step
}

TEST_F(HostileEcgTest, HumOfTenTimesTheEcgLeavesNoTrustedWrongBeat) {
  for (const double frequency : {50.0, 60.0}) {
    SCOPED_TRACE(frequency);
    BeatDetector other(ecgRate);
    const DetectorRun run = runDetector(other, ecgRate, testLength, [&](double time) {
      return ecg(time) + 10 * std::sin(2 * std::numbers::pi * frequency * time);
    });
    for (const Beat& beat : run.beats) {
      double nearest = 1;
      for (const double each : beats) {
        nearest = std::min(nearest, std::abs(secondsOf(beat.time) - each));
      }
      EXPECT_TRUE(beat.quality < 0.5 || nearest < 0.05) << secondsOf(beat.time);
    }
    for (const double quality : run.qualities) EXPECT_LT(quality, 0.5);
  }
}

TEST_F(HostileEcgTest, ChatteringContactFindsNothingWrong) {
  DetectorRun run;
  for (int i = 0; i < 20000; ++i) {
    const double at = i / ecgRate;
    // On and off every 20 ms between 15 s and 25 s.
    detector.setContact(at < 15 || at > 25 || i / 10 % 2 == 0);
    detector.push(Time{i * 2'000'000LL}, static_cast<float>(ecg(at)));
    while (const auto beat = detector.next()) run.beats.push_back(*beat);
  }
  expectAll(run, 1, 15);
  EXPECT_EQ(countBetween(run, 15.1, 25), 0);
  expectAll(run, 26, 39);
}

TEST_F(HostileEcgTest, PacemakerSpikesAreNotBeats) {
  const DetectorRun run = runOn([this](double time) {
    for (const double beat : beats) {
      if (std::abs(time - (beat - 0.16)) < 0.001) return ecg(time) + 3;
    }
    return ecg(time);
  });
  expectAll(run, 3, 39);
}

TEST_F(HostileEcgTest, FindsVerySlowAndVeryFastHearts) {
  for (const double each : {25.0, 240.0}) {
    SCOPED_TRACE(each);
    perMinute = each;
    beats = steadyBeats(each, testLength);
    BeatDetector other(ecgRate);
    const DetectorRun run =
        runDetector(other, ecgRate, testLength, [this](double time) { return ecg(time); });
    expectAll(run, 6, 39);
  }
}

TEST_F(HostileEcgTest, InvertedBeatsAreFoundAtTheSamePeaks) {
  const DetectorRun run = runOn([this](double time) { return -ecg(time); });
  expectAll(run, 1, 39);
  for (const Beat& beat : run.beats) EXPECT_LT(beat.amplitude, 0);
}

TEST_F(HostileEcgTest, AGainTenTimesLargerCostsNothing) {
  const DetectorRun run = runOn([this](double time) { return (time < 20 ? 1 : 10) * ecg(time); });
  expectAll(run, 1, 39);
}

TEST_F(HostileEcgTest, AGainTenTimesSmallerIsLearntWithinFiveSeconds) {
  const DetectorRun run = runOn([this](double time) { return (time < 20 ? 1 : 0.1) * ecg(time); });
  expectAll(run, 1, 19.5);
  expectAll(run, 25, 39);
  EXPECT_EQ(agreement(run, beats, 20, 25).extra, 0);
}

TEST_F(HostileEcgTest, ARateOffBy500PartsPerMillionChangesNoInterval) {
  // The times are right, the nominal rate is not.
  for (const double real : {ecgRate * 1.0005, ecgRate * 0.9995}) {
    BeatDetector other(ecgRate);
    const DetectorRun run =
        runDetector(other, real, testLength, [this](double time) { return ecg(time); });
    expectAll(run, 1, 39);
    for (std::size_t i = 1; i < run.beats.size(); ++i) {
      EXPECT_NEAR(run.beats[i].rr.value_or(0), 60 / perMinute, 0.002);
    }
  }
}

TEST_F(HostileEcgTest, TimesThatDoNotIncreaseAreIgnored) {
  DetectorRun run;
  for (int i = 0; i < 20000; ++i) {
    detector.push(Time{i * 2'000'000LL}, static_cast<float>(ecg(i / ecgRate)));
    if (i % 100 == 50) detector.push(Time{(i - 40) * 2'000'000LL}, 5);
    while (const auto beat = detector.next()) run.beats.push_back(*beat);
  }
  expectAll(run, 1, 39);
}

}  // namespace
}  // namespace Zephly::vitals
