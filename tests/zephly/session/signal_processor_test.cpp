// SPDX-License-Identifier: MIT
#include <zephly/session/signal_processor.h>

#include <tests/support/bits.h>
#include <tests/support/captured_output.h>
#include <tests/support/fusion_guard.h>
#include <tests/support/leaving.h>
#include <tests/support/recorded_events.h>
#include <tests/support/repetitions.h>
#include <tests/support/special_floats.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <random>
#include <utility>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class SignalProcessorWrapperTest : public testing::Test {
 protected:
  repetitions::Sink motion() {
    return [this](float qw, float qx, float qy, float qz, float ax, float ay, float az) {
      wrapper->imu(qw, qx, qy, qz, ax, ay, az);
    };
  }

  recorded::Log log;
  CapturedOutput trace;
  std::shared_ptr<SignalProcessor> wrapper = SignalProcessor::init();
  std::shared_ptr<recorded::Workout> workout = std::make_shared<recorded::Workout>(log);
};

using SignalProcessorWrapperDeathTest = SignalProcessorWrapperTest;

std::vector<float> samplesOfAllKinds() {
  std::mt19937 bits(7);
  std::vector<float> samples(3000);
  for (float& sample : samples) sample = static_cast<float>(bits()) / 4294967296.0f - 0.5f;
  samples.push_back(std::numeric_limits<float>::denorm_min());
  samples.push_back(std::numeric_limits<float>::infinity());
  samples.push_back(std::numeric_limits<float>::quiet_NaN());
  for (int index = 0; index < 100; ++index) samples.push_back(0.25f);
  return samples;
}

TEST_F(SignalProcessorWrapperTest, ReturnsTheEnginesValuesBitForBit) {
  ::Zephly::SignalProcessor engine;
  for (const float sample : samplesOfAllKinds()) {
    EXPECT_EQ(wrapper->processLeadoffDetection(sample), engine.processLeadoffDetection(sample));
    EXPECT_SAME_BITS(wrapper->processRespiration(sample), engine.processRespiration(sample));
    EXPECT_SAME_BITS(wrapper->processECG(sample), engine.processECG(sample));
  }
}

TEST_F(SignalProcessorWrapperTest, PassesSevenMotionValuesInTheirOrder) {
  ::Zephly::SignalProcessor engine;
  const auto ignore = [](void*) {};
  for (auto* each : {wrapper->signalProcessor(), &engine}) {
    each->setJumpCallback(ignore, nullptr);
    each->setSitUpCallback(ignore, nullptr);
    each->setPushUpCallback(ignore, nullptr);
  }
  std::mt19937 bits(11);
  const auto next = [&bits] { return static_cast<float>(bits() % 2000) / 1000.0f - 1.0f; };
  for (int index = 0; index < 50; ++index) {
    const std::vector<float> v = {next(), next(), next(), next(), next(), next(), next()};
    const CapturedOutput byWrapper;
    wrapper->imu(v[0], v[1], v[2], v[3], v[4], v[5], v[6]);
    const CapturedOutput byEngine;
    engine.imu(v[0], v[1], v[2], v[3], v[4], v[5], v[6]);
    ASSERT_NE(byEngine.text(), "");
    ASSERT_EQ(byWrapper.text(), byEngine.text());
  }
}

TEST_F(SignalProcessorWrapperTest, PassesNineMotionValuesInTheirOrder) {
  const FusionGuard guard;
  ::Zephly::SignalProcessor engine;
  const auto orientation = [] { return std::vector<float>{q0, q1, q2, q3}; };
  wrapper->imu(0.1f, 0.2f, 0.3f, 0.4f, 0.5f, 0.6f, 0.7f, 0.8f, 0.9f);
  const auto byWrapper = orientation();
  FusionGuard::restart();
  engine.imu(0.1f, 0.2f, 0.3f, 0.4f, 0.5f, 0.6f, 0.7f, 0.8f, 0.9f);
  EXPECT_EQ(byWrapper, orientation());
}

