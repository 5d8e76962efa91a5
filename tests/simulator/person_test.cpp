// SPDX-License-Identifier: MIT
#include <simulator/person.h>

#include <simulator/random.h>
#include <simulator/rates.h>
#include <tests/simulator/literal_decoding.h>
#include <zephly/dsp/signal_processor.h>
#include <zephly/motion/exercise.h>
#include <zephly/protocol/strap_time.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <iostream>
#include <memory>
#include <streambuf>
#include <vector>

namespace Zephly {

// Used by gtest to print counts.
static void PrintTo(const Repetitions& repetitions, std::ostream* out) {
  *out << repetitions.pushUps << " push-ups, " << repetitions.sitUps << " sit-ups, "
       << repetitions.jumps << " jumps";
}

namespace simulator {

namespace {

using namespace std::chrono_literals;

// Discards the detector's trace lines during its lifetime.
class Silence : private std::streambuf {
 public:
  Silence() : before_(std::cout.rdbuf(this)) {}
  ~Silence() override { std::cout.rdbuf(before_); }
  Silence(const Silence&) = delete;
  Silence& operator=(const Silence&) = delete;

 private:
  int_type overflow(int_type character) override { return traits_type::not_eof(character); }
  std::streamsize xsputn(const char* /*text*/, std::streamsize count) override { return count; }

  std::streambuf* before_;
};

// The kit's detector, fed with frames.
class Counter {
 public:
  Counter() {
    engine_->setPushUpCallback([](void* counts) { ++static_cast<Repetitions*>(counts)->pushUps; },
                               &counted_);
    engine_->setSitUpCallback([](void* counts) { ++static_cast<Repetitions*>(counts)->sitUps; },
                              &counted_);
    engine_->setJumpCallback([](void* counts) { ++static_cast<Repetitions*>(counts)->jumps; },
                             &counted_);
  }
  Counter(const Counter&) = delete;
  Counter& operator=(const Counter&) = delete;

  void receive(const MotionReading& reading) {
    const auto [w, x, y, z, ax, ay, az] = literal::motion(encodeMotion(reading));
    engine_->imu(w, x, y, z, ax, ay, az);
  }
  const Repetitions& counted() const { return counted_; }

