// SPDX-License-Identifier: MIT
// How far the beats and the signal are trusted.
#include <vitals/beat_detector.h>

#include <tests/vitals/synthetic_ecg.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <numbers>

namespace Zephly::vitals {
namespace {

constexpr double qualityRate = 360;
constexpr double qualityLength = 30;

class BeatQualityTest : public testing::Test {
 protected:
  DetectorRun runOn(const std::function<double(double)>& signal) {
    return runDetector(detector, qualityRate, qualityLength, signal);
  }
  double ecg(double time) const { return syntheticEcg(beats, 72, time); }
  double nearest(double time) const {
    double result = qualityLength;
    for (const double beat : beats) result = std::min(result, std::abs(time - beat));
    return result;
  }

  std::vector<double> beats = steadyBeats(72, qualityLength);
  BeatDetector detector{qualityRate};
};

TEST_F(BeatQualityTest, FallsWithNoise) {
  double previous = 1.06;
  for (const double noise : {0.0, 0.3, 0.8}) {
    BeatDetector other(qualityRate);
    std::uint32_t random = 1;
    const DetectorRun run = runDetector(other, qualityRate, qualityLength, [&](double time) {
      random = random * 1664525U + 1013904223U;
      const double uniform = static_cast<double>(random >> 8U) / 16777216.0 - 0.5;
      return ecg(time) + noise * 3.46 * uniform;
    });
    double mean = 0;
    for (std::size_t i = 5; i < run.qualities.size(); ++i) mean += run.qualities[i] / 25;
    EXPECT_LT(mean, previous - 0.05) << noise;
    previous = mean;
  }
  EXPECT_LT(previous, 0.5);
}

TEST_F(BeatQualityTest, ASignalThatIsConstantBetweenBeatsIsNotTrusted) {
  const DetectorRun run =
      runOn([this](double time) { return nearest(time) < 0.05 ? ecg(time) : 0.25; });
  for (std::size_t i = 5; i < run.qualities.size(); ++i) EXPECT_LT(run.qualities[i], 0.4) << i;
}

TEST_F(BeatQualityTest, FastNoiseBetweenBeatsIsNotTrusted) {
  // At 45 Hz, which hardly raises the strength.
  const DetectorRun run = runOn(
      [this](double time) { return ecg(time) + 0.3 * std::sin(2 * std::numbers::pi * 45 * time); });
  for (std::size_t i = 5; i < run.qualities.size(); ++i) EXPECT_LT(run.qualities[i], 0.5) << i;
}

TEST_F(BeatQualityTest, ThreeSecondsWithoutABeatAreNotTrusted) {
  // The last beat is at 19.5 s; a slow wave follows, which is neither constant nor noise.
  const DetectorRun run = runOn([this](double time) {
    return time < 19.9 ? ecg(time) : 0.1 * std::sin(2 * std::numbers::pi * 0.3 * (time - 19.9));
  });
  EXPECT_GT(run.qualities[19], 0.9);  // at 20 s
  EXPECT_GT(run.qualities[21], 0.9);
  for (std::size_t i = 23; i < run.qualities.size(); ++i) EXPECT_EQ(run.qualities[i], 0) << i;
}

TEST_F(BeatQualityTest, TrustsNoBeatsThatAreUnlikeEachOther) {
  // Bursts of noise of every shape, at the times of beats: each stands out clearly.
  std::uint32_t random = 7;
  std::vector<double> shape(40);
  double of = -1;
  const DetectorRun run = runOn([&](double time) {
    const auto next =
        std::min_element(beats.begin(), beats.end(), [time](double left, double right) {
          return std::abs(left - time) < std::abs(right - time);
        });
    if (*next != of) {
      of = *next;
      for (double& each : shape) {
        random = random * 1664525U + 1013904223U;
        each = static_cast<double>(random >> 8U) / 8388608.0 - 1;
      }
    }
    const double place = (time - of) / 0.01 + 20;
    if (place < 1 || place > 38) return 0.02 * std::sin(9 * time);
    const auto whole = static_cast<std::size_t>(place);
    const double part = place - static_cast<double>(whole);
    return shape[whole] + part * (shape[whole + 1] - shape[whole]);
  });
  int found = 0;
  int trusted = 0;
  for (const Beat& beat : run.beats) {
    if (secondsOf(beat.time) < 10) continue;
    ++found;
    trusted += beat.quality >= 0.5 ? 1 : 0;
  }
  EXPECT_GT(found, 10);
  EXPECT_LE(trusted, found / 10);
}

}  // namespace
}  // namespace Zephly::vitals