// A special value in any of the seven places changes an engine's trace permanently. If the wrapper
// dropped such a sample, every later line would differ.
TEST_F(SignalProcessorWrapperTest, PassesSevenNonFiniteMotionValues) {
  for (const float special : {notANumber, infinity, -infinity}) {
    for (std::size_t place = 0; place < 7; ++place) {
      ::Zephly::SignalProcessor engine;
      const auto fresh = SignalProcessor::init();
      const auto ignore = [](void*) {};
      engine.setJumpCallback(ignore, nullptr);
      engine.setSitUpCallback(ignore, nullptr);
      engine.setPushUpCallback(ignore, nullptr);
      fresh->startWorkoutDetection();
      std::vector<float> v = {1, 0, 0, 0, 0.1f, 0.2f, 0.9f};
      v[place] = special;
      const CapturedOutput byWrapper;
      fresh->imu(v[0], v[1], v[2], v[3], v[4], v[5], v[6]);
      EXPECT_NE(byWrapper.text(), "");
      const CapturedOutput byEngine;
      engine.imu(v[0], v[1], v[2], v[3], v[4], v[5], v[6]);
      EXPECT_EQ(byWrapper.text(), byEngine.text()) << special << " at " << place;
    }
  }
}

TEST_F(SignalProcessorWrapperTest, PassesNineNonFiniteMotionValues) {
  const FusionGuard guard;
  ::Zephly::SignalProcessor engine;
  for (const float special : {notANumber, infinity, -infinity}) {
    for (std::size_t place = 0; place < 9; ++place) {
      std::vector<float> v = {0.1f, 0.2f, 0.3f, 0.4f, 0.5f, 0.6f, 0.7f, 0.8f, 0.9f};
      v[place] = special;
      FusionGuard::restart();
      const CapturedOutput byWrapper;
      wrapper->imu(v[0], v[1], v[2], v[3], v[4], v[5], v[6], v[7], v[8]);
      EXPECT_NE(byWrapper.text(), "");  // the trace of the exercise detector: one line a sample
      const std::vector<float> orientation = {q0, q1, q2, q3};
      FusionGuard::restart();
      engine.imu(v[0], v[1], v[2], v[3], v[4], v[5], v[6], v[7], v[8]);
      const std::vector<float> expected = {q0, q1, q2, q3};
      for (std::size_t i = 0; i < expected.size(); ++i) {
        EXPECT_SAME_BITS(orientation[i], expected[i]) << special << " at " << place;
      }
    }
  }
}

// The workout bridge.

TEST_F(SignalProcessorWrapperTest, ReportsEachKindOfRepetition) {
  wrapper->setDelegate(workout);
  wrapper->startWorkoutDetection();
  repetitions::pushUp(motion());
  EXPECT_THAT(log, ElementsAre("didDetectPushUp"));
  log.clear();
  repetitions::sitUp(motion());
  EXPECT_THAT(log, testing::Contains("didDetectSitUp"));
  log.clear();
  repetitions::jump(motion());
  EXPECT_THAT(log, testing::Contains("didDetectJump"));
}

TEST_F(SignalProcessorWrapperTest, ARepetitionWithoutADelegateIsDropped) {
  wrapper->startWorkoutDetection();
  repetitions::jump(motion());
  EXPECT_THAT(log, IsEmpty());
}

TEST_F(SignalProcessorWrapperTest, OnlyTheNewDelegateGetsTheNextRepetition) {
  recorded::Log otherLog;
  const auto other = std::make_shared<recorded::Workout>(otherLog);
  wrapper->setDelegate(workout);
  wrapper->startWorkoutDetection();
  wrapper->setDelegate(other);
  repetitions::sitUp(motion());
  EXPECT_THAT(log, IsEmpty());
  EXPECT_THAT(otherLog, ElementsAre("didDetectSitUp"));
}

TEST_F(SignalProcessorWrapperTest, ADestroyedDelegateGetsNothing) {
  wrapper->setDelegate(workout);
  wrapper->startWorkoutDetection();
  EXPECT_EQ(workout.use_count(), 1);  // not owned
  workout.reset();
  EXPECT_EQ(wrapper->delegate(), nullptr);
  repetitions::pushUp(motion());
  EXPECT_THAT(log, IsEmpty());
}

