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
#include <span>
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

// Which zero the median is depends on where the kit's circular window has them.
TEST(RunningMedianTest, MatchesTheKitAmongZerosAfterABlock) {
  std::vector<double> samples;
  for (std::uint32_t part = 0; samples.size() < longRun<std::size_t>(6'000, 2'000); ++part) {
    const std::vector<double> numbers = noisySine(1'300, part);
    samples.insert(samples.end(), numbers.begin(), numbers.end());
    const std::vector<double> zeros = fewValues(501, part);
    samples.insert(samples.end(), zeros.begin(), zeros.end());
  }
  MedianFilter kit(300);
  std::vector<double> expected;
  for (const double sample : samples) expected.push_back(kit.process(sample));
  withEachForm([&] { expectInBlocks<RunningMedian>(samples, expected, 900); });
}

// In the last history of a block and outside it, and in the last samples of one.
TEST(RunningMedianTest, MatchesTheKitBesideSpecialSamples) {
  for (const double special : {static_cast<double>(notANumber), -0.0, -1e308 * 10.0}) {
    for (const std::size_t place : {0U, 1U, 2U, 300U, 695U, 696U, 697U, 698U, 699U}) {
      SCOPED_TRACE(place);
      std::vector<double> samples = noisySine(1'200, 9);
      // Rising, so that each rank passes the middle.
      for (std::size_t i = 0; i < samples.size(); ++i) samples[i] += static_cast<double>(i);
      samples[place] = special;
      MedianFilter kit(300);
      std::vector<double> expected;
      for (const double sample : samples) expected.push_back(kit.process(sample));
      withEachForm([&] {
        RunningMedian median;
        std::vector<double> out(samples.size());
        for (std::size_t begin = 0; begin < samples.size();) {
          const std::size_t end = begin == 0 ? 300 : begin == 300 ? 700 : begin + 20;
          median.process(std::span(samples).subspan(begin, end - begin),
                         std::span(out).subspan(begin, end - begin));
          begin = end;
        }
        for (std::size_t i = 0; i < out.size(); ++i) ASSERT_SAME_BITS(out[i], expected[i]) << i;
      });
    }
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
