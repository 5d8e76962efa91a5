// SPDX-License-Identifier: MIT
#include <offline/running_normalization.h>

#include <tests/offline/each_form.h>
#include <tests/offline/hard_signals.h>
#include <tests/support/bits.h>
#include <tests/support/long_run.h>
#include <tests/support/special_floats.h>
#include <tests/zephly/dsp/run_comparison.h>
#include <zephly/dsp/normalization_filter.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <span>
#include <vector>

namespace Zephly::offline {
namespace {

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

TEST(RunningNormalizationTest, MatchesTheKitInBlocks) {
  const auto count = longRun<std::size_t>(6'000, 2'500);
  for (const NamedSignal& signal : hardSignals(count)) {
    SCOPED_TRACE(signal.name);
    NormalizationFilter kit(1000, true);
    std::vector<float> expected;
    for (const double x : signal.samples) expected.push_back(static_cast<float>(kit.process(x)));
    withEachForm([&] {
      for (const std::size_t longest : {std::size_t{100}, std::size_t{1'500}, count}) {
        expectInBlocks<RunningNormalization<1000>>(signal.samples, expected, longest);
      }
    });
  }
}

// A NaN in the first place, or an infinity anywhere, just before a block and at its end.
TEST(RunningNormalizationTest, MatchesTheKitInBlocksBesideSpecialSamples) {
  constexpr std::size_t size = 100;
  for (const double special : {static_cast<double>(notANumber), static_cast<double>(infinity)}) {
    for (std::size_t place = 195; place < 310; ++place) {
      SCOPED_TRACE(place);
      std::vector<double> samples = noisySine(600, 8);
      samples[place] = special;
      NormalizationFilter kit(size, true);
      std::vector<float> expected;
      for (const double x : samples) expected.push_back(static_cast<float>(kit.process(x)));
      withEachForm([&] {
        RunningNormalization<size> normalization;
        std::vector<float> out(samples.size());
        for (std::size_t begin = 0; begin < samples.size(); begin += 50) {
          normalization.process(std::span(samples).subspan(begin, 50),
                                std::span(out).subspan(begin, 50));
        }
        for (std::size_t i = 0; i < out.size(); ++i) ASSERT_SAME_BITS(out[i], expected[i]) << i;
      });
    }
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
  constexpr std::size_t size = 52;
  withEachForm([&] {
    RandomFloats random(4);
    NormalizationFilter kit(size, true);
    RunningNormalization<size> normalization;
    for (int round = 0; round < 1'000; ++round) {
      std::vector<double> in;
      const std::size_t rarity = round % 2 == 0 ? 4 : 10'000;
      for (std::size_t i = 0; i <= random.below(2 * size); ++i) {
        in.push_back(static_cast<double>(random.awkward(2, rarity)));
      }
      std::vector<float> out(in.size());
      normalization.process(in, out);
      for (std::size_t i = 0; i < in.size(); ++i) {
        ASSERT_SAME_BITS(out[i], static_cast<float>(kit.process(in[i]))) << "round " << round;
      }
      normalization.clear();
      kit.reset();
    }
  });
}

TEST(RunningNormalizationTest, ForgetsANanWhenItIsCleared) {
  NormalizationFilter kit(10, true);
  RunningNormalization<10> normalization;
  const auto step = [&](double x) { ASSERT_SAME_BITS(normalization.step(x), kit.process(x)); };
  step(static_cast<double>(notANumber));
  step(1.0);
  normalization.clear();
  kit.reset();
  for (int i = 0; i < 30; ++i) step(0.5 * i);
}

}  // namespace
}  // namespace Zephly::offline