TEST_F(SignalProcessorWrapperTest, KeepsTheDelegateAliveDuringItsCall) {
  class Workout : public Leaving<WorkoutDelegate> {
   public:
    using Leaving::Leaving;
    void didDetectPushUp() override { leave(); }
    void didDetectSitUp() override { leave(); }
    void didDetectJump() override { leave(); }
  };
  for (const auto& perform : {repetitions::jump, repetitions::sitUp, repetitions::pushUp}) {
    log.clear();
    wrapper = SignalProcessor::init();
    std::shared_ptr<Leaving<WorkoutDelegate>> owner;
    owner = std::make_shared<Workout>(log, owner);
    wrapper->setDelegate(owner);
    wrapper->startWorkoutDetection();
    perform(motion());
    EXPECT_THAT(log, stayedUntilTheEndOfItsCall());
  }
}

// The last owner of a wrapper releases it when a repetition is reported.
TEST_F(SignalProcessorWrapperTest, StaysAliveDuringAMotionCallThatReleasesIt) {
  struct LettingGo : WorkoutDelegate {
    explicit LettingGo(std::shared_ptr<SignalProcessor>& wrapper) : wrapper_(wrapper) {}
    void didDetectSitUp() override {
      const std::weak_ptr<SignalProcessor> watched = wrapper_;
      wrapper_.reset();
      aliveDuringCall = !watched.expired();
    }
    std::shared_ptr<SignalProcessor>& wrapper_;
    bool aliveDuringCall = false;
  };
  const auto lettingGo = std::make_shared<LettingGo>(wrapper);
  const std::weak_ptr<SignalProcessor> watched = wrapper;
  wrapper->setDelegate(lettingGo);
  wrapper->startWorkoutDetection();
  repetitions::sitUp([this](float qw, float qx, float qy, float qz, float ax, float ay, float az) {
    if (wrapper) wrapper->imu(qw, qx, qy, qz, ax, ay, az);
  });
  EXPECT_EQ(wrapper, nullptr);
  EXPECT_TRUE(lettingGo->aliveDuringCall);
  EXPECT_TRUE(watched.expired());
}

TEST_F(SignalProcessorWrapperTest, StartingTwiceLeavesOneRegistrationOfEachKind) {
  const std::pair<void (*)(const repetitions::Sink&), const char*> kinds[] = {
      {repetitions::jump, "didDetectJump"},
      {repetitions::sitUp, "didDetectSitUp"},
      {repetitions::pushUp, "didDetectPushUp"}};
  for (const auto& [perform, expectedCall] : kinds) {
    log.clear();
    wrapper = SignalProcessor::init();
    wrapper->setDelegate(workout);
    wrapper->startWorkoutDetection();
    wrapper->startWorkoutDetection();
    perform(motion());
    EXPECT_THAT(log, ElementsAre(expectedCall));
  }
}

TEST_F(SignalProcessorWrapperTest, EachStartRegistersAllThreeCallbacksAnew) {
  const std::pair<void (*)(const repetitions::Sink&), const char*> kinds[] = {
      {repetitions::jump, "didDetectJump"},
      {repetitions::sitUp, "didDetectSitUp"},
      {repetitions::pushUp, "didDetectPushUp"}};
  const auto foreign = [](void* context) { ++*static_cast<int*>(context); };
  for (const auto& [perform, event] : kinds) {
    log.clear();
    int foreignCalls = 0;
    wrapper = SignalProcessor::init();
    wrapper->setDelegate(workout);
    wrapper->startWorkoutDetection();
    wrapper->signalProcessor()->setJumpCallback(foreign, &foreignCalls);
    wrapper->signalProcessor()->setSitUpCallback(foreign, &foreignCalls);
    wrapper->signalProcessor()->setPushUpCallback(foreign, &foreignCalls);
    wrapper->startWorkoutDetection();
    perform(motion());
    EXPECT_THAT(log, ElementsAre(event));
    EXPECT_EQ(foreignCalls, 0);
  }
}