 private:
  std::unique_ptr<SignalProcessor> engine_ = std::make_unique<SignalProcessor>();
  Repetitions counted_;
};

// Sets and walks in any order, with pauses from 0 to 4 s.
TrainingPlan randomPlan(Random& random) {
  TrainingPlan plan;
  StrapTime time(static_cast<std::int64_t>(random.below(3'000'000'000)));
  const std::uint64_t parts = 3 + random.below(8);
  for (std::uint64_t i = 0; i < parts; ++i) {
    const std::uint64_t kind = random.below(4);
    if (kind == 3) {
      plan.walks.push_back({time, StrapTime(static_cast<std::int64_t>(
                                      1'500'000'000 + random.below(6'000'000'000)))});
      time = plan.walks.back().end();
    } else {
      plan.exercises.push_back(
          {allExercises.at(kind), time, static_cast<int>(1 + random.below(6))});
      time = plan.exercises.back().end();
    }
    if (random.below(2) == 0)
      time += StrapTime(static_cast<std::int64_t>(random.below(4'000'000'000)));
  }
  plan.check();
  return plan;
}

StrapTime endOf(const TrainingPlan& plan) {
  StrapTime end = 0s;
  if (!plan.exercises.empty()) end = plan.exercises.back().end();
  if (!plan.walks.empty()) end = std::max(end, plan.walks.back().end());
  return end;
}

// Runs the plan until `end`, and compares the counts whenever no set is in progress.
void expectExactCounts(const TrainingPlan& plan, std::uint64_t seed, StrapTime end,
                       Counter& counter) {
  Person person(plan, seed);
  for (std::int64_t i = 0; sampleTime(i, motionRate) < end; ++i) {
    const StrapTime now = sampleTime(i, motionRate);
    counter.receive(person.next());
    if (plan.exerciseAt(now)) continue;
    ASSERT_EQ(counter.counted(), plan.repetitionsDone(now))
        << "seed " << seed << " at " << std::chrono::duration<double>(now).count() << " s";
  }
}

TEST(PersonTest, EveryRepetitionIsCountedOnceInTwoHundredRandomTrainings) {
  const Silence silence;
  Random random(20);
  Repetitions done;
  Repetitions counted;
  for (std::uint64_t seed = 0; seed < 200; ++seed) {
    const TrainingPlan plan = randomPlan(random);
    Counter counter;
    expectExactCounts(plan, seed, endOf(plan) + 10s, counter);
    if (HasFatalFailure()) return;
    const Repetitions all = plan.repetitionsDone(endOf(plan));
    for (const Exercise exercise : allExercises) {
      done.of(exercise) += all.of(exercise);
      counted.of(exercise) += counter.counted().of(exercise);
    }
  }
  EXPECT_EQ(counted, done);
  // There must be enough repetitions of each kind.
  for (const Exercise exercise : allExercises) {
    EXPECT_GT(done.of(exercise), 500) << exerciseName(exercise);
    RecordProperty(std::string(exerciseName(exercise)), done.of(exercise));
  }
}

TEST(PersonTest, EveryRepetitionIsCountedWhenItEnds) {
  const Silence silence;
  for (const Exercise exercise : allExercises) {
    TrainingPlan plan;
    plan.exercises = {{exercise, 2s, 20}};
    Person person(plan, 5);
    Counter counter;
    int repetition = 0;
    for (std::int64_t i = 0; repetition <= 20; ++i) {
      // The sensor's filter delays its output by one reading.
      if (sampleTime(i, motionRate) > plan.exercises[0].repetitionStart(repetition) + 40ms) {
        ASSERT_EQ(counter.counted().of(exercise), repetition) << exerciseName(exercise);
        ++repetition;
      }
      counter.receive(person.next());
    }
  }
}

TEST(PersonTest, TheStandardPlanIsCountedForTwoHours) {
  const Silence silence;
  Counter counter;
  expectExactCounts(TrainingPlan::standard(), 1, 2h, counter);
  EXPECT_EQ(counter.counted(), (Repetitions{480, 480, 480}));
}

TEST(PersonTest, RestAndWalkingAreNotCounted) {
  const Silence silence;
  TrainingPlan plan;
  plan.walks = {{10s, 20min}};
  for (std::uint64_t seed = 0; seed < 5; ++seed) {
    Counter counter;
    expectExactCounts(plan, seed, 25min, counter);
    EXPECT_EQ(counter.counted(), Repetitions{});
  }
}

TEST(PersonTest, ReadingsLostWhileStandingDoNotChangeTheCounts) {
  const Silence silence;
  const TrainingPlan plan = TrainingPlan::standard();
  Random random(30);
  for (std::uint64_t seed = 0; seed < 10; ++seed) {
    Person person(plan, seed);
    Counter counter;
    StrapTime back = 0s;
    std::optional<LinkLoss> loss = plan.nextLinkLoss(0s);
    std::int64_t i = 0;
    for (; sampleTime(i, motionRate) < 10min; ++i) {
      const StrapTime now = sampleTime(i, motionRate);
      if (now >= loss->time) {
        // Scanning, connecting and subscribing take time, too.
        back = loss->time + loss->absence +
               StrapTime(static_cast<std::int64_t>(random.below(3'000'000'000)));
        loss = plan.nextLinkLoss(now);
      }
      const MotionReading reading = person.next();
      if (now >= back) counter.receive(reading);
    }
    EXPECT_EQ(counter.counted(), plan.repetitionsDone(10min)) << "seed " << seed;
  }
}

TEST(PersonTest, AListenerThatJoinsDuringATrainingCountsTheRest) {
  const Silence silence;
  const TrainingPlan plan = TrainingPlan::standard();
  for (const StrapTime start : {1s, 30s, 58s, 88s}) {
    Person person(plan, 3);
    Counter counter;
    for (std::int64_t i = 0; sampleTime(i, motionRate) < start + 60s; ++i) {
      const MotionReading reading = person.next();
      if (sampleTime(i, motionRate) >= start) counter.receive(reading);
    }
    const Repetitions before = plan.repetitionsDone(start);
    Repetitions expected = plan.repetitionsDone(start + 60s);
    for (const Exercise exercise : allExercises) expected.of(exercise) -= before.of(exercise);
    EXPECT_EQ(counter.counted(), expected);
  }
}

// The sensor reads the path, differentiated twice, plus gravity. The test reverses both.
TEST(PersonTest, ReadingsIntegrateToThePath) {
  TrainingPlan plan;
  plan.exercises = {{Exercise::jump, 1s, 2}, {Exercise::pushUp, 6s, 2}, {Exercise::sitUp, 15s, 2}};
  Person person(plan, 8);
  const double interval = 1.0 / motionRate;
  double speed = 0;
  double height = 0;
  for (std::int64_t i = 0; sampleTime(i, motionRate) < 25s; ++i) {
    const MotionReading reading = person.next();
    const auto& q = reading.orientation;
    ASSERT_NEAR(q[0] * q[0] + q[1] * q[1] + q[2] * q[2] + q[3] * q[3], 1, 1e-12);
    // The vertical part of the acceleration, from the world's z axis in the sensor's frame.
    const std::array<double, 3> up = {2 * (q[1] * q[3] - q[0] * q[2]),
                                      2 * (q[0] * q[1] + q[2] * q[3]),
                                      q[0] * q[0] - q[1] * q[1] - q[2] * q[2] + q[3] * q[3]};
    double felt = 0;
    for (std::size_t k = 0; k < 3; ++k) felt += up.at(k) * reading.acceleration.at(k);
    speed += (felt - 1) * 9.81 * interval;
    height += speed * interval;
    // The noise of the sensor adds up to decimetres in half a minute.
    ASSERT_NEAR(height, person.poseAt(sampleTime(i, motionRate)).height,
                0.02 + 0.0006 * static_cast<double>(i))
        << "reading " << i;
  }
}

TEST(PersonTest, TheUpVectorShowsTheBodyPosition) {
  TrainingPlan plan;
  plan.exercises = {{Exercise::pushUp, 2s, 2}, {Exercise::sitUp, 20s, 2}};
  const Person person(plan, 1);
  EXPECT_NEAR(person.poseAt(1s).lean, 0, 0.02);
  EXPECT_GT(std::sin(person.poseAt(plan.exercises[0].repetitionStart(0)).lean), 0.9);
  EXPECT_NEAR(person.poseAt(plan.exercises[1].repetitionStart(0)).lean, 0, 0.02);
  EXPECT_LT(std::sin(person.poseAt(plan.exercises[1].repetitionStart(0) + 1100ms).lean), -0.8);
  EXPECT_NEAR(person.poseAt(30s).height, 0, 1e-9);
}

TEST(PersonTest, AtRestItReadsOneG) {
  Person person(TrainingPlan::quiet(), 2);
  for (int i = 0; i < 1000; ++i) {
    const auto felt = person.next().acceleration;
    EXPECT_NEAR(std::hypot(felt[0], felt[1], felt[2]), 1, 0.02);
    EXPECT_GT(felt[0], 0.98);  // towards the head
  }
}

TEST(PersonTest, AccelerationIsZeroInFreeFall) {
  TrainingPlan plan;
  plan.exercises = {{Exercise::jump, 1s, 5}};
  Person person(plan, 2);
  double least = 1;
  double most = 0;
  for (int i = 0; i < 30 * 10; ++i) {
    const double felt = person.next().acceleration[0];
    least = std::min(least, felt);
    most = std::max(most, felt);
  }
  EXPECT_NEAR(least, 0, 0.02);
  EXPECT_GT(most, 1.5);
}

// Other movements, as documented in the header: the detector depends on heights only.
TEST(PersonTest, SteppingUpAndDownCountsAsAJump) {
  const Silence silence;
  Counter counter;
  const auto height = [](int reading) {
    const double up = std::clamp((reading - 30) / 15.0, 0.0, 1.0);
    const double down = std::clamp((reading - 90) / 15.0, 0.0, 1.0);
    return 0.4 * (up - down);  // metres
  };
  for (int i = 2; i < 150; ++i) {
    const double acceleration =
        (height(i) - 2 * height(i - 1) + height(i - 2)) * motionRate * motionRate / 9.81;
    counter.receive({{std::sqrt(0.5), 0, -std::sqrt(0.5), 0}, {1 + acceleration, 0, 0}});
  }
  EXPECT_EQ(counter.counted(), (Repetitions{0, 0, 1}));
}

}  // namespace
}  // namespace simulator
}  // namespace Zephly
