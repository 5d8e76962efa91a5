// SPDX-License-Identifier: MIT
#include <zephly/dsp/signal_processor.h>

#include <tests/support/allocation_count.h>
#include <tests/support/bits.h>
#include <tests/support/captured_output.h>
#include <tests/support/fake_processor_clock.h>
#include <tests/support/fusion_guard.h>
#include <tests/support/random_floats.h>
#include <tests/support/recording.h>
#include <tests/support/repetitions.h>
#include <tests/zephly/dsp/signals.h>
#include <tests/zephly/motion/literal_motion.h>

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
class LeadOff : public testing::Test {
 protected:
  // Feeds one sample; whether there is contact.
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

  // Whether the engine's chain gave the same results as the other since the last call.
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

TEST(SignalProcessor, CannotBeCopied) {
  static_assert(!std::is_copy_constructible_v<Engine> && !std::is_copy_assignable_v<Engine>);
  static_assert(!std::is_polymorphic_v<Engine>);
}

TEST(SignalProcessor, ItsEcgMatchesAFreshChain) {
  Engine engine;
  Zephly::ECGMultiBandpassFilter chain;
  for (const double sample : ecgLike(3000, 31)) {
    const auto input = static_cast<float>(sample);
    engine.processRespiration(-input);
    ASSERT_SAME_BITS(engine.processECG(input), chain.process(input));
  }
}

TEST(SignalProcessor, ItsRespirationMatchesAFreshChain) {
  Engine engine;
  Zephly::RespirationFilter chain;
  for (const double sample : respirationLike(3000, 32)) {
    const auto input = static_cast<float>(sample);
    engine.processECG(-input);
    ASSERT_SAME_BITS(engine.processRespiration(input), chain.process(input));
  }
}

TEST(SignalProcessor, ItsBodyTemperatureMatchesAFreshEstimator) {
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

TEST(SignalProcessor, ItsLeadOffMatchesAFreshDetector) {
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

TEST(SignalProcessor, EnginesAreIndependent) {
  Engine first;
  Engine second;
  const float before = first.processECG(0.5F);
  for (int i = 0; i < 50; ++i) first.processECG(static_cast<float>(i));
  EXPECT_SAME_BITS(second.processECG(0.5F), before);
}

TEST(SignalProcessor, AllocatesNothingAfterConstruction) {
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

TEST_F(LeadOff, AnswersFalseFirstAndThenWhetherThereIsContact) {
  EXPECT_FALSE(feed(true));
  EXPECT_TRUE(feed(true));
  loseContact();
}

TEST_F(LeadOff, NothingIsResetUpToFourSecondsAfterTheFall) {
  loseContact();
  FakeProcessorClock::now += 4000000;
  feed(false);
  EXPECT_TRUE(outputsAgree());
  EXPECT_TRUE(agreesFor(500));
}

TEST_F(LeadOff, TheHighPassIsResetOnTheFirstCallAfterFourSeconds) {
  loseContact();
  EXPECT_TRUE(outputsAgree());
  FakeProcessorClock::now += 4000001;
  feed(false);  // the reset comes before this sample's respiration
  EXPECT_FALSE(agreesFor(400));
}

TEST_F(LeadOff, TheHighPassResetAffectsOnlyTheFifthStage) {
  loseContact();
  FakeProcessorClock::now += 4000001;
  twin.highPass->reset();
  feed(false);
  EXPECT_TRUE(agreesFor(500));
}

TEST_F(LeadOff, TheNormalisationIsResetOnTheFirstCallAfterFourPointOneSeconds) {
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

TEST_F(LeadOff, WithoutItsResetTheNormalisationWouldDiffer) {
  loseContact();
  FakeProcessorClock::now += 4100001;
  twin.highPass->reset();
  feed(false);
  EXPECT_FALSE(agreesFor(500));
}

TEST_F(LeadOff, BothResetsMayHappenInOneCall) {
  loseContact();
  FakeProcessorClock::now += 10000000;
  twin.highPass->reset();
  twin.normalization->reset();
  feed(false);
  EXPECT_TRUE(agreesFor(500));
}

TEST_F(LeadOff, ResetsDoNotRepeatWhileTheElectrodesStayOff) {
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

TEST_F(LeadOff, ResetsRepeatAfterTheNextFall) {
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

TEST_F(LeadOff, ReturningContactDoesNotStopTheResets) {
  loseContact();
  for (int i = 0; i < 10; ++i) feed(true);
  FakeProcessorClock::now += 10000000;
  twin.highPass->reset();
  twin.normalization->reset();
  feed(true);
  EXPECT_TRUE(agreesFor(500));
}

TEST_F(LeadOff, BothTimersReadTheClockOnEveryCallAndTwiceAtTheFall) {
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
TEST_F(LeadOff, ChecksTheTimerOfTheHighPassFirst) {
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

// Motion through the engine; repetitions are recorded as letters.
class Motion : public testing::Test {
 public:
  Motion() {
    engine.setJumpCallback([](void* self) { static_cast<Motion*>(self)->events += 'J'; }, this);
    engine.setSitUpCallback([](void* self) { static_cast<Motion*>(self)->events += 'S'; }, this);
    engine.setPushUpCallback([](void* self) { static_cast<Motion*>(self)->events += 'P'; }, this);
  }

  // The diagnostic lines since the last call.
  std::string lines() {
    const std::string all = output.text();
    std::string fresh = all.substr(seen);
    seen = all.size();
    return fresh;
  }

  // Expects the result of the reference for seven values.
  void expectRule(const literal::Rotation& q, const literal::Vector& a) {
    const literal::Detection expected = rule.process(q, literal::withoutGravity(q, a), 30.0F);
    ASSERT_EQ(events, expected.events);
    events.clear();
    ASSERT_EQ(lines(), expected.line);
  }

  repetitions::Sink sink() {
    return [this](float qw, float qx, float qy, float qz, float ax, float ay, float az) {
      engine.imu(qw, qx, qy, qz, ax, ay, az);
    };
  }

  FusionGuard guard;
  CapturedOutput output;
  Engine engine;
  literal::Detector rule;
  std::string events;

 private:
  std::size_t seen = 0;
};

TEST_F(Motion, ALevelDeviceAtRestHasNoAcceleration) {
  engine.imu(1, 0, 0, 0, 0, 0, 1);
  EXPECT_EQ(lines(), "0, 0\n");
  EXPECT_EQ(events, "");
}

TEST_F(Motion, SevenValuesDoNotAdvanceTheFusion) {
  q0 = 0.1F;
  q1 = 0.2F;
  q2 = 0.3F;
  q3 = 0.4F;
  engine.imu(1, 0, 0, 0, 0, 0, 2);
  EXPECT_EQ(q0, 0.1F);
  EXPECT_EQ(q1, 0.2F);
  EXPECT_EQ(q2, 0.3F);
  EXPECT_EQ(q3, 0.4F);
  expectRule({0.0F, 0.0F, 0.0F, 1.0F}, {0.0F, 0.0F, 2.0F});  // and they were not counted
}

TEST_F(Motion, SevenValuesStartWithTheScalar) {
  engine.imu(0.5F, 0.6F, 0.1F, -0.2F, 0.3F, 0.7F, -0.4F);
  expectRule({0.6F, 0.1F, -0.2F, 0.5F}, {0.3F, 0.7F, -0.4F});
}

TEST_F(Motion, SevenValuesFollowTheRule) {
  RandomFloats random(35);
  std::string all;
  for (int i = 0; i < 20000; ++i) {
    const float tilt = random.within(1);
    const float rest = std::sqrt(1 - tilt * tilt);
    const float push = random.within(3) - rule.accelerationFor(0, 30.0F);
    engine.imu(rest, tilt, 0, 0, push, 0.1F, -push);
    all += events;
    expectRule({tilt, 0.0F, 0.0F, rest}, {push, 0.1F, -push});
    if (HasFatalFailure()) return;
  }
  for (const char kind : {'P', 'J', 'S'}) EXPECT_NE(all.find(kind), std::string::npos) << kind;
}

TEST_F(Motion, NineValuesUseTheUpdatedOrientation) {
  // A rate so large that the orientation leaves the upright band with this one sample.
  engine.imu(60, 0, 0, 0.2F, 0.1F, 0.9F, 0, 0, 0);
  literal::Fusion fusion;
  fusion.update({60.0F, 0.0F, 0.0F}, {0.2F, 0.1F, 0.9F});
  const literal::Rotation after{fusion.q[1], fusion.q[2], fusion.q[3], fusion.q[0]};
  ASSERT_EQ(literal::Detector::band(after), 1);
  expectRule(after, {0.2F, 0.1F, 0.9F});
}

TEST_F(Motion, NineValuesAdvanceTheOrientationOfTheProcess) {
  Engine other;
  engine.imu(0.3F, -0.2F, 0.1F, 0.1F, 0.2F, 0.9F, 20, 3, -40);
  other.imu(0.1F, 0.2F, -0.4F, 0.2F, 0.1F, 0.8F, 19, 2, -41);
  literal::Fusion fusion;
  fusion.update({0.3F, -0.2F, 0.1F}, {0.1F, 0.2F, 0.9F}, {20.0F, 3.0F, -40.0F});
  fusion.update({0.1F, 0.2F, -0.4F}, {0.2F, 0.1F, 0.8F}, {19.0F, 2.0F, -41.0F});
  EXPECT_SAME_BITS(q0, fusion.q[0].value());
  EXPECT_SAME_BITS(q1, fusion.q[1].value());
  EXPECT_SAME_BITS(q2, fusion.q[2].value());
  EXPECT_SAME_BITS(q3, fusion.q[3].value());
}

TEST_F(Motion, NineValuesFollowTheRuleOverARecording) {
  const auto rows = readRecording("imu_135s_100hz.csv");
  literal::Fusion fusion;
  for (const auto& row : rows) {
    const Vector3 g = Vector3(row.at(1), row.at(2), row.at(3)).scale(0.017453292F);
    const literal::Vector a{row.at(4), row.at(5), row.at(6)};
    engine.imu(g.x, g.y, g.z, row[4], row[5], row[6], row.at(7), row.at(8), row.at(9));
    fusion.update({g.x, g.y, g.z}, a, {row[7], row[8], row[9]});
    expectRule({fusion.q[1], fusion.q[2], fusion.q[3], fusion.q[0]}, a);
    if (HasFatalFailure()) return;
  }
}

// At another rate the same movement would give other velocities.
TEST_F(Motion, TheRateIsThirty) {
  engine.imu(1, 0, 0, 0, 0, 0, 2);
  literal::Detector faster;
  const literal::Detection other =
      faster.process({0.0F, 0.0F, 0.0F, 1.0F}, {0.0F, 0.0F, 1.0F}, 60.0F);
  const std::string line = lines();
  EXPECT_NE(line, other.line);
  EXPECT_EQ(line, rule.process({0.0F, 0.0F, 0.0F, 1.0F}, {0.0F, 0.0F, 1.0F}, 30.0F).line);
}

TEST_F(Motion, RepetitionsReachTheirOwnCallbacks) {
  repetitions::pushUp(sink());
  EXPECT_EQ(events, "P");
  events.clear();
  repetitions::sitUp(sink());
  EXPECT_EQ(events, "S");
}

TEST_F(Motion, AJumpReachesItsCallback) {
  repetitions::jump(sink());
  EXPECT_EQ(events, "J");
}

TEST_F(Motion, TheLatestContextAppliesToAllCallbacks) {
  static std::vector<void*> contexts;
  contexts.clear();
  const auto note = [](void* context) { contexts.push_back(context); };
  int a = 0;
  int b = 0;
  engine.setJumpCallback(note, &a);
  engine.setSitUpCallback(note, &b);
  repetitions::jump(sink());
  repetitions::sitUp(sink());
  EXPECT_EQ(contexts, (std::vector<void*>{&b, &b}));
  engine.setPushUpCallback(note, &a);
  repetitions::sitUp(sink());
  EXPECT_EQ(contexts.back(), &a);
  engine.setJumpCallback(note, &b);
  repetitions::sitUp(sink());
  EXPECT_EQ(contexts.back(), &b);
}

// Each setter alone, called before every sample of a movement, changes nothing in its detection.
TEST_F(Motion, SettingACallbackDuringAMovementResetsNothing) {
  using Setter = void (Engine::*)(void (*)(void*), void*);
  using Perform = void (*)(const repetitions::Sink&);
  constexpr Setter setters[] = {&Engine::setJumpCallback, &Engine::setSitUpCallback,
                                &Engine::setPushUpCallback};
  constexpr Perform movements[] = {repetitions::jump, repetitions::sitUp, repetitions::pushUp};
  const auto count = [](void* self) { static_cast<Motion*>(self)->events += 'x'; };
  for (const Perform perform : movements) {
    Engine undisturbed;
    for (const Setter set : setters) (undisturbed.*set)(count, this);
    lines();
    events.clear();
    perform([&](float qw, float qx, float qy, float qz, float ax, float ay, float az) {
      undisturbed.imu(qw, qx, qy, qz, ax, ay, az);
    });
    const std::string expected = lines();
    ASSERT_EQ(events, "x");
    for (const Setter again : setters) {
      Engine disturbed;
      for (const Setter set : setters) (disturbed.*set)(count, this);
      events.clear();
      perform([&](float qw, float qx, float qy, float qz, float ax, float ay, float az) {
        (disturbed.*again)(count, this);
        disturbed.imu(qw, qx, qy, qz, ax, ay, az);
      });
      EXPECT_EQ(lines(), expected);
      EXPECT_EQ(events, "x");
    }
  }
}

using MotionDeathTest = Motion;

TEST_F(MotionDeathTest, ARepetitionWithoutItsCallbackIsFatal) {
  Engine bare;
  const repetitions::Sink bareSink = [&](float qw, float qx, float qy, float qz, float ax, float ay,
                                         float az) { bare.imu(qw, qx, qy, qz, ax, ay, az); };
  EXPECT_DEATH(repetitions::pushUp(bareSink), "pushUpCallback");
  EXPECT_DEATH(repetitions::sitUp(bareSink), "sitUpCallback");
  EXPECT_DEATH(repetitions::jump(bareSink), "jumpCallback");
}

TEST_F(MotionDeathTest, ANullCallbackIsFatal) {
  engine.setPushUpCallback(nullptr, this);
  engine.setSitUpCallback(nullptr, this);
  engine.setJumpCallback(nullptr, this);
  EXPECT_DEATH(repetitions::pushUp(sink()), "pushUpCallback");
  EXPECT_DEATH(repetitions::sitUp(sink()), "sitUpCallback");
  EXPECT_DEATH(repetitions::jump(sink()), "jumpCallback");
}

}  // namespace