TEST_F(SignalProcessorWrapperTest, StartingDuringAMovementDoesNotResetDetection) {
  wrapper->setDelegate(workout);
  wrapper->startWorkoutDetection();
  repetitions::jump([this](float qw, float qx, float qy, float qz, float ax, float ay, float az) {
    wrapper->startWorkoutDetection();
    wrapper->imu(qw, qx, qy, qz, ax, ay, az);
  });
  EXPECT_THAT(log, ElementsAre("didDetectJump"));
}

TEST_F(SignalProcessorWrapperDeathTest, ARepetitionBeforeDetectionWasStartedIsFatal) {
  EXPECT_DEATH(repetitions::sitUp(motion()), "sitUpCallback was never set");
}

TEST_F(SignalProcessorWrapperDeathTest, ARepetitionThatTheDelegateDoesNotImplementIsFatal) {
  class Indifferent : public WorkoutDelegate {};
  const auto indifferent = std::make_shared<Indifferent>();
  wrapper->setDelegate(indifferent);
  wrapper->startWorkoutDetection();
  EXPECT_DEATH(repetitions::sitUp(motion()), "does not implement didDetectSitUp");
}

// The engine property.

TEST_F(SignalProcessorWrapperTest, UsesAReplacedEngineWithoutOwningIt) {
  auto engine = std::make_unique<::Zephly::SignalProcessor>();
  auto* const created = wrapper->signalProcessor();
  ASSERT_NE(created, nullptr);
  wrapper->setSignalProcessor(engine.get());
  EXPECT_EQ(wrapper->signalProcessor(), engine.get());
  EXPECT_FALSE(wrapper->processLeadoffDetection(0));
  EXPECT_TRUE(wrapper->processLeadoffDetection(1));
  EXPECT_FALSE(
      created->processLeadoffDetection(1));  // still exists, but the wrapper does not use it
  wrapper.reset();
  EXPECT_TRUE(engine->processLeadoffDetection(0));  // still exists
}

TEST_F(SignalProcessorWrapperDeathTest, UsingAWrapperWithoutAnEngineIsFatal) {
  wrapper->setSignalProcessor(nullptr);
  EXPECT_DEATH(wrapper->processECG(0), "SignalProcessor.signalProcessor is empty");
}

// Message names.

TEST_F(SignalProcessorWrapperTest, RespondsToItsMessageNames) {
  ::Zephly::SignalProcessor engine;
  wrapper->performSelector("setDelegate:", std::weak_ptr<WorkoutDelegate>(workout));
  wrapper->performSelector("startWorkoutDetection");
  EXPECT_EQ(wrapper->performSelector<std::shared_ptr<WorkoutDelegate>>("delegate"), workout);
  EXPECT_SAME_BITS(wrapper->performSelector<float>("processECG:", 0.5f), engine.processECG(0.5f));
  EXPECT_SAME_BITS(wrapper->performSelector<float>("processRespiration:", 0.5f),
                   engine.processRespiration(0.5f));
  EXPECT_FALSE(wrapper->performSelector<bool>("processLeadoffDetection:", 0.5f));
  EXPECT_TRUE(wrapper->performSelector<bool>("processLeadoffDetection:", 0.0f));
  repetitions::sitUp([this](float qw, float qx, float qy, float qz, float ax, float ay, float az) {
    wrapper->performSelector("imu:qx:qy:qz:ax:ay:az:", qw, qx, qy, qz, ax, ay, az);
  });
  EXPECT_THAT(log, ElementsAre("didDetectSitUp"));
  const FusionGuard guard;
  wrapper->performSelector("imu:gy:gz:ax:ay:az:mx:my:mz:", 0.5f, 0.0f, 0.0f, 0.0f, 0.0f, 1.0f, 0.0f,
                           0.0f, 0.0f);
  EXPECT_NE(q1, 0.0f);
  EXPECT_EQ(wrapper->performSelector<::Zephly::SignalProcessor*>("signalProcessor"),
            wrapper->signalProcessor());
  wrapper->performSelector("setSignalProcessor:", &engine);
  EXPECT_EQ(wrapper->signalProcessor(), &engine);
}

}  // namespace
