// SPDX-License-Identifier: MIT
// Each stage gives the bits of the kit's class, for every input.

#include <offline/biquad_sections.h>
#include <offline/contact_detector.h>
#include <offline/reset_timer.h>
#include <offline/running_median.h>
#include <offline/running_normalization.h>

#include <tests/support/fake_processor_clock.h>
#include <tests/support/long_run.h>
#include <tests/support/random_floats.h>
#include <tests/support/special_floats.h>
#include <tests/zephly/dsp/run_comparison.h>
#include <tests/zephly/dsp/signals.h>
#include <zephly/dsp/biquad_filter.h>
#include <zephly/dsp/leadoff_detector.h>
#include <zephly/dsp/median_filter.h>
#include <zephly/dsp/normalization_filter.h>
#include <zephly/dsp/respiration_filter_helper.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <iterator>
#include <vector>

namespace Zephly::offline {
namespace {

// Numbers of few values, so that many are equal, with zeros of both signs.
std::vector<double> fewValues(std::size_t count, std::uint32_t seed) {
  constexpr double values[] = {0.0, -0.0, 0.5, -0.5, 0.0, -0.0, 1.0};
  RandomFloats random(seed);
  std::vector<double> samples;
  while (samples.size() < count) samples.push_back(values[random.below(std::size(values))]);
  return samples;
}

// A stretch of numbers with rare NaN, infinities and other special values.
std::vector<double> awkward(std::size_t count, std::size_t rarity, std::uint32_t seed) {
  RandomFloats random(seed);
  std::vector<double> samples;
  while (samples.size() < count) samples.push_back(random.awkward(2.42F, rarity));
  return samples;
}

std::vector<NamedSignal> hardSignals(std::size_t count) {
  std::vector<NamedSignal> signals = realisticSignals(count);
  signals.push_back({"extreme", extremeSignal(count, 7)});
  signals.push_back({"hostile", hostileSignal(count, 7)});
  signals.push_back({"few values", fewValues(count, 7)});
  signals.push_back({"rarely special", awkward(count, 400, 7)});
  signals.push_back({"often special", awkward(count, 3, 7)});
  return signals;
}

TEST(BiquadSectionsTest, MatchesTheKit) {
  for (const NamedSignal& signal : hardSignals(5'000)) {
    SCOPED_TRACE(signal.name);
    BiquadFilter kit(BiquadNotch, 0.1, 4, 5.0);
    BiquadSections<2> sections(designBiquad(BiquadNotch, 0.1, 5.0));
    expectSameRun<double>(
        signal.samples, [&](double x) { return sections.step(x); },
        [&](double x) { return kit.process(x); });
  }
}

TEST(BiquadSectionsTest, SettlesAsTheKitDoes) {
  RandomFloats random(3);
  BiquadFilter kit(BiquadHighpass, 8e-5, 2, 0.707);
  BiquadSections<1> sections(designBiquad(BiquadHighpass, 8e-5, 0.707));
  for (int round = 0; round < longRun(60, 10); ++round) {
    for (std::size_t i = 0; i <= random.below(500); ++i) {
      const double x = round % 3 == 0 ? 0.25 : static_cast<double>(random.within(2));
      ASSERT_SAME_BITS(sections.step(x), kit.process(x));
    }
    sections.settle();
    kit.reset();
  }
}

TEST(RunningMedianTest, MatchesTheKit) {
  for (const NamedSignal& signal : hardSignals(longRun(4'000, 1'000))) {
    SCOPED_TRACE(signal.name);
    MedianFilter kit(300);
    RunningMedian median;
    expectSameRun<double>(
        signal.samples, [&](double x) { return median.step(x); },
        [&](double x) { return kit.process(x); });
  }
}

// Fewer than 152 numbers in the window, and more again.
TEST(RunningMedianTest, MatchesTheKitWhileMostSamplesAreNan) {
  for (const std::size_t nan : {147U, 148U, 149U, 299U, 300U, 450U}) {
    std::vector<double> samples = noisySine(400, 5);
    samples.insert(samples.end(), nan, static_cast<double>(notANumber));
    const std::vector<double> rest = noisySine(600, 6);
    samples.insert(samples.end(), rest.begin(), rest.end());
    SCOPED_TRACE(nan);
    MedianFilter kit(300);
    RunningMedian median;
    expectSameRun<double>(
        samples, [&](double x) { return median.step(x); },
        [&](double x) { return kit.process(x); });
  }
}

TEST(RunningNormalizationTest, MatchesTheKit) {
  for (const NamedSignal& signal : hardSignals(longRun(6'000, 2'500))) {
    SCOPED_TRACE(signal.name);
    NormalizationFilter kit(1000, true);
    RunningNormalization<1000> normalization;
    expectSameRun<double>(
        signal.samples, [&](double x) { return normalization.step(x); },
        [&](double x) { return kit.process(x); });
  }
}

// In the first place of the kit's window, and in the one after it.
TEST(RunningNormalizationTest, MatchesTheKitForEachPlaceOfANan) {
  constexpr std::size_t size = 10;
  for (std::size_t place = 0; place < 2 * size; ++place) {
    SCOPED_TRACE(place);
    NormalizationFilter kit(size, true);
    RunningNormalization<size> normalization;
    std::vector<double> samples = noisySine(5 * size, 8);
    samples[place] = static_cast<double>(notANumber);
    expectSameRun<double>(
        samples, [&](double x) { return normalization.step(x); },
        [&](double x) { return kit.process(x); });
  }
}

TEST(RunningNormalizationTest, ClearsAsTheKitDoes) {
  constexpr std::size_t size = 50;
  RandomFloats random(4);
  NormalizationFilter kit(size, true);
  RunningNormalization<size> normalization;
  for (int round = 0; round < 1'000; ++round) {
    for (std::size_t i = 0; i <= random.below(2 * size); ++i) {
      const auto x = static_cast<double>(random.awkward(2, 4));
      ASSERT_SAME_BITS(normalization.step(x), kit.process(x)) << "round " << round;
    }
    normalization.clear();
    kit.reset();
  }
}

TEST(ContactDetectorTest, MatchesTheKit) {
  std::vector<NamedSignal> signals = hardSignals(20'000);
  // Spans around the threshold.
  RandomFloats random(2);
  std::vector<double> small;
  while (small.size() < 20'000) small.push_back(1.5 + static_cast<double>(random.within(0.00505F)));
  signals.push_back({"around the threshold", small});
  std::vector<double> exact(200, 0.0);
  exact.insert(exact.end(), 200, static_cast<double>(0.01F));
  signals.push_back({"the threshold", exact});
  std::size_t changes = 0;
  for (const NamedSignal& signal : signals) {
    LeadoffDetector kit;
    ContactDetector detector;
    bool last = false;
    for (std::size_t i = 0; i < signal.samples.size(); ++i) {
      const auto sample = static_cast<float>(signal.samples[i]);
      const bool contact = kit.process(sample);
      ASSERT_EQ(detector.step(sample), contact) << signal.name << ", sample " << i;
      if (contact != last) ++changes;
      last = contact;
    }
  }
  EXPECT_GT(changes, 100U);
}

TEST(ResetTimerTest, MatchesTheKit) {
  constexpr std::uint64_t steps[] = {0,         0,         12'000,    2'000'000,
                                     4'000'000, 4'000'001, 4'100'000, 4'200'000};
  const FakeProcessorClock clock;
  RespirationFilterHelper kit(4.0F);
  ResetTimer timer(4.0F);
  RandomFloats random(6);
  int fired = 0;
  for (int i = 0; i < 20'000; ++i) {
    const bool contact = random.below(2) == 0;
    FakeProcessorClock::now += steps[random.below(std::size(steps))];
    const bool expected = kit.shouldResetRespiration(contact);
    ASSERT_EQ(timer.fires(contact, FakeProcessorClock::now), expected) << i;
    if (expected) ++fired;
  }
  EXPECT_GT(fired, 1'000);
}

}  // namespace
}  // namespace Zephly::offline
