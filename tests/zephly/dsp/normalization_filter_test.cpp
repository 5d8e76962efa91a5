// SPDX-License-Identifier: MIT
#include <zephly/dsp/normalization_filter.h>

#include <tests/support/bits.h>
#include <tests/support/special_floats.h>
#include <tests/zephly/dsp/filter_oracles.h>
#include <tests/zephly/dsp/run_comparison.h>
#include <tests/zephly/dsp/signals.h>

#include <limits>
#include <new>
#include <vector>

namespace {

void expectMatchesOracle(int size, bool symmetric, const std::vector<double>& input) {
  SCOPED_TRACE(testing::Message() << size << (symmetric ? ", symmetric" : ""));
  NormalizationFilter filter(size, symmetric);
  oracle::Normalization expected(static_cast<std::size_t>(size), symmetric);
  expectSameRun<double>(
      input, [&](double x) { return filter.process(x); },
      [&](double x) { return expected.step(x); });
}

TEST(NormalizationFilterTest, RangeIsZeroToOneAtFirst) {
  const NormalizationFilter filter(5, true);
  EXPECT_SAME_BITS(filter.min(), 0.0);
  EXPECT_SAME_BITS(filter.max(), 1.0);
}

TEST(NormalizationFilterTest, ConstantInputGivesZeroOnceTheWindowIsFullOfIt) {
  NormalizationFilter filter(4, false);
  for (int i = 1; i <= 3; ++i) EXPECT_SAME_BITS(filter.process(2.5), 1.0) << i;
  for (int i = 4; i <= 10; ++i) EXPECT_SAME_BITS(filter.process(2.5), 0.0) << i;
}

TEST(NormalizationFilterTest, FirstPositiveSampleGivesOne) {
  for (const bool symmetric : {false, true}) {
    NormalizationFilter filter(10, symmetric);
    EXPECT_SAME_BITS(filter.process(0.3), 1.0);
  }
}

TEST(NormalizationFilterTest, FirstSampleThatIsNotPositiveGivesZero) {
  for (const bool symmetric : {false, true}) {
    for (const double x : {-0.3, 0.0}) {
      NormalizationFilter filter(10, symmetric);
      EXPECT_SAME_BITS(filter.process(x), 0.0);
    }
  }
}

TEST(NormalizationFilterTest, SymmetricRangeIsTheLargerMagnitudeOnBothSides) {
  NormalizationFilter filter(2, true);
  filter.process(-2.0);
  EXPECT_SAME_BITS(filter.process(1.0), 0.75);
  EXPECT_SAME_BITS(filter.min(), -2.0);
  EXPECT_SAME_BITS(filter.max(), 2.0);
}

TEST(NormalizationFilterTest, SymmetricRangeMapsZeroToOneHalf) {
  NormalizationFilter filter(10, true);
  filter.process(3.0);
  EXPECT_SAME_BITS(filter.process(0.0), 0.5);
}

TEST(NormalizationFilterTest, PlainRangeIsFromTheSmallestToTheLargestOfTheWindow) {
  NormalizationFilter filter(2, false);
  filter.process(-2.0);
  EXPECT_SAME_BITS(filter.process(1.0), 1.0);
  EXPECT_SAME_BITS(filter.min(), -2.0);
  EXPECT_SAME_BITS(filter.max(), 1.0);
  EXPECT_SAME_BITS(filter.process(0.0), 0.0);  // the -2 has left the window
}

TEST(NormalizationFilterTest, StepsCanBeTakenOneByOne) {
  NormalizationFilter filter(3, false);
  filter.pushSample(4.0);
  filter.pushSample(-1.0);
  EXPECT_SAME_BITS(filter.max(), 1.0);  // before the search
  filter.findMinMax();
  EXPECT_SAME_BITS(filter.min(), -1.0);
  EXPECT_SAME_BITS(filter.max(), 4.0);
}

TEST(NormalizationFilterTest, DoesNotRememberItsLastInput) {
  NormalizationFilter filter(3, true);
  filter.process(4.0);
  EXPECT_SAME_BITS(filter.lastInput(), 0.0);
}

TEST(NormalizationFilterTest, ResetFillsTheWindowWithZeroAndKeepsTheRangeUntilTheNextSample) {
  NormalizationFilter filter(3, false);
  for (const double x : {4.0, 5.0, 6.0}) filter.process(x);
  filter.reset();
  EXPECT_SAME_BITS(filter.min(), 4.0);
  EXPECT_SAME_BITS(filter.max(), 6.0);
  EXPECT_SAME_BITS(filter.process(3.0), 1.0);
  EXPECT_SAME_BITS(filter.min(), 0.0);
  EXPECT_SAME_BITS(filter.max(), 3.0);
}

TEST(NormalizationFilterTest, ResetKeepsThePlaceOfTheNextSample) {
  NormalizationFilter filter(2, false);
  filter.process(4.0);
  filter.reset();
  // A NaN in the second place is ignored; in the first it would spoil the search.
  filter.process(notANumber);
  EXPECT_SAME_BITS(filter.process(8.0), 0.0);
  EXPECT_SAME_BITS(filter.max(), 8.0);
}

TEST(NormalizationFilterTest, MatchesTheReferenceBitForBit) {
  for (const NamedSignal& signal : realisticSignals(100000)) {
    SCOPED_TRACE(signal.name);
    for (const bool symmetric : {false, true}) {
      for (const int size : {1, 2, 50}) expectMatchesOracle(size, symmetric, signal.samples);
    }
  }
}

TEST(NormalizationFilterTest, MatchesForTheWindowOfTheEcgChain) {
  for (const NamedSignal& signal : realisticSignals(10000)) {
    SCOPED_TRACE(signal.name);
    expectMatchesOracle(1000, true, signal.samples);
  }
}

TEST(NormalizationFilterTest, MatchesForExtremeAndHostileSamples) {
  for (const std::vector<double>& input : {extremeSignal(10000, 15), hostileSignal(10000, 16)}) {
    for (const bool symmetric : {false, true}) {
      for (const int size : {1, 7, 300}) expectMatchesOracle(size, symmetric, input);
    }
  }
}

TEST(NormalizationFilterTest, NegativeSizeFailsInAllocation) {
  for (const int size : {-1, -5000, std::numeric_limits<int>::min()}) {
    EXPECT_THROW(NormalizationFilter(size, true), std::bad_array_new_length) << size;
  }
}

TEST(NormalizationFilterDeathTest, AnEmptyWindowIsFatal) {
  EXPECT_DEATH(NormalizationFilter(0, true), "NormalizationFilter: window size 0 ");
}

}  // namespace
