// SPDX-License-Identifier: MIT
#include <zephly/dsp/biquad_filter.h>

#include <tests/support/bits.h>
#include <tests/zephly/dsp/filter_oracles.h>
#include <tests/zephly/dsp/run_comparison.h>
#include <tests/zephly/dsp/signals.h>

#include <cmath>
#include <limits>
#include <new>
#include <numbers>
#include <vector>

namespace {

struct Design {
  BiquadFilterType type;
  oracle::Pass pass;
};
const std::vector<Design> designs = {{BiquadLowpass, oracle::Pass::low},
                                     {BiquadHighpass, oracle::Pass::high},
                                     {BiquadBandpass, oracle::Pass::band},
                                     {BiquadNotch, oracle::Pass::notch}};

double lastOfConstant(BiquadFilter& filter, double level, int steps) {
  double y = 0.0;
  for (int i = 0; i < steps; ++i) y = filter.process(level);
  return y;
}

// The amplitude of the response to a sine of amplitude 1 after settling.
double gainAt(BiquadFilter& filter, double frequency) {
  double peak = 0.0;
  for (int i = 0; i < 40000; ++i) {
    const double y = filter.process(std::sin(2.0 * std::numbers::pi * frequency * i));
    if (i > 20000) peak = std::max(peak, std::abs(y));
  }
  return peak;
}

TEST(BiquadFilterTest, TypesHaveTheirNumbers) {
  EXPECT_EQ(static_cast<int>(BiquadLowpass), 0);
  EXPECT_EQ(static_cast<int>(BiquadHighpass), 1);
  EXPECT_EQ(static_cast<int>(BiquadBandpass), 2);
  EXPECT_EQ(static_cast<int>(BiquadNotch), 3);
  EXPECT_EQ(sizeof(BiquadFilterType), sizeof(int));
}

TEST(BiquadFilterTest, LowpassConvergesToAConstantInput) {
  for (const double Fc : {0.002, 0.01, 0.1, 0.25, 0.4, 0.49}) {
    for (const int order : {2, 4, 8}) {
      BiquadFilter filter(BiquadLowpass, Fc, order, 0.707);
      EXPECT_NEAR(lastOfConstant(filter, 1.0, 20000), 1.0, 1e-9) << Fc << " order " << order;
    }
  }
}

TEST(BiquadFilterTest, HighpassConvergesToZeroForAConstantInput) {
  for (const double Fc : {0.002, 0.01, 0.1, 0.25, 0.4, 0.49}) {
    for (const int order : {2, 4, 8}) {
      BiquadFilter filter(BiquadHighpass, Fc, order, 0.707);
      EXPECT_NEAR(lastOfConstant(filter, 1.0, 20000), 0.0, 1e-9) << Fc << " order " << order;
    }
  }
}

TEST(BiquadFilterTest, LowpassAndHighpassHalveThePowerAtTheCorner) {
  for (const BiquadFilterType type : {BiquadLowpass, BiquadHighpass}) {
    BiquadFilter filter(type, 0.101, 2, std::numbers::sqrt2 / 2.0);
    EXPECT_NEAR(gainAt(filter, 0.101), std::numbers::sqrt2 / 2.0, 1e-3);
  }
}

TEST(BiquadFilterTest, BandpassPassesItsCentreAndStopsAConstant) {
  BiquadFilter filter(BiquadBandpass, 0.101, 2, 5.0);
  EXPECT_NEAR(gainAt(filter, 0.101), 1.0, 1e-3);
  EXPECT_NEAR(lastOfConstant(filter, 1.0, 20000), 0.0, 1e-9);
}

TEST(BiquadFilterTest, NotchStopsItsCentreAndPassesAConstant) {
  BiquadFilter filter(BiquadNotch, 0.101, 4, 5.0);
  EXPECT_NEAR(gainAt(filter, 0.101), 0.0, 1e-9);
  EXPECT_NEAR(lastOfConstant(filter, 1.0, 20000), 1.0, 1e-9);
}

TEST(BiquadFilterTest, OrderIsTwiceTheNumberOfSectionsAndAnOddOneLosesItsHalf) {
  struct {
    int order;
    int sections;
  } const cases[] = {{2, 1}, {3, 1}, {4, 2}, {5, 2}, {7, 3}, {8, 4}, {9, 4}};
  const std::vector<double> input = noisySine(2000, 3);
  for (const auto& [order, sections] : cases) {
    SCOPED_TRACE(order);
    BiquadFilter filter(BiquadLowpass, 0.05, order, 0.9);
    // A cascade of single sections.
    std::vector<oracle::Biquad> cascade(static_cast<std::size_t>(sections),
                                        oracle::Biquad(oracle::Pass::low, 0.05, 1, 0.9));
    expectSameRun<double>(
        input, [&](double x) { return filter.process(x); },
        [&](double x) {
          for (oracle::Biquad& section : cascade) x = section.step(x);
          return x;
        });
  }
}

TEST(BiquadFilterTest, MatchesTheReferenceCascadeBitForBit) {
  for (const NamedSignal& signal : realisticSignals(120000)) {
    for (const Design& design : designs) {
      SCOPED_TRACE(signal.name + ", type " + std::to_string(design.type));
      BiquadFilter filter(design.type, 0.0731, 6, 1.3);
      oracle::Biquad expected(design.pass, 0.0731, 3, 1.3);
      expectSameRun<double>(
          signal.samples, [&](double x) { return filter.process(x); },
          [&](double x) { return expected.step(x); });
    }
  }
}

TEST(BiquadFilterTest, MatchesForAllKindsOfDesignNumbers) {
  const std::vector<double> input = noisySine(500, 4);
  // Includes frequencies and qualities for which the filter is useless or unstable.
  for (const double Fc : {0.0, 8e-5, 0.004, 0.1, 0.25, 0.3333, 0.5, 0.75, -0.1, 1e10}) {
    for (const double Q : {0.0, 1e-3, 0.5, 0.707, 1.0, 15.0, -2.0, 1e300}) {
      for (const Design& design : designs) {
        SCOPED_TRACE(testing::Message() << "Fc " << Fc << " Q " << Q << " type " << design.type);
        BiquadFilter filter(design.type, Fc, 4, Q);
        oracle::Biquad expected(design.pass, Fc, 2, Q);
        expectSameRun<double>(
            input, [&](double x) { return filter.process(x); },
            [&](double x) { return expected.step(x); });
      }
    }
  }
}

TEST(BiquadFilterTest, MatchesForExtremeAndHostileSamples) {
  for (const std::vector<double>& input : {extremeSignal(20000, 5), hostileSignal(20000, 6)}) {
    for (const Design& design : designs) {
      BiquadFilter filter(design.type, 0.1, 4, 0.707);
      oracle::Biquad expected(design.pass, 0.1, 2, 0.707);
      expectSameRun<double>(
          input, [&](double x) { return filter.process(x); },
          [&](double x) { return expected.step(x); });
    }
  }
}

TEST(BiquadFilterTest, StateDecaysThroughTheSubnormalNumbers) {
  std::vector<double> input(200000, 0.0);
  input[0] = 1e-300;
  BiquadFilter filter(BiquadHighpass, 0.0008, 2, 0.707);
  oracle::Biquad expected(oracle::Pass::high, 0.0008, 1, 0.707);
  expectSameRun<double>(
      input, [&](double x) { return filter.process(x); },
      [&](double x) { return expected.step(x); });
}

TEST(BiquadFilterTest, RemembersItsLastInput) {
  BiquadFilter filter(BiquadLowpass, 0.1, 4, 0.707);
  filter.process(3.25);
  EXPECT_SAME_BITS(filter.lastInput(), 3.25);
}

TEST(BiquadFilterTest, HighpassIsAtRestAtTheLastLevelAfterReset) {
  for (const double Fc : {8e-5, 0.01}) {
    BiquadFilter filter(BiquadHighpass, Fc, 2, 0.707);
    for (const double x : noisySine(1000, 8)) filter.process(x);
    filter.process(12.5);
    filter.reset();
    EXPECT_SAME_BITS(filter.lastInput(), 12.5);
    EXPECT_NEAR(filter.process(12.5), 0.0, 1e-5) << Fc;
  }
}

TEST(BiquadFilterTest, ResetLeavesTheStateOfFiftyThousandStepsAtTheLastInput) {
  const std::vector<double> input = noisySine(3000, 9);
  BiquadFilter filter(BiquadHighpass, 8e-5, 2, 0.707);
  oracle::Biquad expected(oracle::Pass::high, 8e-5, 1, 0.707);
  const auto step = [&](double x) { return filter.process(x); };
  const auto expectedStep = [&](double x) { return expected.step(x); };
  expectSameRun<double>(input, step, expectedStep);
  filter.reset();
  expected.settle();
  expectSameRun<double>(input, step, expectedStep);
}

TEST(BiquadFilterTest, ResetOfAFreshFilterLeavesItAtRest) {
  BiquadFilter filter(BiquadLowpass, 0.1, 4, 0.707);
  filter.reset();
  EXPECT_SAME_BITS(filter.process(0.0), 0.0);
}

// Records the calls of its process, which changes lastInput().
class CountingBiquad : public BiquadFilter {
 public:
  CountingBiquad() : BiquadFilter(BiquadHighpass, 0.01, 2, 0.707) {}
  double process(double x) override {
    ++calls;
    allAtLevel = allAtLevel && x == 4.0;
    return BiquadFilter::process(calls == 100 ? 77.0 : x);
  }
  int calls = 0;
  bool allAtLevel = true;
};

TEST(BiquadFilterTest, ResetReadsTheLastInputOnceAndCallsTheVirtualProcessFiftyThousandTimes) {
  CountingBiquad filter;
  filter.process(4.0);
  filter.calls = 0;
  filter.reset();
  EXPECT_EQ(filter.calls, 50000);
  EXPECT_TRUE(filter.allAtLevel);
}

TEST(BiquadFilterTest, UnknownTypeHasNoCoefficients) {
  for (const int number : {4, -1, 1000}) {
    BiquadFilter filter(static_cast<BiquadFilterType>(number), 0.1, 4, 0.707);
    for (const double x : {1.0, -5.0, 1e300, 0.0}) EXPECT_EQ(filter.process(x), 0.0);
    EXPECT_SAME_BITS(filter.lastInput(), 0.0);
    // A feedback coefficient would not be a number for this quality.
    BiquadFilter withoutQuality(static_cast<BiquadFilterType>(number), 0.1, 4, 0.0);
    for (const double x : {1.0, -5.0, 0.0}) EXPECT_EQ(withoutQuality.process(x), 0.0);
  }
}

TEST(BiquadFilterTest, NegativeOrderFailsInAllocation) {
  for (const int order : {-2, -3, -1000, std::numeric_limits<int>::min()}) {
    EXPECT_THROW(BiquadFilter(BiquadLowpass, 0.1, order, 0.707), std::bad_array_new_length)
        << order;
  }
}

TEST(BiquadFilterDeathTest, OrderWithoutASectionIsFatal) {
  EXPECT_DEATH(BiquadFilter(BiquadLowpass, 0.1, 1, 0.707), "BiquadFilter: order 1 ");
  EXPECT_DEATH(BiquadFilter(BiquadLowpass, 0.1, 0, 0.707), "BiquadFilter: order 0 ");
  EXPECT_DEATH(BiquadFilter(BiquadLowpass, 0.1, -1, 0.707), "BiquadFilter: order -1 ");
}

}  // namespace
