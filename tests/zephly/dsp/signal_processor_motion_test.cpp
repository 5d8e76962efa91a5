// SPDX-License-Identifier: MIT
#include <zephly/dsp/signal_processor.h>

#include <tests/support/bits.h>
#include <tests/support/captured_output.h>
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
#include <string>
#include <vector>

namespace {

using Engine = Zephly::SignalProcessor;

// Motion through the engine; repetitions are recorded as letters.
class SignalProcessorMotionTest : public testing::Test {
 public:
  SignalProcessorMotionTest() {
    engine.setJumpCallback(
        [](void* self) { static_cast<SignalProcessorMotionTest*>(self)->events += 'J'; }, this);
    engine.setSitUpCallback(
        [](void* self) { static_cast<SignalProcessorMotionTest*>(self)->events += 'S'; }, this);
    engine.setPushUpCallback(
        [](void* self) { static_cast<SignalProcessorMotionTest*>(self)->events += 'P'; }, this);
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

TEST_F(SignalProcessorMotionTest, ALevelDeviceAtRestHasNoAcceleration) {
  engine.imu(1, 0, 0, 0, 0, 0, 1);
  EXPECT_EQ(lines(), "0, 0\n");
  EXPECT_EQ(events, "");
}

TEST_F(SignalProcessorMotionTest, SevenValuesDoNotAdvanceTheFusion) {
  q0 = 0.1F;
  q1 = 0.2F;
  q2 = 0.3F;
  q3 = 0.4F;
  engine.imu(1, 0, 0, 0, 0, 0, 2);
  EXPECT_EQ(q0, 0.1F);
  EXPECT_EQ(q1, 0.2F);
  EXPECT_EQ(q2, 0.3F);
  EXPECT_EQ(q3, 0.4F);
  expectRule({0.0F, 0.0F, 0.0F, 1.0F},
             {0.0F, 0.0F, 2.0F});  // the detector did not count those samples
}

TEST_F(SignalProcessorMotionTest, SevenValuesStartWithTheScalar) {
  engine.imu(0.5F, 0.6F, 0.1F, -0.2F, 0.3F, 0.7F, -0.4F);
  expectRule({0.6F, 0.1F, -0.2F, 0.5F}, {0.3F, 0.7F, -0.4F});
}

TEST_F(SignalProcessorMotionTest, SevenValuesFollowTheRule) {
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

TEST_F(SignalProcessorMotionTest, NineValuesUseTheUpdatedOrientation) {
  // A rate so large that the orientation leaves the upright band with this one sample.
  engine.imu(60, 0, 0, 0.2F, 0.1F, 0.9F, 0, 0, 0);
  literal::Fusion fusion;
  fusion.update({60.0F, 0.0F, 0.0F}, {0.2F, 0.1F, 0.9F});
  const literal::Rotation after{fusion.q[1], fusion.q[2], fusion.q[3], fusion.q[0]};
  ASSERT_EQ(literal::Detector::band(after), 1);
  expectRule(after, {0.2F, 0.1F, 0.9F});
}

TEST_F(SignalProcessorMotionTest, NineValuesAdvanceTheOrientationOfTheProcess) {
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

TEST_F(SignalProcessorMotionTest, NineValuesFollowTheRuleOverARecording) {
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

// The velocities of a movement depend on the sampling rate.
TEST_F(SignalProcessorMotionTest, TheRateIsThirty) {
  engine.imu(1, 0, 0, 0, 0, 0, 2);
  literal::Detector faster;
  const literal::Detection other =
      faster.process({0.0F, 0.0F, 0.0F, 1.0F}, {0.0F, 0.0F, 1.0F}, 60.0F);
  const std::string line = lines();
  EXPECT_NE(line, other.line);
  EXPECT_EQ(line, rule.process({0.0F, 0.0F, 0.0F, 1.0F}, {0.0F, 0.0F, 1.0F}, 30.0F).line);
}

TEST_F(SignalProcessorMotionTest, RepetitionsReachTheirOwnCallbacks) {
  repetitions::pushUp(sink());
  EXPECT_EQ(events, "P");
  events.clear();
  repetitions::sitUp(sink());
  EXPECT_EQ(events, "S");
}

TEST_F(SignalProcessorMotionTest, AJumpReachesItsCallback) {
  repetitions::jump(sink());
  EXPECT_EQ(events, "J");
}

TEST_F(SignalProcessorMotionTest, TheLatestContextAppliesToAllCallbacks) {
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

// Calls one setter before every sample of a movement. The movement must be detected as without
// these calls.
TEST_F(SignalProcessorMotionTest, SettingACallbackDuringAMovementResetsNothing) {
  using Setter = void (Engine::*)(void (*)(void*), void*);
  using Perform = void (*)(const repetitions::Sink&);
  constexpr Setter setters[] = {&Engine::setJumpCallback, &Engine::setSitUpCallback,
                                &Engine::setPushUpCallback};
  constexpr Perform movements[] = {repetitions::jump, repetitions::sitUp, repetitions::pushUp};
  const auto count = [](void* self) {
    static_cast<SignalProcessorMotionTest*>(self)->events += 'x';
  };
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

using SignalProcessorMotionDeathTest = SignalProcessorMotionTest;

TEST_F(SignalProcessorMotionDeathTest, ARepetitionWithoutItsCallbackIsFatal) {
  Engine bare;
  const repetitions::Sink bareSink = [&](float qw, float qx, float qy, float qz, float ax, float ay,
                                         float az) { bare.imu(qw, qx, qy, qz, ax, ay, az); };
  EXPECT_DEATH(repetitions::pushUp(bareSink), "pushUpCallback");
  EXPECT_DEATH(repetitions::sitUp(bareSink), "sitUpCallback");
  EXPECT_DEATH(repetitions::jump(bareSink), "jumpCallback");
}

TEST_F(SignalProcessorMotionDeathTest, ANullCallbackIsFatal) {
  engine.setPushUpCallback(nullptr, this);
  engine.setSitUpCallback(nullptr, this);
  engine.setJumpCallback(nullptr, this);
  EXPECT_DEATH(repetitions::pushUp(sink()), "pushUpCallback");
  EXPECT_DEATH(repetitions::sitUp(sink()), "sitUpCallback");
  EXPECT_DEATH(repetitions::jump(sink()), "jumpCallback");
}

}  // namespace
