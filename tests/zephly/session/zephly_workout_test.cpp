// SPDX-License-Identifier: MIT
// Motion and exercise in a session: who is notified of a repetition, and what is printed.

#include <zephly/session/zephly.h>

#include <tests/support/captured_output.h>
#include <tests/support/fusion_guard.h>
#include <tests/support/recorded_events.h>
#include <tests/support/repetitions.h>
#include <tests/support/special_floats.h>
#include <tests/zephly/session/session_fixture.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <random>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class ZephlyWorkoutTest : public ZephlyTest {};

TEST_F(ZephlyWorkoutTest, WithoutAnApplicationMotionIsProcessedAndRepetitionsAreCounted) {
  const auto workout = std::make_shared<recorded::Workout>(log);
  session->startWorkoutDetection(workout);
  application.reset();
  repetitions::pushUp(motion());
  EXPECT_THAT(log, ElementsAre("didDetectPushUp"));
  EXPECT_EQ(linesWithoutTrace(), "");
}

TEST_F(ZephlyWorkoutTest, WithoutAnApplicationTheSessionPrintsRepetitions) {
  application.reset();
  repetitions::jump(motion());
  EXPECT_EQ(linesWithoutTrace(), "Jump!\n");
}

TEST_F(ZephlyWorkoutTest, WithoutAnApplicationPhoneValuesReachTheEngine) {
  const FusionGuard guard;
  application.reset();
  phoneEvents(*session).didReceiveIMUValues(0.5f, 0, 0, 0, 0, 1, 0, 0, 0);
  EXPECT_NE(q1, 0.0f);
}

TEST_F(ZephlyWorkoutTest, NonFiniteMotionValuesReachTheEngine) {
  const CapturedOutput trace;
  strapEvents(*session).didReceiveIMUValues(1, 0, 0, 0, 0, 0, notANumber);
  EXPECT_EQ(trace.text(), "nan, nan\n");
  const FusionGuard guard;
  phoneEvents(*session).didReceiveIMUValues(notANumber, 0, 0, 0, 0, 1, 0, 0, 0);
  EXPECT_TRUE(std::isnan(q0));
}

TEST_F(ZephlyWorkoutTest, EachStartOfWorkoutDetectionReplacesTheDelegate) {
  recorded::Log otherLog;
  const auto first = std::make_shared<recorded::Workout>(log);
  const auto second = std::make_shared<recorded::Workout>(otherLog);
  session->startWorkoutDetection(first);
  session->startWorkoutDetection(second);
  repetitions::sitUp(motion());
  EXPECT_THAT(log, IsEmpty());
  EXPECT_THAT(otherLog, ElementsAre("didDetectSitUp"));
  session->startWorkoutDetection(first);
  repetitions::sitUp(motion());
  EXPECT_THAT(log, ElementsAre("didDetectSitUp"));
}

// The wrapper replaces callbacks that were set in the engine before.
TEST_F(ZephlyWorkoutTest, EachStartOfWorkoutDetectionRegistersWithTheEngine) {
  const auto workout = std::make_shared<recorded::Workout>(log);
  auto* const engine = Access::wrapper(*session)->signalProcessor();
  const auto foreign = [](void* context) { ++*static_cast<int*>(context); };
  int foreignCalls = 0;
  for (int start = 0; start < 2; ++start) {
    engine->setJumpCallback(foreign, &foreignCalls);
    engine->setSitUpCallback(foreign, &foreignCalls);
    engine->setPushUpCallback(foreign, &foreignCalls);
    log.clear();
    session->startWorkoutDetection(workout);
    repetitions::sitUp(motion());
    EXPECT_THAT(log, ElementsAre("didDetectSitUp"));
  }
  EXPECT_EQ(foreignCalls, 0);
}

TEST_F(ZephlyWorkoutTest, RepetitionsForADestroyedWorkoutDelegateAreDropped) {
  auto workout = std::make_shared<recorded::Workout>(log);
  session->startWorkoutDetection(workout);
  workout.reset();
  repetitions::jump(motion());
  repetitions::sitUp(motion());
  repetitions::pushUp(motion());
  EXPECT_THAT(log, IsEmpty());
  EXPECT_EQ(linesWithoutTrace(), "");
}

TEST_F(ZephlyWorkoutTest, ARepetitionBeforeWorkoutDetectionStartsIsOnlyPrinted) {
  repetitions::pushUp(motion());
  EXPECT_EQ(linesWithoutTrace(), "PushUp!\n");
  EXPECT_THAT(log, IsEmpty());
}

