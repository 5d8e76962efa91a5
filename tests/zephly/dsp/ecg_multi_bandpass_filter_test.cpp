// SPDX-License-Identifier: MIT
#include <zephly/dsp/ecg_multi_bandpass_filter.h>

#include <tests/support/bits.h>
#include <tests/zephly/dsp/filter_oracles.h>
#include <tests/zephly/dsp/run_comparison.h>
#include <tests/zephly/dsp/signals.h>

#include <limits>
#include <type_traits>
#include <vector>

namespace {

using Zephly::ECGMultiBandpassFilter;

void expectMatchesEcgChain(const std::vector<double>& input) {
  ECGMultiBandpassFilter filter;
  oracle::EcgChain expected;
  expectSameRun<float>(
      input, [&](float x) { return filter.process(x); }, [&](float x) { return expected.step(x); });
}

TEST(ECGMultiBandpassFilterTest, FirstSampleGivesOneWhenWhatReachesTheNormalisationIsPositive) {
  ECGMultiBandpassFilter filter;
  // The low cut answers the first sample with the negated low-pass.
  EXPECT_SAME_BITS(filter.process(-0.5F), 1.0F);
}

TEST(ECGMultiBandpassFilterTest, FirstSampleGivesZeroWhenWhatReachesTheNormalisationIsNegative) {
  ECGMultiBandpassFilter filter;
  EXPECT_SAME_BITS(filter.process(0.5F), 0.0F);
}

TEST(ECGMultiBandpassFilterTest, FirstSampleOfZeroGivesZero) {
  ECGMultiBandpassFilter filter;
  EXPECT_SAME_BITS(filter.process(0.0F), 0.0F);
}

TEST(ECGMultiBandpassFilterTest, MatchesTheReferenceChainBitForBit) {
  for (const NamedSignal& signal : realisticSignals(30000)) {
    SCOPED_TRACE(signal.name);
    expectMatchesEcgChain(signal.samples);
  }
}

TEST(ECGMultiBandpassFilterTest, ConstantInputsMatchThroughTheRoundingOfTheSettledStages) {
  for (const double level : {1.0, -0.37, 1e-3, 1234.5, 1e30}) {
    SCOPED_TRACE(level);
    expectMatchesEcgChain(constantSignal(6000, level));
  }
}

TEST(ECGMultiBandpassFilterTest, MatchesOverTheRecording) {
  const auto recording = restingRecording(RestingColumn::ecg, 30000);
  ASSERT_EQ(recording.size(), 30000U);
  expectMatchesEcgChain(recording);
}

TEST(ECGMultiBandpassFilterTest, RoundingToSinglePrecisionAfterEachStageShows) {
  ECGMultiBandpassFilter filter;
  oracle::EcgChain inDouble;
  int different = 0;
  for (const double x : ecgLike(2000, 31)) {
    const auto sample = static_cast<float>(x);
    if (!sameBits(filter.process(sample), inDouble.stepInDouble(sample))) ++different;
  }
  EXPECT_GT(different, 0);
}

TEST(ECGMultiBandpassFilterTest, ResultsLieBetweenZeroAndOne) {
  ECGMultiBandpassFilter filter;
  for (const double x : noisySine(20000, 32)) {
    const float y = filter.process(static_cast<float>(x));
    ASSERT_GE(y, 0.0F);
    ASSERT_LE(y, 1.0F);
  }
}

TEST(ECGMultiBandpassFilterTest, MatchesForExtremeAndHostileSamples) {
  constexpr float largest = std::numeric_limits<float>::max();
  std::vector<double> extreme;
  for (const double x : extremeSignal(3000, 33)) {
    if (x < largest && x > -largest) extreme.push_back(x);
  }
  extreme.push_back(largest);
  extreme.push_back(-largest);
  extreme.push_back(std::numeric_limits<float>::denorm_min());
  expectMatchesEcgChain(extreme);
  extreme.insert(extreme.begin() + 1500, std::numeric_limits<double>::quiet_NaN());
  expectMatchesEcgChain(extreme);
  extreme[1500] = -std::numeric_limits<double>::infinity();
  expectMatchesEcgChain(extreme);
}

TEST(ECGMultiBandpassFilterTest, ChainsAreIndependent) {
  ECGMultiBandpassFilter disturbed;
  ECGMultiBandpassFilter filter;
  oracle::EcgChain expected;
  for (const double x : ecgLike(500, 34)) {
    const auto sample = static_cast<float>(x);
    disturbed.process(-3.0F * sample);
    ASSERT_SAME_BITS(filter.process(sample), expected.step(sample));
  }
}

TEST(ECGMultiBandpassFilterTest, CannotBeCopied) {
  EXPECT_FALSE(std::is_copy_constructible_v<ECGMultiBandpassFilter>);
  EXPECT_FALSE(std::is_copy_assignable_v<ECGMultiBandpassFilter>);
  EXPECT_TRUE(std::is_trivially_destructible_v<ECGMultiBandpassFilter>);
  EXPECT_FALSE(std::is_polymorphic_v<ECGMultiBandpassFilter>);
}

}  // namespace
