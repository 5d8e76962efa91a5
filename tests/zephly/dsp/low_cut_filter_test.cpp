// SPDX-License-Identifier: MIT
#include <zephly/dsp/low_cut_filter.h>

#include <tests/support/bits.h>
#include <tests/zephly/dsp/filter_oracles.h>
#include <tests/zephly/dsp/run_comparison.h>
#include <tests/zephly/dsp/signals.h>

#include <limits>
#include <new>
#include <vector>

namespace {

void expectMatchesLowCut(int delayLength, const std::vector<double>& input) {
  SCOPED_TRACE(delayLength);
  LowCutFilter filter(delayLength, 0.004, 4);
  oracle::LowCut expected(static_cast<std::size_t>(delayLength) - 1, 0.004, 2);
  expectSameRun<double>(
      input, [&](double x) { return filter.process(x); },
      [&](double x) { return expected.step(x); });
}

TEST(LowCutFilterTest, LineOfOneSampleDoesNotDelay) {
  LowCutFilter filter(1, 0.01, 2);
  oracle::Biquad lowPass(oracle::Pass::low, 0.01, 1, 0.707);
  expectSameRun<double>(
      noisySine(5000, 21), [&](double x) { return filter.process(x); },
      [&](double x) { return x - lowPass.step(x); });
}

TEST(LowCutFilterTest, GivesOnlyTheNegatedLowPassUntilTheDelayHasPassed) {
  LowCutFilter filter(110, 0.004, 4);
  oracle::Biquad lowPass(oracle::Pass::low, 0.004, 2, 0.707);
  const std::vector<double> input = ecgLike(110, 22);
  for (std::size_t i = 0; i < 109; ++i) {
    EXPECT_SAME_BITS(filter.process(input[i]), -lowPass.step(input[i])) << i;
  }
  EXPECT_SAME_BITS(filter.process(input[109]), input[0] - lowPass.step(input[109]));
}

TEST(LowCutFilterTest, RemovesAConstantLevel) {
  LowCutFilter filter(110, 0.004, 4);
  double y = 1.0;
  for (int i = 0; i < 10000; ++i) y = filter.process(2.5);
  EXPECT_NEAR(y, 0.0, 1e-9);
}

TEST(LowCutFilterTest, LowPassCanBeRunAlone) {
  LowCutFilter filter(3, 0.1, 4);
  oracle::Biquad lowPass(oracle::Pass::low, 0.1, 2, 0.707);
  expectSameRun<double>(
      noisySine(100, 23), [&](double x) { return filter.lowPass(x); },
      [&](double x) { return lowPass.step(x); });
  EXPECT_SAME_BITS(filter.process(5.0), 0.0 - lowPass.step(5.0));  // the delay line is still empty
}

TEST(LowCutFilterTest, ShiftMovesTheDelayLineByOneSample) {
  LowCutFilter filter(3, 0.1, 4);
  oracle::Biquad lowPass(oracle::Pass::low, 0.1, 2, 0.707);
  filter.process(7.0);
  lowPass.step(7.0);
  filter.delayLineShift();
  EXPECT_SAME_BITS(filter.process(1.0), 7.0 - lowPass.step(1.0));  // the 7 leaves one sample early
}

TEST(LowCutFilterTest, DoesNotRememberItsLastInput) {
  LowCutFilter filter(3, 0.1, 4);
  filter.process(4.0);
  EXPECT_SAME_BITS(filter.lastInput(), 0.0);
}

TEST(LowCutFilterTest, ResetClearsNeitherTheLineNorTheLowPass) {
  LowCutFilter filter(3, 0.1, 4);
  oracle::LowCut expected(2, 0.1, 2);
  for (const double x : {5.0, -3.0, 2.0}) {
    filter.process(x);
    expected.step(x);
  }
  filter.reset();
  for (const double x : {1.0, 8.0, 0.5}) EXPECT_SAME_BITS(filter.process(x), expected.step(x));
}

TEST(LowCutFilterTest, MatchesTheReferenceBitForBit) {
  for (const NamedSignal& signal : realisticSignals(120000)) {
    SCOPED_TRACE(signal.name);
    for (const int delayLength : {1, 2, 110}) expectMatchesLowCut(delayLength, signal.samples);
  }
}

TEST(LowCutFilterTest, MatchesForExtremeAndHostileSamples) {
  expectMatchesLowCut(110, extremeSignal(20000, 24));
  expectMatchesLowCut(110, hostileSignal(20000, 25));
}

TEST(LowCutFilterTest, NegativeDelayOrOrderFailsInAllocation) {
  EXPECT_THROW(LowCutFilter(-1, 0.1, 4), std::bad_array_new_length);
  EXPECT_THROW(LowCutFilter(std::numeric_limits<int>::min(), 0.1, 4), std::bad_array_new_length);
  EXPECT_THROW(LowCutFilter(3, 0.1, -2), std::bad_array_new_length);
}

TEST(LowCutFilterDeathTest, ADelayOfZeroIsFatal) {
  EXPECT_DEATH(LowCutFilter(0, 0.1, 4), "LowCutFilter: delay length 0 ");
}

TEST(LowCutFilterDeathTest, ChecksTheLowPassBeforeTheDelayLine) {
  EXPECT_DEATH(LowCutFilter(0, 0.1, 1), "BiquadFilter: order 1 ");
}

}  // namespace
