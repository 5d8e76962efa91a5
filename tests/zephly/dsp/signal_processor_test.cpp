// SPDX-License-Identifier: MIT
#include <zephly/dsp/signal_processor.h>

#include <tests/support/allocation_count.h>
#include <tests/support/bits.h>
#include <tests/support/fake_processor_clock.h>
#include <tests/support/fusion_guard.h>
#include <tests/support/random_floats.h>
#include <tests/support/recording.h>
#include <tests/zephly/dsp/signals.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <iostream>
#include <streambuf>
#include <string>
#include <type_traits>
#include <vector>

namespace {

using Engine = Zephly::SignalProcessor;

// Discards what is written to std::cout.
class DiscardedOutput : public std::streambuf {
 public:
  DiscardedOutput() : original_(std::cout.rdbuf(this)) {}
  ~DiscardedOutput() override { std::cout.rdbuf(original_); }
  DiscardedOutput(const DiscardedOutput&) = delete;
  DiscardedOutput& operator=(const DiscardedOutput&) = delete;

 protected:
  int_type overflow(int_type character) override { return traits_type::not_eof(character); }

 private:
  std::streambuf* original_;
};

// A slow wave that is contact in every window of the lead-off detector, or a flat line.
class Electrodes {
 public:
  float next(bool contact) {
    ++count;
    return contact ? (count % 2 == 0 ? 0.1F : -0.1F) + static_cast<float>(count % 300) * 1e-3F
                   : 0.3F;
  }

 private:
  int count = 0;
};

// An engine with loose electrodes, and a separate respiration chain that gets the same samples, for
// comparison. A test advances the clock by hand.
class SignalProcessorLeadoffTest : public testing::Test {
 protected:
  // Feeds one sample. Returns whether there is contact.
  bool feed(bool contact) {
    const float sample = electrodes.next(contact);
    const bool answer = engine.processLeadoffDetection(sample);
    outputs.push_back(engine.processRespiration(sample));
    expected.push_back(twin.process(sample));
    return answer;
  }

  // Contact, then flat samples until contact is lost.
  void loseContact() {
    for (int i = 0; i < 200; ++i) feed(true);
    ASSERT_TRUE(feed(true));
    for (int i = 0; i < 69; ++i) ASSERT_TRUE(feed(false));
    ASSERT_FALSE(feed(false));
  }

  // Whether the engine's chain and the separate chain gave the same results since the last call.
  bool outputsAgree() {
    bool agree = true;
    for (std::size_t i = 0; i < outputs.size(); ++i) agree &= sameBits(outputs[i], expected[i]);
    outputs.clear();
    expected.clear();
    return agree;
  }

  // Feeds enough samples to reveal a reset of only one of the chains.
  bool agreesFor(int samples) {
    for (int i = 0; i < samples; ++i) feed(i % 3 != 0);
    return outputsAgree();
  }

