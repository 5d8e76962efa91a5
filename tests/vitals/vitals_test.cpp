// SPDX-License-Identifier: MIT
#include <vitals/vitals.h>

#include <tests/support/allocation_count.h>
#include <tests/support/synthetic_wearer.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <stdexcept>
#include <vector>

namespace Zephly::vitals {
namespace {

using namespace std::chrono_literals;

struct Results final : Receiver {
  void beat(const Beat& beat) override { beats.push_back(beat); }
  void breath(const Breath& breath) override { breaths.push_back(breath); }
  void second(const Second& second) override { seconds.push_back(second); }

  std::vector<Beat> beats;
  std::vector<Breath> breaths;
  std::vector<Second> seconds;
};

void expectEqual(const Results& left, const Results& right) {
  EXPECT_EQ(left.beats.size(), right.beats.size());
  EXPECT_EQ(left.breaths.size(), right.breaths.size());
  EXPECT_EQ(left.seconds.size(), right.seconds.size());
  EXPECT_TRUE(left.beats == right.beats);
  EXPECT_TRUE(left.breaths == right.breaths);
  EXPECT_TRUE(left.seconds == right.seconds);
}

using Samples = std::vector<SyntheticWearer::Sample>;

Samples wear(Time duration, int rate = 500) {
  SyntheticWearer wearer(rate);
  Samples samples;
  const auto count =
      static_cast<std::int64_t>(std::chrono::duration<double>(duration).count() * rate);
  for (std::int64_t i = 0; i < count; ++i) samples.push_back(wearer.next());
  return samples;
}

// Contact from the first sample on; the electrodes come off and on again for 20 s each minute.
void contactAt(Vitals& vitals, const SyntheticWearer::Sample& sample, bool& on) {
  const bool now = sample.time % 60s < 40s;
  if (now != on || sample.time == 0s) vitals.contact(sample.time, now);
  on = now;
}

// The respiration of each sample is given `lag` after its ECG, or before it when `lag` is negative.
Results feed(const Samples& samples, Time lag = 0s) {
  Results results;
  Vitals vitals({}, results);
  std::size_t ecg = 0;
  std::size_t respiration = 0;
  bool on = false;
  std::size_t contacts = 0;
  while (ecg < samples.size() || respiration < samples.size()) {
    const bool ecgFirst =
        respiration == samples.size() ||
        (ecg < samples.size() && samples[ecg].time <= samples[respiration].time + lag);
    std::size_t& next = ecgFirst ? ecg : respiration;
    // Contact is known before either stream reaches it.
    for (; contacts <= next; ++contacts) contactAt(vitals, samples[contacts], on);
    if (ecgFirst) {
      vitals.ecg(samples[next].time, samples[next].ecg);
    } else {
      vitals.respiration(samples[next].time, samples[next].respiration);
    }
    ++next;
  }
  vitals.finish();
  return results;
}

const Samples& threeMinutes() {
  static const Samples samples = wear(3min);
  return samples;
}

TEST(VitalsTest, FindsBeatsBreathsAndRates) {
  SyntheticWearer wearer(500);
  Results results;
  Vitals vitals({}, results);
  for (int i = 0; i < 60 * 500; ++i) {
    const auto sample = wearer.next();
    vitals.ecg(sample.time, sample.ecg);
    vitals.respiration(sample.time, sample.respiration);
  }
  vitals.finish();
  EXPECT_NEAR(static_cast<double>(results.beats.size()), static_cast<double>(wearer.beats().size()),
              3);
  EXPECT_NEAR(static_cast<double>(results.breaths.size()), 14, 2);
  ASSERT_EQ(results.seconds.size(), 60U);
  const Second& last = results.seconds[58];
  EXPECT_EQ(last.time, 59s);
  EXPECT_NEAR(last.heartRate.value(), 72, 4);
  EXPECT_GT(last.heartRateQuality, 0.5);
  EXPECT_GT(last.ecgQuality, 0.5);
  EXPECT_NEAR(last.breathingRate.value(), 15, 1);
  EXPECT_GT(last.breathingQuality, 0.3);
  EXPECT_GT(last.respirationQuality, 0.3);
  EXPECT_FALSE(last.breathingDerived);
  EXPECT_FALSE(last.contact);
}

TEST(VitalsTest, HeartRateIsThereWithinTenSeconds) {
  const Results results = feed(wear(12s));
  ASSERT_GE(results.seconds.size(), 11U);
  EXPECT_TRUE(results.seconds[9].heartRate);
}

TEST(VitalsTest, SecondsAreThoseOfTheClock) {
  Results results;
  Vitals vitals({}, results);
  for (const auto& sample : wear(3s)) {
    vitals.ecg(sample.time + 7300ms, sample.ecg);
    vitals.respiration(sample.time + 7300ms, sample.respiration);
  }
  vitals.finish();
  std::vector<Time> times;
  for (const Second& second : results.seconds) times.push_back(second.time);
  EXPECT_THAT(times, testing::ElementsAre(8s, 9s, 10s, 11s));
}

TEST(VitalsTest, ASecondIsReportedAtMostOneAndAHalfSecondsAfterItsEnd) {
  Results results;
  Vitals vitals({}, results);
  for (const auto& sample : wear(20s)) {
    vitals.ecg(sample.time, sample.ecg);
    vitals.respiration(sample.time, sample.respiration);
    const Time reported = results.seconds.empty() ? 0s : results.seconds.back().time;
    ASSERT_LE(sample.time - reported, 2500ms);
  }
}

TEST(VitalsTest, BeatsAreReportedWithinHalfASecond) {
  Results results;
  Vitals vitals({}, results);
  std::size_t seen = 0;
  for (const auto& sample : wear(1min)) {
    vitals.ecg(sample.time, sample.ecg);
    for (; seen < results.beats.size(); ++seen) {
      EXPECT_LE(sample.time - results.beats[seen].time, 500ms);
    }
  }
  EXPECT_GT(seen, 60U);
}

TEST(VitalsTest, ResultsDoNotDependOnHowFarTheStreamsAreApart) {
  const Results together = feed(threeMinutes());
  EXPECT_GT(together.beats.size(), 120U);
  EXPECT_GT(together.breaths.size(), 20U);
  EXPECT_EQ(together.seconds.size(), 180U);
  for (const Time lag : {-5s, -1s, 1s, 5s}) {
    SCOPED_TRACE(lag.count());
    expectEqual(feed(threeMinutes(), lag), together);
  }
}

// As a radio delivers them: a stretch of one stream, then of the other, up to 5 s.
TEST(VitalsTest, ResultsDoNotDependOnTheCuts) {
  const Samples& samples = threeMinutes();
  const Results together = feed(samples);
  for (const std::size_t piece : {1U, 6U, 500U, 2500U}) {
    SCOPED_TRACE(piece);
    Results results;
    Vitals vitals({}, results);
    bool on = false;
    for (std::size_t begin = 0; begin < samples.size(); begin += piece) {
      const std::size_t end = std::min(begin + piece, samples.size());
      for (std::size_t i = begin; i < end; ++i) contactAt(vitals, samples[i], on);
      for (std::size_t i = begin; i < end; ++i) {
        vitals.ecg(samples[i].time, samples[i].ecg);
      }
      for (std::size_t i = begin; i < end; ++i) {
        vitals.respiration(samples[i].time, samples[i].respiration);
      }
    }
    vitals.finish();
    expectEqual(results, together);
  }
}

TEST(VitalsTest, RatesVanishWhenTheElectrodesComeOffAndComeBack) {
  const Results results = feed(threeMinutes());
  for (const Second& second : results.seconds) {
    const Time within = (second.time - 1ns) % 60s;
    SCOPED_TRACE(second.time.count());
    EXPECT_EQ(second.contact, within < 40s);
    if (within >= 40s) {
      EXPECT_FALSE(second.heartRate);
      EXPECT_FALSE(second.breathingRate);
    }
    if (within > 11s && within < 39s) {
      EXPECT_TRUE(second.heartRate);
    }
  }
  for (const Beat& beat : results.beats) EXPECT_LT(beat.time % 60s, 40s);
}

TEST(VitalsTest, WithoutContactReportsItIsNotKnown) {
  Results results;
  Vitals vitals({}, results);
  for (const auto& sample : wear(3s)) vitals.ecg(sample.time, sample.ecg);
  vitals.finish();
  ASSERT_FALSE(results.seconds.empty());
  EXPECT_FALSE(results.seconds.back().contact);
}

// Breaths from the ECG: marked, in order of time, and not twice. The impedance counts as clear
// until the swings of a minute are forgotten.
TEST(VitalsTest, BreathingComesFromTheEcgWhileTheImpedanceIsPoorOrAbsent) {
  for (const bool absent : {true, false}) {
    SCOPED_TRACE(absent);
    std::mt19937 random(4);
    Results results;
    Vitals vitals({}, results);
    for (const auto& sample : wear(4min)) {
      vitals.ecg(sample.time, sample.ecg);
      if (sample.time < 1min || sample.time >= 3min) {
        vitals.respiration(sample.time, sample.respiration);
      } else if (!absent) {
        vitals.respiration(sample.time, static_cast<float>(random() % 1000) / 1000);
      }
    }
    vitals.finish();
    int derived = 0;
    for (const Second& second : results.seconds) {
      SCOPED_TRACE(second.time.count());
      if (second.time <= 1min || second.time > 215s) {
        EXPECT_FALSE(second.breathingDerived);
      }
      if (second.time > 130s && second.time < 175s) {
        EXPECT_EQ(second.breathingDerived, second.breathingRate.has_value());
        if (second.breathingDerived) {
          EXPECT_NEAR(*second.breathingRate, 15, 2);
          ++derived;
        }
      }
    }
    EXPECT_GT(derived, 30);
    Time last{};
    for (const Breath& breath : results.breaths) {
      EXPECT_GT(breath.time, last);
      last = breath.time;
      if (breath.time < 50s) {
        EXPECT_FALSE(breath.derived);
      }
      if (breath.time > 130s && breath.time < 170s) {
        EXPECT_TRUE(breath.derived);
      }
    }
  }
}

TEST(VitalsTest, AStreamThatIsSilentIsWaitedForUpToFiveSeconds) {
  Results results;
  Vitals vitals({}, results);
  for (const auto& sample : wear(30s)) {
    vitals.ecg(sample.time, sample.ecg);
    const Time reported = results.seconds.empty() ? 0s : results.seconds.back().time;
    ASSERT_LE(sample.time - reported, 6s + 2ms);
    ASSERT_LE(reported, std::max<Time>(0s, sample.time - 5s));
  }
  EXPECT_EQ(results.seconds.back().respirationQuality, 0);
  EXPECT_TRUE(results.seconds.back().heartRate);
}

TEST(VitalsTest, AStreamWithRateZeroIsNotWaitedFor) {
  Results results;
  Vitals vitals({.respirationRate = 0}, results);
  for (const auto& sample : wear(30s)) {
    vitals.ecg(sample.time, sample.ecg);
    vitals.respiration(sample.time, sample.respiration);  // ignored
    const Time reported = results.seconds.empty() ? 0s : results.seconds.back().time;
    ASSERT_LE(sample.time - reported, 1500ms + 2ms);
  }
  EXPECT_EQ(results.seconds.back().respirationQuality, 0);

  Results breathing;
  Vitals other({.ecgRate = 0}, breathing);
  for (const auto& sample : wear(30s)) other.respiration(sample.time, sample.respiration);
  EXPECT_EQ(breathing.seconds.size(), 29U);
  EXPECT_TRUE(breathing.beats.empty());
}

// A gap of an hour has no seconds of its own; the first beat after it has no interval.
TEST(VitalsTest, AGapHasNoSecondsAndNoIntervals) {
  for (const Time gap : {Time(3s), Time(1h)}) {
    SCOPED_TRACE(gap.count());
    Results results;
    Vitals vitals({}, results);
    for (const auto& sample : wear(1min)) {
      const Time time = sample.time < 30s ? sample.time : sample.time + gap;
      vitals.ecg(time, sample.ecg);
      vitals.respiration(time, sample.respiration);
    }
    vitals.finish();
    EXPECT_EQ(results.seconds.size(), 60U);
    const auto after = std::find_if(results.beats.begin(), results.beats.end(),
                                    [&](const Beat& beat) { return beat.time >= 30s + gap; });
    ASSERT_NE(after, results.beats.end());
    EXPECT_FALSE(after->rr);
    EXPECT_TRUE(std::next(after)->rr);
    const auto breath = std::find_if(results.breaths.begin(), results.breaths.end(),
                                     [&](const Breath& found) { return found.time >= 30s + gap; });
    ASSERT_NE(breath, results.breaths.end());
    EXPECT_FALSE(breath->duration);
  }
}

TEST(VitalsTest, ASecondWithMissingSamplesHasLessQuality) {
  Results results;
  Vitals vitals({.respirationRate = 0}, results);
  for (const auto& sample : wear(30s)) {
    if (sample.time > 20200ms && sample.time < 20800ms) continue;
    vitals.ecg(sample.time, sample.ecg);
  }
  vitals.finish();
  EXPECT_LT(results.seconds.at(20).ecgQuality, 0.5);
  EXPECT_GT(results.seconds.at(19).ecgQuality, 0.8);
}

TEST(VitalsTest, SamplesThatAreNotLaterAreIgnored) {
  const Samples samples = wear(20s);
  Results expected;
  Results results;
  {
    Vitals vitals({}, expected);
    for (const auto& sample : samples) vitals.ecg(sample.time, sample.ecg);
    vitals.finish();
  }
  Vitals vitals({}, results);
  for (const auto& sample : samples) {
    vitals.ecg(sample.time, sample.ecg);
    vitals.ecg(sample.time, 5);
    vitals.ecg(sample.time - 1s, -5);
    vitals.ecg(Time::max(), 5);
    vitals.ecg(Time::min(), 5);
  }
  vitals.finish();
  expectEqual(results, expected);
}

TEST(VitalsTest, AfterFinishEverythingBeginsAnew) {
  const Samples samples = wear(20s);
  Results once;
  Results twice;
  {
    Vitals vitals({}, once);
    for (const auto& sample : samples) vitals.ecg(sample.time, sample.ecg);
    vitals.finish();
  }
  Vitals vitals({}, twice);
  for (int i = 0; i < 2; ++i) {
    for (const auto& sample : samples) vitals.ecg(sample.time, sample.ecg);
    vitals.finish();
    vitals.finish();
  }
  ASSERT_EQ(twice.beats.size(), 2 * once.beats.size());
  ASSERT_EQ(twice.seconds.size(), 2 * once.seconds.size());
  const auto half = static_cast<std::ptrdiff_t>(once.beats.size());
  EXPECT_TRUE(std::equal(once.beats.begin(), once.beats.end(), twice.beats.begin()));
  EXPECT_TRUE(std::equal(once.beats.begin(), once.beats.end(), twice.beats.begin() + half));
}

TEST(VitalsTest, AnySamplesGiveFiniteResults) {
  std::mt19937 random(9);
  Results results;
  Vitals vitals({}, results);
  constexpr float infinity = std::numeric_limits<float>::infinity();
  const std::vector<float> values = {0, 1, -1, 2.42F, infinity, -infinity, std::nanf(""), 3e38F};
  Time time = 0s;
  for (int i = 0; i < 200'000; ++i) {
    time += random() % 1000 == 0 ? Time(random()) : Time(2ms);
    if (random() % 300 == 0) vitals.contact(time, random() % 2 == 0);
    vitals.ecg(time, values[random() % values.size()]);
    vitals.respiration(time, values[random() % values.size()]);
  }
  vitals.finish();
  for (const Second& second : results.seconds) {
    for (const double number :
         {second.heartRate.value_or(1), second.breathingRate.value_or(1), second.heartRateQuality,
          second.ecgQuality, second.breathingQuality, second.respirationQuality}) {
      ASSERT_TRUE(std::isfinite(number) && number >= 0);
    }
  }
  EXPECT_GT(results.seconds.size(), 300U);
}

TEST(VitalsTest, AllocatesNothingPerSample) {
  const Samples samples = wear(70s);
  struct : Receiver {
    void beat(const Beat& /*beat*/) override {}
    void breath(const Breath& /*breath*/) override {}
    void second(const Second& /*second*/) override {}
  } nothing;
  Vitals vitals({}, nothing);
  bool on = false;
  const std::size_t before = allocationCount();
  for (const auto& sample : samples) {
    contactAt(vitals, sample, on);
    vitals.ecg(sample.time, sample.ecg);
    vitals.respiration(sample.time, sample.respiration);
  }
  EXPECT_EQ(allocationCount(), before);
}

TEST(VitalsTest, RefusesRatesOutOfRange) {
  Results results;
  const auto make = [&](double ecg, double respiration) {
    return Vitals({.ecgRate = ecg, .respirationRate = respiration}, results);
  };
  for (const double rate : {-1.0, 99.0, 1001.0, std::nan("")}) {
    EXPECT_THROW(make(rate, 500), std::invalid_argument) << rate;
  }
  for (const double rate : {-1.0, 9.0, 1001.0, std::nan("")}) {
    EXPECT_THROW(make(500, rate), std::invalid_argument) << rate;
  }
  EXPECT_NO_THROW(make(100, 10));
  EXPECT_NO_THROW(make(1000, 1000));
  EXPECT_NO_THROW(make(0, 500));
}

TEST(VitalsTest, CanBeMoved) {
  Results results;
  Vitals first({}, results);
  const Samples samples = wear(10s);
  for (const auto& sample : samples) first.ecg(sample.time, sample.ecg);
  Vitals second = std::move(first);
  second.finish();
  EXPECT_GT(results.beats.size(), 5U);
}

}  // namespace
}  // namespace Zephly::vitals
