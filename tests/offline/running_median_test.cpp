// SPDX-License-Identifier: MIT
#include <offline/running_median.h>

#include <tests/offline/hard_signals.h>
#include <tests/support/long_run.h>
#include <tests/support/special_floats.h>
#include <tests/zephly/dsp/run_comparison.h>
#include <zephly/dsp/median_filter.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <vector>

namespace Zephly::offline {
namespace {

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

}  // namespace
}  // namespace Zephly::offline
