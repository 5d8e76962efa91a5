// SPDX-License-Identifier: MIT
#include <offline/running_median.h>

#include <tests/offline/each_form.h>
#include <tests/offline/hard_signals.h>
#include <tests/support/long_run.h>
#include <tests/support/special_floats.h>
#include <tests/zephly/dsp/run_comparison.h>
#include <zephly/dsp/median_filter.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <utility>
#include <vector>

namespace Zephly::offline {
namespace {

// Signals that are hard to sort.
std::vector<NamedSignal> orders(std::size_t count) {
  RandomFloats random(12);
  std::vector<NamedSignal> all = {{"almost equal", {}}, {"subnormal", {}}, {"outliers", {}},
                                  {"constant", {}},     {"rising", {}},    {"falling", {}}};
  for (std::size_t i = 0; i < count; ++i) {
    // Apart by less than what the vector form sorts by first.
    all[0].samples.push_back(-1.25 - static_cast<double>(random.below(700)) * 0x1p-52);
    all[1].samples.push_back((static_cast<double>(random.below(900)) - 400.0) * 0x1p-1074);
    all[2].samples.push_back(random.below(90) == 0 ? 1e300 : 1e-3 * static_cast<double>(i % 37));
    all[3].samples.push_back(0.75);
    all[4].samples.push_back(static_cast<double>(i) - 100.0);
    all[5].samples.push_back(1.0 / (1.0 + static_cast<double>(i)));
  }
  return all;
}

TEST(RunningMedianTest, MatchesTheKit) {
  const auto count = longRun<std::size_t>(4'000, 1'000);
  std::vector<NamedSignal> signals = hardSignals(count);
  for (NamedSignal& signal : orders(count)) signals.push_back(std::move(signal));
  for (const NamedSignal& signal : signals) {
    SCOPED_TRACE(signal.name);
    MedianFilter kit(300);
    std::vector<double> expected;
    for (const double sample : signal.samples) expected.push_back(kit.process(sample));
    withEachForm([&] {
      for (const std::size_t longest : {std::size_t{1}, std::size_t{1'000}, count}) {
        expectInBlocks<RunningMedian>(signal.samples, expected, longest);
      }
    });
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
