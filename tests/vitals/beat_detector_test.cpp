// SPDX-License-Identifier: MIT
#include <vitals/beat_detector.h>

#include <tests/support/allocation_count.h>
#include <tests/vitals/synthetic_ecg.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <stdexcept>

namespace Zephly::vitals {
namespace {

DetectorRun runSteady(BeatDetector& detector, double rate, double perMinute, double seconds) {
  const std::vector<double> beats = steadyBeats(perMinute, seconds);
  return runDetector(detector, rate, seconds,
                     [&](double time) { return syntheticEcg(beats, perMinute, time); });
}

void expectAll(const DetectorRun& run, const std::vector<double>& beats, double from, double to) {
  const Agreement result = agreement(run, beats, from, to);
  EXPECT_GT(result.expected, 0);
  EXPECT_EQ(result.found, result.expected);
  EXPECT_EQ(result.extra, 0);
}

TEST(BeatDetectorTest, FindsEveryBeatAtEveryRate) {
  for (const double rate : {100.0, 125.0, 250.0, 360.0, 500.0, 1000.0}) {
    SCOPED_TRACE(rate);
    BeatDetector detector(rate);
    const DetectorRun run = runSteady(detector, rate, 72, 30);
    expectAll(run, steadyBeats(72, 30), 1, 29);
    EXPECT_LE(run.longestDelay, 0.5);
    ASSERT_GT(run.beats.size(), 10U);
    for (std::size_t i = 1; i < run.beats.size(); ++i) {
      EXPECT_NEAR(run.beats[i].rr.value_or(0), 60.0 / 72, 0.002);
      EXPECT_EQ(run.beats[i].kind, BeatClass::normal);
      EXPECT_NEAR(run.beats[i].amplitude, 1, 0.15);
      EXPECT_GT(run.beats[i].quality, 0.9);
    }
  }
}

TEST(BeatDetectorTest, PutsThePeakBetweenSamples) {
  // At 100 Hz the peaks lie at all places between samples.
  BeatDetector detector(100);
  const std::vector<double> beats = steadyBeats(71.3, 30);
  const DetectorRun run = runSteady(detector, 100, 71.3, 30);
  for (const Beat& beat : run.beats) {
    double nearest = 1;
    for (const double each : beats) {
      nearest = std::min(nearest, std::abs(each - secondsOf(beat.time)));
    }
    EXPECT_LT(nearest, 0.002);
  }
}

TEST(BeatDetectorTest, TheFirstIntervalIsEmpty) {
  BeatDetector detector(250);
  const DetectorRun run = runSteady(detector, 250, 60, 10);
  ASSERT_FALSE(run.beats.empty());
  EXPECT_FALSE(run.beats[0].rr);
}

TEST(BeatDetectorTest, RefusesOtherRates) {
  for (const double rate : {99.0, 1001.0, 0.0, -1.0, std::numeric_limits<double>::quiet_NaN()}) {
    EXPECT_THROW(BeatDetector{rate}, std::invalid_argument) << rate;
  }
}

TEST(BeatDetectorTest, DoesNotDependOnWhenBeatsAreFetched) {
  const auto beats = steadyBeats(100, 20);
  const auto fetched = [&](int every) {
    BeatDetector detector(500);
    std::vector<Beat> result;
    for (int i = 0; i < 20 * 500; ++i) {
      detector.push(Time{i * 2'000'000LL}, static_cast<float>(syntheticEcg(beats, 100, i / 500.0)));
      if (i % every == every - 1) {
        while (const auto beat = detector.next()) result.push_back(*beat);
      }
    }
    return result;
  };
  const std::vector<Beat> each = fetched(1);
  EXPECT_GT(each.size(), 25U);
  EXPECT_EQ(fetched(6), each);
  EXPECT_EQ(fetched(500), each);
}

TEST(BeatDetectorTest, AGapEndsTheIntervalAndLosesNoBeatBeforeIt) {
  for (const double gap : {1.0, 60.0, 3600.0}) {
    SCOPED_TRACE(gap);
    BeatDetector detector(360);
    const auto beats = steadyBeats(75, 30);
    std::vector<Beat> found;
    for (int i = 0; i < 30 * 360; ++i) {
      const double at = i / 360.0;
      const double shifted = at < 15.2 ? at : at + gap;  // the last beat before it is at 15.1 s
      detector.push(Time{std::llround(shifted * 1e9)},
                    static_cast<float>(syntheticEcg(beats, 75, at)));
      while (const auto beat = detector.next()) found.push_back(*beat);
    }
    int before = 0;
    int empty = 0;
    for (const Beat& beat : found) {
      const double at = secondsOf(beat.time);
      EXPECT_TRUE(at < 15.2 || at > 15.2 + gap) << at;
      before += at > 14.2 && at < 15.2 ? 1 : 0;
      if (at > 15.2 && !beat.rr) ++empty;
    }
    EXPECT_EQ(before, 1);
    EXPECT_EQ(empty, 1);
    EXPECT_GE(found.size(), 34U);
    EXPECT_LE(found.size(), 37U);
  }
}

TEST(BeatDetectorTest, AFewLostSamplesAreNoGap) {
  BeatDetector detector(500);
  const auto beats = steadyBeats(75, 20);
  std::vector<Beat> found;
  for (int i = 0; i < 20 * 500; ++i) {
    if (i / 6 % 83 == 0) continue;  // a frame of 12 ms, once a second
    detector.push(Time{i * 2'000'000LL}, static_cast<float>(syntheticEcg(beats, 75, i / 500.0)));
    while (const auto beat = detector.next()) found.push_back(*beat);
  }
  ASSERT_GT(found.size(), 20U);
  for (std::size_t i = 1; i < found.size(); ++i) EXPECT_NEAR(found[i].rr.value_or(0), 0.8, 0.015);
}

TEST(BeatDetectorTest, FindsNothingWithoutContact) {
  BeatDetector detector(500);
  const auto beats = steadyBeats(75, 30);
  std::vector<Beat> found;
  for (int i = 0; i < 30 * 500; ++i) {
    if (i == 5000) detector.setContact(false);
    if (i == 10000) detector.setContact(true);
    detector.push(Time{i * 2'000'000LL}, static_cast<float>(syntheticEcg(beats, 75, i / 500.0)));
    if (i > 5000 && i < 10000) {
      EXPECT_EQ(detector.signalQuality(), 0);
    }
    while (const auto beat = detector.next()) found.push_back(*beat);
  }
  int after = 0;
  for (const Beat& beat : found) {
    const double at = secondsOf(beat.time);
    EXPECT_TRUE(at < 10 || at > 20) << at;
    if (at > 20 && after++ == 0) {
      EXPECT_FALSE(beat.rr);
    }
  }
  EXPECT_GE(after, 10);
}

TEST(BeatDetectorTest, FinishReportsTheLastBeat) {
  BeatDetector detector(500);
  const auto beats = steadyBeats(60, 10.4);
  const DetectorRun run = runSteady(detector, 500, 60, 10.4);  // the last beat is at 10.3 s
  EXPECT_LT(secondsOf(run.beats.back().time), 10);
  detector.finish();
  const auto last = detector.next();
  ASSERT_TRUE(last);
  EXPECT_NEAR(secondsOf(last->time), 10.3, 0.005);
  EXPECT_FALSE(detector.next());
}

TEST(BeatDetectorTest, SearchesBackWhenAsked) {
  const auto beats = steadyBeats(60, 30);
  const auto signal = [&](double time) {
    const double weak = std::abs(time - 20.3) < 0.4 ? 0.16 : 1;
    return weak * syntheticEcg(beats, 60, time);
  };
  BeatDetector plain(360, {.rulesOnly = true});
  EXPECT_EQ(agreement(runDetector(plain, 360, 30, signal), beats, 20, 21).found, 0);
  BeatDetector searching(360, {.searchBack = true, .rulesOnly = true});
  const DetectorRun run = runDetector(searching, 360, 30, signal);
  expectAll(run, beats, 1, 29);
  for (const Beat& beat : run.beats) {
    EXPECT_EQ(beat.late, std::abs(secondsOf(beat.time) - 20.3) < 0.1) << secondsOf(beat.time);
  }
}

TEST(BeatDetectorTest, AllocatesNothingAfterConstruction) {
  BeatDetector detector(360, {.searchBack = true});
  const auto beats = steadyBeats(75, 60);
  std::vector<float> samples;
  for (int i = 0; i < 60 * 360; ++i) {
    samples.push_back(static_cast<float>(syntheticEcg(beats, 75, i / 360.0)));
  }
  int found = 0;
  const std::size_t before = allocationCount();
  for (std::size_t i = 0; i < samples.size(); ++i) {
    // With a gap at 30 s, and without contact for a second.
    const auto time = static_cast<std::int64_t>(i) * 2'777'778 + (i > 10800 ? 5'000'000'000 : 0);
    if (i == 14400) detector.setContact(false);
    if (i == 14760) detector.setContact(true);
    detector.push(Time{time}, i % 1000 == 0 ? std::numeric_limits<float>::quiet_NaN() : samples[i]);
    while (detector.next()) ++found;
    if (i % 360 == 0) static_cast<void>(detector.signalQuality());
  }
  detector.finish();
  EXPECT_EQ(allocationCount(), before);
  EXPECT_GT(found, 60);
}

TEST(BeatDetectorTest, LostSamplesDelayNothing) {
  // Half of the samples are lost, 8 ms at a time.
  BeatDetector detector(500);
  const auto beats = steadyBeats(75, 20);
  DetectorRun run;
  for (int i = 0; i < 20 * 500; ++i) {
    if (i / 4 % 2 == 1) continue;
    const Time time{i * 2'000'000LL};
    detector.push(time, static_cast<float>(syntheticEcg(beats, 75, i / 500.0)));
    while (const auto beat = detector.next()) {
      run.longestDelay = std::max(run.longestDelay, secondsOf(time - beat->time));
      run.beats.push_back(*beat);
    }
  }
  expectAll(run, beats, 1, 19);
  EXPECT_LE(run.longestDelay, 0.5);
}

TEST(BeatDetectorTest, ABeatLiesWithinTheData) {
  // The data end on the way up to an R peak, which nothing precedes.
  for (int end = 10270; end <= 10300; ++end) {
    SCOPED_TRACE(end);
    BeatDetector detector(1000);
    Time last{};
    for (int i = 0; i < end; ++i) {
      last = Time{i * 1'000'000LL};
      const double x = (std::fmod(i / 1000.0, 1) - 0.3) / 0.012;
      detector.push(last, static_cast<float>(std::exp(-x * x / 2)));
      while (detector.next()) continue;
    }
    detector.finish();
    while (const auto beat = detector.next()) EXPECT_LE(beat->time, last);
  }
}

TEST(BeatDetectorTest, WaitsForWhatFollowsAPWave) {
  // P waves with the strength of the QRS complexes, 0.2 s before them.
  const auto beats = steadyBeats(60, 40);
  for (const bool rulesOnly : {false, true}) {
    SCOPED_TRACE(rulesOnly);
    BeatDetector detector(360, {.rulesOnly = rulesOnly});
    const DetectorRun run = runDetector(detector, 360, 40, [&](double time) {
      double sum = syntheticEcg(beats, 60, time);
      for (const double beat : beats) {
        const double x = (time - beat + 0.2) / 0.011;
        sum += 0.95 * std::exp(-x * x / 2);
      }
      return sum;
    });
    expectAll(run, beats, 8, 39);
  }
}

TEST(BeatDetectorTest, AGainAHundredTimesSmallerIsLearntAnew) {
  // Too weak to be compared with the beats before: only the time without a beat helps.
  const auto beats = steadyBeats(72, 40);
  BeatDetector detector(360);
  const DetectorRun run = runDetector(detector, 360, 40, [&](double time) {
    return (time < 20 ? 1 : 0.01) * syntheticEcg(beats, 72, time);
  });
  expectAll(run, beats, 1, 19.5);
  expectAll(run, beats, 26, 39);
}

}  // namespace
}  // namespace Zephly::vitals