  FakeProcessorClock clock;
  Electrodes electrodes;
  Engine engine;
  Zephly::RespirationFilter twin;
  std::vector<float> outputs;
  std::vector<float> expected;
};

TEST(SignalProcessorTest, CannotBeCopied) {
  static_assert(!std::is_copy_constructible_v<Engine> && !std::is_copy_assignable_v<Engine>);
  static_assert(!std::is_polymorphic_v<Engine>);
}

TEST(SignalProcessorTest, ItsEcgMatchesAFreshChain) {
  Engine engine;
  Zephly::ECGMultiBandpassFilter chain;
  for (const double sample : ecgLike(3000, 31)) {
    const auto input = static_cast<float>(sample);
    engine.processRespiration(-input);
    ASSERT_SAME_BITS(engine.processECG(input), chain.process(input));
  }
}

TEST(SignalProcessorTest, ItsRespirationMatchesAFreshChain) {
  Engine engine;
  Zephly::RespirationFilter chain;
  for (const double sample : respirationLike(3000, 32)) {
    const auto input = static_cast<float>(sample);
    engine.processECG(-input);
    ASSERT_SAME_BITS(engine.processRespiration(input), chain.process(input));
  }
}

TEST(SignalProcessorTest, ItsBodyTemperatureMatchesAFreshEstimator) {
  Engine engine;
  Zephly::BodyTemperatureEstimator estimator;
  EXPECT_SAME_BITS(Engine().processBodyTemperature(34.0F, 25.0F), 36.8F);
  RandomFloats random(33);
  for (int i = 0; i < 1000; ++i) {
    const float object = 35.0F + random.within(3);
    const float ambient = 20.0F + random.within(10);
    ASSERT_SAME_BITS(engine.processBodyTemperature(object, ambient),
                     estimator.process(object, ambient));
  }
}

TEST(SignalProcessorTest, ItsLeadOffMatchesAFreshDetector) {
  Engine engine;
  Zephly::LeadoffDetector detector;
  int contact = 0;
  for (const double sample : respirationLike(20000, 34)) {
    const auto input = static_cast<float>(sample);
    const bool answer = engine.processLeadoffDetection(input);
    ASSERT_EQ(answer, detector.process(input));
    contact += answer ? 1 : 0;
  }
  EXPECT_GT(contact, 0);
  EXPECT_LT(contact, 20000);
}

TEST(SignalProcessorTest, EnginesAreIndependent) {
  Engine first;
  Engine second;
  const float before = first.processECG(0.5F);
  for (int i = 0; i < 50; ++i) first.processECG(static_cast<float>(i));
  EXPECT_SAME_BITS(second.processECG(0.5F), before);
}

TEST(SignalProcessorTest, AllocatesNothingAfterConstruction) {
  const DiscardedOutput discarded;
  const FusionGuard guard;
  Engine engine;
  engine.imu(1, 0, 0, 0, 0, 0, 1);  // the first diagnostic line creates the console's stream
  const std::size_t before = allocationCount();
  for (int i = 0; i < 200; ++i) {
    const auto sample = static_cast<float>(i % 7);
    engine.processECG(sample);
    engine.processRespiration(sample);
    engine.processLeadoffDetection(sample);
    engine.processBodyTemperature(34.0F + sample, 25.0F);
    engine.imu(1, 0, 0, 0, 0, 0, 1);
    engine.imu(0.1F, 0, 0, 0, 0, 1, 20, 0, -40);
  }
  EXPECT_EQ(allocationCount(), before);
}

TEST_F(SignalProcessorLeadoffTest, AnswersFalseFirstAndThenWhetherThereIsContact) {
  EXPECT_FALSE(feed(true));
  EXPECT_TRUE(feed(true));
  loseContact();
}

TEST_F(SignalProcessorLeadoffTest, NothingIsResetUpToFourSecondsAfterTheFall) {
  loseContact();
  FakeProcessorClock::now += 4000000;
  feed(false);
  EXPECT_TRUE(outputsAgree());
  EXPECT_TRUE(agreesFor(500));
}

TEST_F(SignalProcessorLeadoffTest, TheHighPassIsResetOnTheFirstCallAfterFourSeconds) {
  loseContact();
  EXPECT_TRUE(outputsAgree());
  FakeProcessorClock::now += 4000001;
  feed(false);  // the reset comes before this sample's respiration
  EXPECT_FALSE(agreesFor(400));
}

TEST_F(SignalProcessorLeadoffTest, TheHighPassResetAffectsOnlyTheFifthStage) {
  loseContact();
  FakeProcessorClock::now += 4000001;
  twin.highPass->reset();
  feed(false);
  EXPECT_TRUE(agreesFor(500));
}

TEST_F(SignalProcessorLeadoffTest, TheNormalisationIsResetOnTheFirstCallAfterFourPointOneSeconds) {
  loseContact();
  FakeProcessorClock::now += 4000001;
  twin.highPass->reset();
  feed(false);
  FakeProcessorClock::now += 99999;  // 4.1 seconds after the fall, not more
  feed(false);
  EXPECT_TRUE(agreesFor(100));
  FakeProcessorClock::now += 1;
  twin.normalization->reset();
  feed(false);
  EXPECT_TRUE(agreesFor(500));
}

TEST_F(SignalProcessorLeadoffTest, WithoutItsResetTheNormalisationWouldDiffer) {
  loseContact();
  FakeProcessorClock::now += 4100001;
  twin.highPass->reset();
  feed(false);
  EXPECT_FALSE(agreesFor(500));
}

TEST_F(SignalProcessorLeadoffTest, BothResetsMayHappenInOneCall) {
  loseContact();
  FakeProcessorClock::now += 10000000;
  twin.highPass->reset();
  twin.normalization->reset();
  feed(false);
  EXPECT_TRUE(agreesFor(500));
}

TEST_F(SignalProcessorLeadoffTest, ResetsDoNotRepeatWhileTheElectrodesStayOff) {
  loseContact();
  FakeProcessorClock::now += 10000000;
  twin.highPass->reset();
  twin.normalization->reset();
  feed(false);
  for (int i = 0; i < 20; ++i) {
    FakeProcessorClock::now += 10000000;
    feed(false);
  }
  EXPECT_TRUE(agreesFor(400));
}

TEST_F(SignalProcessorLeadoffTest, ResetsRepeatAfterTheNextFall) {
  loseContact();
  FakeProcessorClock::now += 10000000;
  twin.highPass->reset();
  twin.normalization->reset();
  feed(false);
  loseContact();
  FakeProcessorClock::now += 10000000;
  twin.highPass->reset();
  twin.normalization->reset();
  feed(false);
  EXPECT_TRUE(agreesFor(500));
}

TEST_F(SignalProcessorLeadoffTest, ReturningContactDoesNotStopTheResets) {
  loseContact();
  for (int i = 0; i < 10; ++i) feed(true);
  FakeProcessorClock::now += 10000000;
  twin.highPass->reset();
  twin.normalization->reset();
  feed(true);
  EXPECT_TRUE(agreesFor(500));
}

TEST_F(SignalProcessorLeadoffTest, BothTimersReadTheClockOnEveryCallAndTwiceAtTheFall) {
  for (int i = 0; i < 10; ++i) feed(true);
  const int before = FakeProcessorClock::reads;
  feed(true);
  EXPECT_EQ(FakeProcessorClock::reads - before, 2);
  for (int i = 0; i < 69; ++i) feed(false);
  const int atFall = FakeProcessorClock::reads;
  ASSERT_FALSE(feed(false));
  EXPECT_EQ(FakeProcessorClock::reads - atFall, 4);
}

// With a clock that advances by 0.2 seconds at each reading, the timer that reads 4.0 seconds is
// not due, and the timer that reads 4.2 is.
TEST_F(SignalProcessorLeadoffTest, ChecksTheTimerOfTheHighPassFirst) {
  loseContact();
  FakeProcessorClock::now += 4000000;
  const std::uint64_t firstReading = FakeProcessorClock::now;
  const Zephly::ProcessorClock standing = Zephly::setProcessorClock([] {
    const std::uint64_t reading = FakeProcessorClock::now;
    FakeProcessorClock::now += 200000;
    return reading;
  });
  twin.normalization->reset();
  feed(false);
  Zephly::setProcessorClock(standing);
  FakeProcessorClock::now = firstReading;
  EXPECT_TRUE(agreesFor(500));
}

}  // namespace
