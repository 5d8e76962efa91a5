// SPDX-License-Identifier: MIT
#include <offline/running_normalization.h>

#include <tests/offline/hard_signals.h>
#include <tests/support/bits.h>
#include <tests/support/long_run.h>
#include <tests/support/special_floats.h>
#include <tests/zephly/dsp/run_comparison.h>
#include <zephly/dsp/normalization_filter.h>

#include <gtest/gtest.h>

#include <cstddef>
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

}  // namespace
}  // namespace Zephly::offline