TEST_F(ZephlyWorkoutTest, TheSessionsWorkoutOperationsPrintOneLineEach) {
  workoutEvents(*session).didDetectPushUp();
  workoutEvents(*session).didDetectSitUp();
  workoutEvents(*session).didDetectJump();
  EXPECT_EQ(output.text(), "PushUp!\nSitUp!\nJump!\n");
}

TEST_F(ZephlyWorkoutTest, AJumpIsPrinted) {
  repetitions::jump(motion());
  EXPECT_EQ(linesWithoutTrace(), "Jump!\n");
  EXPECT_THAT(log, IsEmpty());
}

TEST_F(ZephlyWorkoutTest, RepetitionsGoToTheWorkoutDelegateDuringTheMotionCall) {
  const auto workout = std::make_shared<recorded::Workout>(log);
  session->startWorkoutDetection(workout);
  EXPECT_EQ(workout.use_count(), 1);
  repetitions::sitUp(motion());
  EXPECT_THAT(log, ElementsAre("didDetectSitUp"));
  EXPECT_EQ(linesWithoutTrace(), "");
}

TEST_F(ZephlyWorkoutTest, MotionIsNotReportedToTheApplication) {
  strapEvents(*session).didReceiveIMUValues(1, 0, 0, 0, 0, 0, 1);
  EXPECT_THAT(log, IsEmpty());
  EXPECT_EQ(output.text(), "0, 0\n");
}

TEST_F(ZephlyWorkoutTest, SevenMotionValuesReachTheEngineInTheirOrder) {
  ::Zephly::SignalProcessor engine;
  const auto ignore = [](void*) {};
  engine.setJumpCallback(ignore, nullptr);
  engine.setSitUpCallback(ignore, nullptr);
  engine.setPushUpCallback(ignore, nullptr);
  session->startWorkoutDetection(nullptr);  // only the trace is still written to standard output
  std::mt19937 random(11);
  const auto next = [&random] { return static_cast<float>(random() % 2000) / 1000.0f - 1.0f; };
  for (int index = 0; index < 50; ++index) {
    const std::vector<float> v = {next(), next(), next(), next(), next(), next(), next()};
    const CapturedOutput bySession;
    strapEvents(*session).didReceiveIMUValues(v[0], v[1], v[2], v[3], v[4], v[5], v[6]);
    const CapturedOutput byEngine;
    engine.imu(v[0], v[1], v[2], v[3], v[4], v[5], v[6]);
    ASSERT_NE(byEngine.text(), "");
    ASSERT_EQ(bySession.text(), byEngine.text());
  }
}

TEST_F(ZephlyWorkoutTest, NinePhoneValuesReachTheNineAxisPathInTheirOrder) {
  const FusionGuard guard;
  ::Zephly::SignalProcessor engine;
  const auto orientation = [] { return std::vector<float>{q0, q1, q2, q3}; };
  phoneEvents(*session).didReceiveIMUValues(0.1f, 0.2f, 0.3f, 0.4f, 0.5f, 0.6f, 0.7f, 0.8f, 0.9f);
  const auto bySession = orientation();
  FusionGuard::restart();
  EXPECT_NE(bySession, orientation());
  engine.imu(0.1f, 0.2f, 0.3f, 0.4f, 0.5f, 0.6f, 0.7f, 0.8f, 0.9f);
  EXPECT_EQ(bySession, orientation());
}

// The phone's samples would move the process-wide orientation.
TEST_F(ZephlyWorkoutTest, TheStrapsSamplesNeverReachThePhonesPath) {
  const FusionGuard guard;
  strapEvents(*session).didConnectPeripheral();
  strapEvents(*session).didReceiveTemperature(36, 20);
  strapEvents(*session).didReceiveECG({0.5f});
  strapEvents(*session).didReceiveRespiration({0.5f});
  strapEvents(*session).didReceiveBatteryStatus({50, true});
  strapEvents(*session).didReceiveIMUValues(0.5f, 0.5f, 0.5f, 0.5f, 1, 2, 3);
  strapEvents(*session).didDisconnectPeripheral();
  EXPECT_EQ((std::vector<float>{q0, q1, q2, q3}), (std::vector<float>{1, 0, 0, 0}));
  EXPECT_FALSE(Access::hasIMU(*session));
}

}  // namespace
