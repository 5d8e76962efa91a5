// SPDX-License-Identifier: MIT
#include <zephly/dsp/median_filter.h>

#include <tests/support/bits.h>
#include <tests/support/long_run.h>
#include <tests/support/special_floats.h>
#include <tests/zephly/dsp/filter_oracles.h>
#include <tests/zephly/dsp/run_comparison.h>
#include <tests/zephly/dsp/signals.h>

#include <cmath>
#include <limits>
#include <new>
#include <vector>

namespace {

double lastOf(MedianFilter& filter, const std::vector<double>& input) {
  double y = 0.0;
  for (const double x : input) y = filter.process(x);
  return y;
}

void expectMatchesMedian(int size, const std::vector<double>& input) {
  SCOPED_TRACE(size);
  MedianFilter filter(size);
  oracle::Median expected(static_cast<std::size_t>(size));
  expectSameRun<double>(
      input, [&](double x) { return filter.process(x); },
      [&](double x) { return expected.step(x); });
}

TEST(MedianFilterTest, WindowOfFiveGivesTheFourthSmallest) {
  MedianFilter filter(5);
  EXPECT_SAME_BITS(lastOf(filter, {1, 2, 3, 4, 5}), 4.0);
}

TEST(MedianFilterTest, WindowOfFourGivesTheMeanOfTheTwoLargest) {
  MedianFilter filter(4);
  EXPECT_SAME_BITS(lastOf(filter, {1, 2, 3, 4}), 3.5);
}

TEST(MedianFilterTest, WindowOfThreeGivesTheLargest) {
  MedianFilter filter(3);
  EXPECT_SAME_BITS(lastOf(filter, {9, 1, 2}), 9.0);
  EXPECT_SAME_BITS(filter.process(3), 3.0);  // the 9 has left the window
}

TEST(MedianFilterTest, FirstSampleOfAFreshLongWindowGivesZero) {
  MedianFilter filter(300);
  EXPECT_SAME_BITS(filter.process(7.0), 0.0);
}

TEST(MedianFilterTest, WindowOfThreeHundredGivesTheMeanOfThe151stAnd152ndSmallest) {
  MedianFilter filter(300);
  for (int i = 300; i >= 1; --i) filter.process(i);
  EXPECT_SAME_BITS(filter.getMedianValue(), 151.5);
}

TEST(MedianFilterTest, TheMedianIsZeroUntilHalfTheWindowIsFilled) {
  MedianFilter filter(300);
  for (int i = 1; i <= 148; ++i) EXPECT_SAME_BITS(filter.process(7.0), 0.0) << i;
  EXPECT_SAME_BITS(filter.process(7.0), 3.5);  // the mean of the two values in the middle, 0 and 7
  EXPECT_SAME_BITS(filter.process(7.0), 7.0);
}

TEST(MedianFilterTest, TheMedianOfNegativeSamplesIsZeroForLonger) {
  MedianFilter filter(300);
  for (int i = 1; i <= 150; ++i) EXPECT_SAME_BITS(filter.process(-7.0), 0.0) << i;
  EXPECT_SAME_BITS(filter.process(-7.0), -3.5);
  EXPECT_SAME_BITS(filter.process(-7.0), -7.0);
}

TEST(MedianFilterTest, StepsCanBeTakenOneByOne) {
  MedianFilter filter(5);
  for (const double x : {5.0, 1.0, 4.0, 2.0, 3.0}) filter.pushSample(x);
  EXPECT_SAME_BITS(filter.getMedianValue(), 0.0);  // before the first sort
  filter.sortWindow();
  EXPECT_SAME_BITS(filter.getMedianValue(), 4.0);
  filter.pushSample(9.0);  // replaces the 5
  filter.sortWindow();
  EXPECT_SAME_BITS(filter.getMedianValue(), 4.0);
  EXPECT_SAME_BITS(filter.lastInput(), 0.0);  // only process() sets it
}

TEST(MedianFilterTest, RemembersItsLastInput) {
  MedianFilter filter(5);
  filter.process(8.5);
  EXPECT_SAME_BITS(filter.lastInput(), 8.5);
}

TEST(MedianFilterTest, ResetDoesNotClearTheWindow) {
  MedianFilter filter(5);
  lastOf(filter, {1, 2, 3, 4, 5});
  filter.reset();
  EXPECT_SAME_BITS(filter.process(5.0), 5.0);  // the window is 2 3 4 5 5
}

TEST(MedianFilterTest, NanSortsAfterEveryNumber) {
  MedianFilter filter(5);
  EXPECT_SAME_BITS(lastOf(filter, {notANumber, 3, -infinity, infinity, 2}), double{infinity});
  EXPECT_TRUE(std::isnan(filter.process(notANumber) + filter.process(notANumber)));
}

TEST(MedianFilterTest, RecoversFromAWindowFullOfNan) {
  MedianFilter filter(300);
  for (int i = 0; i < 300; ++i) filter.process(i % 2 == 0 ? notANumber : -notANumber);
  EXPECT_TRUE(std::isnan(filter.getMedianValue()));
  for (int i = 0; i < 300; ++i) filter.process(2.0);
  EXPECT_SAME_BITS(filter.getMedianValue(), 2.0);
}

TEST(MedianFilterTest, MatchesTheReferenceMedianBitForBit) {
  for (const NamedSignal& signal : realisticSignals(longRun(100000, 20000))) {
    SCOPED_TRACE(signal.name);
    for (const int size : {3, 4, 5, 16}) expectMatchesMedian(size, signal.samples);
  }
}

TEST(MedianFilterTest, MatchesForTheWindowOfTheRespirationChain) {
  for (const NamedSignal& signal : realisticSignals(longRun(6000, 2000))) {
    SCOPED_TRACE(signal.name);
    for (const int size : {299, 300}) expectMatchesMedian(size, signal.samples);
  }
}

TEST(MedianFilterTest, MatchesForExtremeAndHostileSamples) {
  for (const std::vector<double>& input : {extremeSignal(5000, 11), hostileSignal(5000, 12)}) {
    for (const int size : {3, 4, 17, 300}) expectMatchesMedian(size, input);
  }
}

TEST(MedianFilterTest, MatchesForSamplesThatAreMostlyNan) {
  std::vector<double> input = noisySine(3000, 13);
  for (std::size_t i = 0; i < input.size(); ++i) {
    if (i % 4 != 0) input[i] = notANumber;
  }
  for (const int size : {5, 64, 300}) expectMatchesMedian(size, input);
}

TEST(MedianFilterTest, NegativeSizeFailsInAllocation) {
  for (const int size : {-1, -300, std::numeric_limits<int>::min()}) {
    EXPECT_THROW(MedianFilter filter(size), std::bad_array_new_length) << size;
  }
}

TEST(MedianFilterDeathTest, WindowTooShortForItsRankIsFatal) {
  EXPECT_DEATH(MedianFilter(0), "MedianFilter: window size 0 ");
  EXPECT_DEATH(MedianFilter(1), "MedianFilter: window size 1 ");
  EXPECT_DEATH(MedianFilter(2), "MedianFilter: window size 2 ");
}

}  // namespace
