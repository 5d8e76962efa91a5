// SPDX-License-Identifier: MIT
#include <simulator/wearer.h>

#include <tests/support/breathing_trial.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <functional>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

namespace Zephly::simulator {
namespace {

using namespace std::chrono_literals;

struct Worn {
  WearerTruth truth;
  StrapSignals signals;
};

Worn wear(StrapOptions options, StrapTime length) {
  Worn worn;
  options.observer = &worn.truth;
  Strap strap(options);
  worn.signals = strapSignals(strap, length);
  return worn;
}

StrapOptions quiet(const Wearer& wearer) {
  return {.plan = TrainingPlan::quiet(), .wearer = wearer};
}

// The highest sample within 60 ms.
StrapTime topNear(const TimedSamples& samples, StrapTime time) {
  std::pair<StrapTime, float> top{0s, -9.0F};
  for (const auto& sample : samples)
    if (std::chrono::abs(sample.first - time) < 60ms && sample.second > top.second) top = sample;
  return top.first;
}

// Peak to peak within an interval.
double span(const TimedSamples& samples, StrapTime from, StrapTime to) {
  float least = 9;
  float most = -9;
  for (const auto& [time, value] : samples) {
    if (time < from || time >= to) continue;
    least = std::min(least, value);
    most = std::max(most, value);
  }
  return static_cast<double>(most) - static_cast<double>(least);
}

double highest(const TimedSamples& samples, StrapTime from, StrapTime to) {
  float most = -9;
  for (const auto& [time, value] : samples)
    if (time >= from && time < to) most = std::max(most, value);
  return static_cast<double>(most);
}

// Root mean square of the difference of two signals of the same times.
double difference(const TimedSamples& one, const TimedSamples& other, StrapTime from,
                  StrapTime to) {
  double sum = 0;
  int count = 0;
  for (std::size_t i = 0; i < one.size(); ++i) {
    if (one[i].first < from || one[i].first >= to) continue;
    const double apart = static_cast<double>(one[i].second) - static_cast<double>(other[i].second);
    sum += apart * apart;
    ++count;
  }
  return std::sqrt(sum / count);
}

std::vector<double> intervals(const std::vector<StrapTime>& times) {
  std::vector<double> between;
  for (std::size_t i = 1; i < times.size(); ++i)
    between.push_back(seconds(times[i] - times[i - 1]));
  return between;
}

TEST(WearerTest, AnObserverChangesNoByte) {
  WearerTruth truth;
  Strap observed({.observer = &truth});
  Strap alone;
  while (*alone.nextFrameTime() < 40s) ASSERT_EQ(observed.nextFrame(), alone.nextFrame());
  EXPECT_GT(truth.beats.size(), 40U);
  EXPECT_GT(truth.ends.size(), 9U);
}

TEST(WearerTest, TheObserverSeesTheBeatsOfBothBodies) {
  for (const StrapOptions& options :
       {StrapOptions{.plan = TrainingPlan::quiet()}, quiet({.irregularity = 0.1}),
        quiet({.heartRate = {{0s, 60}, {30s, 150}}, .ectopicShare = 0.1})}) {
    const Worn worn = wear(options, 60s);
    ASSERT_GT(worn.truth.beats.size(), 55U);
    for (const auto& beat : worn.truth.beats) {
      if (beat.time < 1s || beat.time > 59s) continue;
      EXPECT_NEAR(seconds(topNear(worn.signals.ecg, beat.time)), seconds(beat.time), 0.012);
    }
    EXPECT_TRUE(std::ranges::is_sorted(worn.truth.beats, {}, &WearerTruth::HeartBeat::time));
  }
}

TEST(WearerTest, TheObserverSeesTheEndsOfInspirationOfBothBodies) {
  for (const StrapOptions& options : {StrapOptions{.plan = TrainingPlan::quiet()}, quiet({})}) {
    const Worn worn = wear(options, 120s);
    ASSERT_GT(worn.truth.ends.size(), 26U);
    const auto mean = [&](StrapTime at) {
      double sum = 0;
      int count = 0;
      for (const auto& [time, value] : worn.signals.respiration) {
        if (std::chrono::abs(time - at) >= 100ms) continue;
        sum += static_cast<double>(value);
        ++count;
      }
      return sum / count;
    };
    for (const StrapTime end : worn.truth.ends) {
      if (end < 1s || end > 119s) continue;
      EXPECT_GT(mean(end), mean(end - 800ms)) << seconds(end);
      EXPECT_GT(mean(end), mean(end + 800ms)) << seconds(end);
    }
  }
}

TEST(WearerTest, BreathsAtItsRateWithItsIrregularity) {
  const auto deviation = [](double irregularity) {
    const Worn worn =
        wear(quiet({.breathingRate = {{0s, 20}}, .irregularity = irregularity}), 600s);
    EXPECT_NEAR(static_cast<double>(worn.truth.ends.size()), 200, 15);
    double sum = 0;
    double squares = 0;
    for (const double duration : intervals(worn.truth.ends)) {
      sum += std::log(duration);
      squares += std::log(duration) * std::log(duration);
    }
    const auto count = static_cast<double>(worn.truth.ends.size() - 1);
    return std::sqrt(squares / count - sum * sum / count / count);
  };
  EXPECT_LT(deviation(0), 0.02);
  EXPECT_NEAR(deviation(0.2), 0.15, 0.05);  // a distance is of parts of two breaths
}

TEST(WearerTest, RatesFollowTheirPoints) {
  const StrapOptions options =
      quiet({.heartRate = {{0s, 60}, {100s, 120}}, .breathingRate = {{10s, 10}, {20s, 30}}});
  const Strap strap(options);
  EXPECT_DOUBLE_EQ(strap.heartRate(50s), 90);
  EXPECT_DOUBLE_EQ(strap.heartRate(200s), 120);
  EXPECT_DOUBLE_EQ(strap.breathingRate(0s), 10);
  EXPECT_DOUBLE_EQ(strap.breathingRate(15s), 20);
  const Worn worn = wear(options, 200s);
  const auto count =
      std::ranges::count_if(worn.truth.beats, [](const auto& beat) { return beat.time > 100s; });
  EXPECT_NEAR(static_cast<double>(count), 200, 6);
}

TEST(WearerTest, DoesNotBreatheInAnApnoea) {
  const Worn worn = wear(quiet({.apnoeas = {{60s, 20s}}}), 120s);
  const auto durations = intervals(worn.truth.ends);
  EXPECT_EQ(std::ranges::count_if(durations, [](double duration) { return duration > 10; }), 1);
  // At most one breath goes on.
  EXPECT_LE(
      std::ranges::count_if(worn.truth.ends, [](StrapTime end) { return end > 60s && end < 80s; }),
      1);
  EXPECT_LT(span(worn.signals.respiration, 66s, 80s), 0.1);
  EXPECT_GT(span(worn.signals.respiration, 80s, 90s), 0.4);
}

TEST(WearerTest, TalksInUnevenBreaths) {
  const Worn worn = wear(quiet({.talks = {{0s, 300s}}}), 300s);
  const auto durations = intervals(worn.truth.ends);
  EXPECT_GT(std::ranges::max(durations), 5);
  EXPECT_LT(std::ranges::min(durations), 2.5);
}

TEST(WearerTest, EctopicBeatsAreEarlyWithACompensatoryPause) {
  const Worn worn = wear(quiet({.heartRate = {{0s, 60}}, .ectopicShare = 0.1}), 300s);
  const auto& beats = worn.truth.beats;
  int ectopic = 0;
  for (std::size_t i = 1; i + 1 < beats.size(); ++i) {
    if (!beats[i].ectopic) continue;
    ++ectopic;
    EXPECT_NEAR(seconds(beats[i].time - beats[i - 1].time), 0.6, 0.02);
    EXPECT_NEAR(seconds(beats[i + 1].time - beats[i - 1].time), 2, 0.35);
    // Nor is there an R wave in the signal, where the sinus would have been.
    const StrapTime missing = beats[i - 1].time + 1s;
    EXPECT_LT(highest(worn.signals.ecg, missing - 120ms, missing + 120ms), 0.5);
    EXPECT_GT(highest(worn.signals.ecg, beats[i].time - 60ms, beats[i].time + 60ms), 0.8);
  }
  EXPECT_GT(ectopic, 12);
  EXPECT_LT(ectopic, 45);
}

TEST(WearerTest, DisturbancesAreWhereTheyAreDescribed) {
  Wearer wearer;
  wearer.coughs = {30s};
  wearer.postures = {{60s, 1.5, 0.5, 0.5}};
  wearer.movements = {{90s, 5s}};
  const Worn worn = wear(quiet(wearer), 120s);
  const Worn calm = wear(quiet({}), 120s);
  const auto differ = [&](StrapTime from, StrapTime to) {
    double most = 0;
    for (std::size_t i = 0; i < worn.signals.respiration.size(); ++i) {
      const auto& [time, value] = worn.signals.respiration[i];
      if (time >= from && time < to)
        most = std::max(most,
                        std::abs(static_cast<double>(value - calm.signals.respiration[i].second)));
    }
    return most;
  };
  EXPECT_EQ(differ(0s, 29s), 0);
  EXPECT_GT(differ(29s, 32s), 0.2);
  EXPECT_LT(differ(32s, 60s), 0.02);  // the noise is drawn in another order
  EXPECT_GT(differ(61s, 64s), 0.3);
  EXPECT_GT(span(worn.signals.respiration, 90s, 95s), 1);
  EXPECT_LT(span(worn.signals.ecg, 70s, 89s), 0.75 * span(worn.signals.ecg, 40s, 59s));
  EXPECT_NEAR(span(worn.signals.respiration, 70s, 89s),
              0.5 * span(calm.signals.respiration, 70s, 89s), 0.15);
  wearer.movements.clear();
  const Worn still = wear(quiet(wearer), 120s);
  EXPECT_GT(difference(worn.signals.ecg, still.signals.ecg, 90s, 92s), 0.2);
  EXPECT_GT(difference(worn.signals.ecg, still.signals.ecg, 93s, 95s), 0.2);
  EXPECT_LT(difference(worn.signals.ecg, still.signals.ecg, 70s, 90s), 0.01);
}

TEST(WearerTest, CoughsAndTurnsShowInTheEcg) {
  const Worn calm = wear(quiet({}), 40s);
  const Worn coughing = wear(quiet({.coughs = {30s}}), 40s);
  EXPECT_GT(difference(coughing.signals.ecg, calm.signals.ecg, 29900ms, 31s), 0.03);
  EXPECT_EQ(difference(coughing.signals.ecg, calm.signals.ecg, 0s, 29s), 0);
  // Into the posture that it has.
  const Worn turning = wear(quiet({.postures = {{30s, 0, 1, 1}}}), 40s);
  EXPECT_GT(difference(turning.signals.ecg, calm.signals.ecg, 30s, 31200ms), 0.02);
  EXPECT_LT(difference(turning.signals.ecg, calm.signals.ecg, 30s, 31200ms), 0.15);
  EXPECT_EQ(difference(turning.signals.ecg, calm.signals.ecg, 0s, 29s), 0);
}

TEST(WearerTest, SighsAreDeepAndAsFrequentAsDescribed) {
  const Worn worn = wear(quiet({.sighs = 0.2}), 300s);
  int deep = 0;
  for (const StrapTime end : worn.truth.ends)
    // An end of a usual breath is 0.3 at most 1.4 times as high.
    if (highest(worn.signals.respiration, end - 100ms, end + 100ms) > 0.9) ++deep;
  EXPECT_NEAR(deep, 0.2 * static_cast<double>(worn.truth.ends.size()), 7);
}

TEST(WearerTest, TheAmplitudeOfTheEcgFollowsTheBreath) {
  const auto ratio = [](double modulation) {
    const Worn worn =
        wear(quiet({.heartRate = {{0s, 200}}, .amplitudeModulation = modulation}), 60s);
    double out = 0;
    double in = 0;
    for (std::size_t i = 2; i + 1 < worn.truth.ends.size(); ++i) {
      const StrapTime end = worn.truth.ends[i];
      in += highest(worn.signals.ecg, end - 300ms, end + 300ms);
      out += highest(worn.signals.ecg, end + 1800ms, end + 2400ms);
    }
    return in / out;
  };
  EXPECT_GT(ratio(0.4), 1.2);
  EXPECT_NEAR(ratio(0), 1, 0.03);
}

TEST(WearerTest, StepsShowInBothSignalsDuringAWalk) {
  StrapOptions options = quiet({.stepArtefact = 2});
  options.plan.walks = {{30s, 20s}};
  const Worn worn = wear(options, 60s);
  EXPECT_GT(span(worn.signals.respiration, 35s, 45s),
            1.5 * span(worn.signals.respiration, 10s, 20s));
  options.wearer->stepArtefact = 0;
  const Worn gentle = wear(options, 60s);
  EXPECT_GT(difference(worn.signals.ecg, gentle.signals.ecg, 30s, 50s), 0.05);
  EXPECT_LT(difference(worn.signals.ecg, gentle.signals.ecg, 0s, 30s), 0.001);
}

TEST(WearerTest, IsFlatWithTheElectrodesOff) {
  StrapOptions options = quiet({.movements = {{12s, 5s}}, .ectopicShare = 0.5});
  options.plan.electrodesOff = {{10s, 10s}};
  const Worn worn = wear(options, 30s);
  EXPECT_LT(span(worn.signals.ecg, 10s, 20s), 0.0021);
  EXPECT_LT(span(worn.signals.respiration, 10s, 20s), 0.0021);
  EXPECT_GT(span(worn.signals.ecg, 20s, 30s), 0.8);
}

TEST(WearerTest, OneSeedGivesTheSameSamplesAgain) {
  const Wearer wearer{
      .irregularity = 0.2, .talks = {{5s, 10s}}, .movements = {{20s, 5s}}, .ectopicShare = 0.1};
  StrapOptions options = quiet(wearer);
  const Worn first = wear(options, 30s);
  EXPECT_EQ(first.signals.ecg, wear(options, 30s).signals.ecg);
  EXPECT_EQ(first.signals.respiration, wear(options, 30s).signals.respiration);
  options.seed = 2;
  const Worn other = wear(options, 30s);
  EXPECT_NE(first.signals.ecg, other.signals.ecg);
  EXPECT_NE(first.truth.ends, other.truth.ends);
}

TEST(WearerTest, RefusesWhatMakesNoSense) {
  const double none = std::numeric_limits<double>::quiet_NaN();
  const std::vector<std::function<void(Wearer&)>> mistakes = {
      [](Wearer& w) {
        w.heartRate = {{0s, 29}};
      },
      [](Wearer& w) {
        w.heartRate = {{0s, 221}};
      },
      [](Wearer& w) {
        w.heartRate = {{10s, 60}, {5s, 60}};
      },
      [](Wearer& w) {
        w.heartRate = {{-1s, 60}};
      },
      [](Wearer& w) {
        w.breathingRate = {{0s, 2}};
      },
      [=](Wearer& w) {
        w.breathingRate = {{0s, none}};
      },
      [](Wearer& w) { w.irregularity = -0.1; },
      [=](Wearer& w) { w.sighs = none; },
      [](Wearer& w) { w.ectopicShare = 0.6; },
      [](Wearer& w) { w.stepArtefact = 11; },
      [](Wearer& w) { w.amplitudeModulation = 1; },
      [](Wearer& w) {
        w.talks = {{0s, -1s}};
      },
      [](Wearer& w) {
        w.apnoeas = {{-1s, 1s}};
      },
      [](Wearer& w) {
        w.movements = {{24h * 1001, 1s}};
      },
      [](Wearer& w) { w.coughs = {-1s}; },
      [](Wearer& w) {
        w.postures = {{5s, 0, 1, 1}, {1s, 0, 1, 1}};
      },
      [=](Wearer& w) {
        w.postures = {{5s, none, 1, 1}};
      },
      [](Wearer& w) {
        w.postures = {{5s, 0, -1, 1}};
      },
      [](Wearer& w) {
        w.postures = {{5s, 0, 1, -1}};
      },
  };
  for (std::size_t i = 0; i < mistakes.size(); ++i) {
    Wearer wearer;
    mistakes[i](wearer);
    EXPECT_THROW(Strap strap(quiet(wearer)), std::invalid_argument) << i;
  }
  EXPECT_NO_THROW(Strap strap(quiet({})));
}

}  // namespace
}  // namespace Zephly::simulator
