// SPDX-License-Identifier: MIT
#include <zephly/dsp/multi_filter.h>

#include <tests/support/bits.h>
#include <tests/zephly/dsp/filter_oracles.h>
#include <tests/zephly/dsp/run_comparison.h>
#include <tests/zephly/dsp/signals.h>
#include <zephly/dsp/biquad_filter.h>
#include <zephly/dsp/median_filter.h>

#include <memory>
#include <string>
#include <vector>

namespace {

// Computes factor * x + offset and records its calls.
class Recorded : public Filter {
 public:
  Recorded(std::string name, double factor, double offset, std::string& log)
      : name_(std::move(name)), factor_(factor), offset_(offset), log_(log) {}
  ~Recorded() override { log_ += "~" + name_ + " "; }
  double process(double x) override {
    log_ += name_ + " ";
    return factor_ * x + offset_;
  }
  void reset() override { log_ += "reset " + name_ + " "; }

 private:
  std::string name_;
  double factor_;
  double offset_;
  std::string& log_;
};

TEST(MultiFilterTest, EmptyChainReturnsItsInput) {
  MultiFilter chain;
  EXPECT_SAME_BITS(chain.process(-0.0), -0.0);
  EXPECT_SAME_BITS(chain.process(1.25), 1.25);
}

TEST(MultiFilterTest, MembersRunInTheOrderInWhichTheyWereAdded) {
  std::string log;
  MultiFilter chain;
  chain.addFilter(new Recorded("A", 2.0, 0.0, log));
  chain.addFilter(new Recorded("B", 1.0, 1.0, log));
  EXPECT_SAME_BITS(chain.process(5.0), 11.0);  // B(A(5)); A(B(5)) would be 12
  EXPECT_EQ(log, "A B ");
}

TEST(MultiFilterTest, RemembersItsLastInput) {
  std::string log;
  MultiFilter chain;
  chain.addFilter(new Recorded("A", 2.0, 0.0, log));
  chain.process(5.0);
  EXPECT_SAME_BITS(chain.lastInput(), 5.0);
}

TEST(MultiFilterTest, ResetLeavesTheMembersUntouched) {
  std::string log;
  MultiFilter chain;
  chain.addFilter(new Recorded("A", 2.0, 0.0, log));
  chain.addFilter(new Recorded("B", 1.0, 1.0, log));
  chain.reset();
  EXPECT_EQ(log, "");
}

TEST(MultiFilterTest, DeletesItsMembersOnceInTheOrderInWhichTheyWereAdded) {
  std::string log;
  {
    MultiFilter chain;
    for (const char* name : {"A", "B", "C"}) chain.addFilter(new Recorded(name, 1.0, 0.0, log));
  }
  EXPECT_EQ(log, "~A ~B ~C ");
}

TEST(MultiFilterTest, DestructionIgnoresNull) {
  std::string log;
  {
    MultiFilter chain;
    chain.addFilter(nullptr);
    chain.addFilter(new Recorded("A", 1.0, 0.0, log));
  }
  EXPECT_EQ(log, "~A ");
}

TEST(MultiFilterTest, DeletesItsMembersWhenDeletedThroughTheBaseClass) {
  std::string log;
  auto chain = std::make_unique<MultiFilter>();
  chain->addFilter(new Recorded("A", 1.0, 0.0, log));
  std::unique_ptr<Filter> base = std::move(chain);
  EXPECT_EQ(log, "");
  base.reset();
  EXPECT_EQ(log, "~A ");
}

TEST(MultiFilterTest, ChainsMayHoldChains) {
  std::string log;
  MultiFilter outer;
  auto inner = std::make_unique<MultiFilter>();
  inner->addFilter(new Recorded("A", 2.0, 0.0, log));
  outer.addFilter(inner.release());
  outer.addFilter(new Recorded("B", 1.0, 1.0, log));
  EXPECT_SAME_BITS(outer.process(5.0), 11.0);
}

TEST(MultiFilterTest, MatchesTheReferenceChainBitForBit) {
  for (const NamedSignal& signal : realisticSignals(100000)) {
    SCOPED_TRACE(signal.name);
    MultiFilter chain;
    chain.addFilter(new BiquadFilter(BiquadNotch, 0.1, 4, 5.0));
    chain.addFilter(new MedianFilter(7));
    chain.addFilter(new BiquadFilter(BiquadHighpass, 0.01, 2, 0.707));
    oracle::Biquad notch(oracle::Pass::notch, 0.1, 2, 5.0);
    oracle::Median median(7);
    oracle::Biquad highPass(oracle::Pass::high, 0.01, 1, 0.707);
    expectSameRun<double>(
        signal.samples, [&](double x) { return chain.process(x); },
        [&](double x) { return highPass.step(median.step(notch.step(x))); });
  }
}

}  // namespace
