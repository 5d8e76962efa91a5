// SPDX-License-Identifier: MIT
#include <zephly/dsp/respiration_filter.h>

#include <tests/support/bits.h>
#include <tests/support/long_run.h>
#include <tests/zephly/dsp/filter_oracles.h>
#include <tests/zephly/dsp/run_comparison.h>
#include <tests/zephly/dsp/signals.h>

#include <limits>
#include <type_traits>
#include <vector>

namespace {

using Zephly::RespirationFilter;

void expectMatchesRespirationChain(const std::vector<double>& input) {
  RespirationFilter filter;
  oracle::RespirationChain expected;
  expectSameRun<float>(
      input, [&](float x) { return filter.process(x); }, [&](float x) { return expected.step(x); });
}

// Fills the median's window so that the stages after it receive a signal.
std::vector<double> firstSecondsOf(double level) { return constantSignal(200, level); }

TEST(RespirationFilterTest, FirstSamplesGiveZeroBecauseTheFreshMedianDoes) {
  for (const float level : {2.0F, -2.0F}) {
    RespirationFilter filter;
    for (int i = 1; i <= 148; ++i) EXPECT_SAME_BITS(filter.process(level), 0.0F) << i;
  }
}

TEST(RespirationFilterTest, TheFirstPositiveValueAtTheNormalisationGivesOne) {
  RespirationFilter filter;
  std::vector<float> results;
  for (const double x : firstSecondsOf(2.0))
    results.push_back(filter.process(static_cast<float>(x)));
  EXPECT_SAME_BITS(results[147], 0.0F);
  EXPECT_SAME_BITS(results[148], 1.0F);
}

TEST(RespirationFilterTest, TheFirstNegativeValueAtTheNormalisationGivesZero) {
  RespirationFilter filter;
  for (const double x : firstSecondsOf(-2.0)) {
    EXPECT_SAME_BITS(filter.process(static_cast<float>(x)), 0.0F);
  }
  EXPECT_LT(filter.normalization->min(), 0.0);  // the signal reached the normalisation
}

TEST(RespirationFilterTest, MatchesTheReferenceChainBitForBit) {
  for (const NamedSignal& signal : realisticSignals(longRun(9000, 3000))) {
    SCOPED_TRACE(signal.name);
    expectMatchesRespirationChain(signal.samples);
  }
}

TEST(RespirationFilterTest, MatchesOverTheRecording) {
  constexpr auto samples = longRun<std::size_t>(15000, 4500);
  const auto recording = restingRecording(RestingColumn::respiration, samples);
  ASSERT_EQ(recording.size(), samples);
  expectMatchesRespirationChain(recording);
}

TEST(RespirationFilterTest, MatchesForExtremeSamplesAndAfterANotANumber) {
  constexpr float largest = std::numeric_limits<float>::max();
  std::vector<double> extreme;
  for (const double x : extremeSignal(2500, 41)) {
    if (x < largest && x > -largest) extreme.push_back(x);
  }
  expectMatchesRespirationChain(extreme);
  extreme.insert(extreme.begin() + 900, std::numeric_limits<double>::quiet_NaN());
  expectMatchesRespirationChain(extreme);
  extreme[900] = std::numeric_limits<double>::infinity();
  expectMatchesRespirationChain(extreme);
}

TEST(RespirationFilterTest, ResultsLieBetweenZeroAndOne) {
  RespirationFilter filter;
  for (const double x : respirationLike(7000, 42)) {
    const float y = filter.process(static_cast<float>(x));
    ASSERT_GE(y, 0.0F);
    ASSERT_LE(y, 1.0F);
  }
}

TEST(RespirationFilterTest, HighPassAndNormalisationAreTheStagesOfTheChain) {
  const std::vector<double> input = respirationLike(1500, 43);
  RespirationFilter filter;
  oracle::RespirationChain expected;
  const auto step = [&](float x) { return filter.process(x); };
  const auto expectedStep = [&](float x) { return expected.step(x); };
  expectSameRun<float>(input, step, expectedStep);
  filter.highPass->reset();
  expected.highPass.settle();
  expectSameRun<float>(input, step, expectedStep);
  filter.normalization->reset();
  expected.normalization.clear();
  expectSameRun<float>(input, step, expectedStep);
}

TEST(RespirationFilterTest, ResetOfTheChainChangesNothing) {
  RespirationFilter filter;
  oracle::RespirationChain expected;
  for (const double x : respirationLike(500, 44)) {
    filter.multiFilter->reset();
    ASSERT_SAME_BITS(filter.process(static_cast<float>(x)), expected.step(static_cast<float>(x)));
  }
}

TEST(RespirationFilterTest, CannotBeCopied) {
  EXPECT_FALSE(std::is_copy_constructible_v<RespirationFilter>);
  EXPECT_FALSE(std::is_copy_assignable_v<RespirationFilter>);
  EXPECT_TRUE(std::is_trivially_destructible_v<RespirationFilter>);
  EXPECT_FALSE(std::is_polymorphic_v<RespirationFilter>);
}

}  // namespace
