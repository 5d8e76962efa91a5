// SPDX-License-Identifier: MIT
#include <simulator/training_plan.h>
#include <zephly/motion/exercise.h>
#include <zephly/protocol/strap_time.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <stdexcept>
#include <string>

namespace Zephly::simulator {
namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;

std::string complaintAbout(const TrainingPlan& plan) {
  try {
    plan.check();
  } catch (const std::invalid_argument& error) {
    return error.what();
  }
  return "none";
}

TEST(TrainingPlanTest, ExercisesHaveNames) {
  EXPECT_EQ(exerciseName(Exercise::pushUp), "push-up");
  EXPECT_EQ(exerciseName(Exercise::sitUp), "sit-up");
  EXPECT_EQ(exerciseName(Exercise::jump), "jump");
}

TEST(TrainingPlanTest, ASetLastsForItsPhases) {
  for (const Exercise exercise : allExercises) {
    const ExerciseTimes times = exerciseTimes(exercise);
    const ExerciseSet set{exercise, 10s, 3};
    EXPECT_EQ(set.duration(), times.gettingReady + 3 * times.repetition + times.gettingUp);
    EXPECT_EQ(set.repetitionStart(0), 10s + times.gettingReady);
    EXPECT_EQ(set.repetitionStart(3) + times.gettingUp, set.end());
  }
}

TEST(TrainingPlanTest, RepetitionsAreDoneWhenTheyEnd) {
  TrainingPlan plan;
  plan.exercises = {{Exercise::pushUp, 1s, 2}, {Exercise::jump, 20s, 1}};
  EXPECT_EQ(plan.repetitionsDone(0s), Repetitions{});
  const StrapTime first = plan.exercises[0].repetitionStart(1);
  EXPECT_EQ(plan.repetitionsDone(first - 1ns), Repetitions{});
  EXPECT_EQ(plan.repetitionsDone(first), (Repetitions{1, 0, 0}));
  EXPECT_EQ(plan.repetitionsDone(19s), (Repetitions{2, 0, 0}));
  EXPECT_EQ(plan.repetitionsDone(24h), (Repetitions{2, 0, 1}));
}

TEST(TrainingPlanTest, ACycleRepeatsEverything) {
  TrainingPlan plan;
  plan.exercises = {{Exercise::jump, 2s, 1}};
  plan.walks = {{6s, 2s}};
  plan.electrodesOff = {{1s, 1s}};
  plan.charging = {{3s, 1s}};
  plan.linkLosses = {{8s, "gone", 1s}};
  plan.cycle = 10s;
  plan.check();
  for (const StrapTime beginning : {0s, 10s, 990s}) {
    const auto cycles = static_cast<int>(beginning / 10s);
    EXPECT_EQ(plan.repetitionsDone(beginning), (Repetitions{0, 0, cycles}));
    EXPECT_EQ(plan.repetitionsDone(beginning + 9s), (Repetitions{0, 0, cycles + 1}));
    EXPECT_FALSE(plan.exerciseAt(beginning + 2s - 1ns));
    ASSERT_TRUE(plan.exerciseAt(beginning + 2s));
    EXPECT_EQ(plan.exerciseAt(beginning + 2s)->start, beginning + 2s);
    EXPECT_FALSE(plan.exerciseAt(beginning + 2s + plan.exercises[0].duration()));
    EXPECT_FALSE(plan.walkAt(beginning + 5s));
    EXPECT_EQ(plan.walkAt(beginning + 7s)->start, beginning + 6s);
    EXPECT_TRUE(plan.electrodesOn(beginning + 1s - 1ns));
    EXPECT_FALSE(plan.electrodesOn(beginning + 1s));
    EXPECT_FALSE(plan.electrodesOn(beginning + 2s - 1ns));
    EXPECT_TRUE(plan.electrodesOn(beginning + 2s));
    EXPECT_FALSE(plan.chargerIn(beginning + 2s));
    EXPECT_TRUE(plan.chargerIn(beginning + 3s));
  }
}

TEST(TrainingPlanTest, FindsTheNextLinkLossAfterATime) {
  TrainingPlan plan;
  plan.linkLosses = {{2s, "first", 1s}, {5s, std::nullopt, 500ms}};
  EXPECT_EQ(plan.nextLinkLoss(-1ns)->time, 2s);
  EXPECT_EQ(plan.nextLinkLoss(0s)->reason, "first");
  EXPECT_EQ(plan.nextLinkLoss(2s)->time, 5s);
  EXPECT_EQ(plan.nextLinkLoss(2s)->reason, std::nullopt);
  EXPECT_EQ(plan.nextLinkLoss(2s)->absence, 500ms);
  EXPECT_FALSE(plan.nextLinkLoss(5s));
  plan.cycle = 10s;
  EXPECT_EQ(plan.nextLinkLoss(5s)->time, 12s);
  EXPECT_EQ(plan.nextLinkLoss(12s)->time, 15s);
  EXPECT_EQ(plan.nextLinkLoss(999s)->time, 1002s);
  EXPECT_FALSE(TrainingPlan::quiet().nextLinkLoss(0s));
}

TEST(TrainingPlanTest, ExertionRisesDuringAnExerciseAndFallsAfterIt) {
  TrainingPlan plan;
  plan.exercises = {{Exercise::sitUp, 10s, 10}};
  const StrapTime end = plan.exercises[0].end();
  EXPECT_EQ(plan.exertion(0s), 0);
  EXPECT_EQ(plan.exertion(10s), 0);
  EXPECT_NEAR(plan.exertion(30s - 4ms), 1 - std::exp(-1.0), 0.001);
  EXPECT_GT(plan.exertion(end), plan.exertion(end - 1s));
  EXPECT_NEAR(plan.exertion(end + 20s), plan.exertion(end) * std::exp(-1.0), 1e-9);
  EXPECT_LT(plan.exertion(end + 5min), 1e-5);
}

TEST(TrainingPlanTest, ExertionOfACyclePlanStaysWithinItsRange) {
  const TrainingPlan plan = TrainingPlan::standard();
  for (StrapTime time = 0s; time < 20min; time += 1s) {
    EXPECT_GE(plan.exertion(time), 0);
    EXPECT_LE(plan.exertion(time), 1);
  }
  // Settled: a cycle equals the previous one.
  EXPECT_NEAR(plan.exertion(10min), plan.exertion(10min + 30s), 1e-3);
}

TEST(TrainingPlanTest, TheStandardPlanShowsEverythingInThirtySeconds) {
  const TrainingPlan plan = TrainingPlan::standard();
  EXPECT_EQ(complaintAbout(plan), "none");
  ASSERT_EQ(plan.cycle, StrapTime(30s));
  const Repetitions done = plan.repetitionsDone(30s);
  for (const Exercise exercise : allExercises) EXPECT_GE(done.of(exercise), 2);
  EXPECT_EQ(plan.electrodesOff.size(), 1U);
  EXPECT_EQ(plan.charging.size(), 1U);
  EXPECT_EQ(plan.walks.size(), 1U);
  EXPECT_EQ(plan.linkLosses.size(), 1U);
}

TEST(TrainingPlanTest, TheStandardLinkLossIsOutsideAllExercises) {
  const TrainingPlan plan = TrainingPlan::standard();
  const LinkLoss loss = plan.linkLosses.front();
  // At rest during the reconnection, which takes at most 3 s.
  for (StrapTime time = loss.time; time < loss.time + loss.absence + 3s; time += 10ms) {
    EXPECT_FALSE(plan.exerciseAt(time)) << time.count();
    EXPECT_FALSE(plan.walkAt(time)) << time.count();
  }
}

TEST(TrainingPlanTest, TheQuietPlanIsEmpty) {
  const TrainingPlan plan = TrainingPlan::quiet();
  EXPECT_EQ(complaintAbout(plan), "none");
  EXPECT_EQ(plan.repetitionsDone(1h), Repetitions{});
  EXPECT_TRUE(plan.electrodesOn(1h));
  EXPECT_FALSE(plan.chargerIn(1h));
  EXPECT_EQ(plan.exertion(1h), 0);
}

TEST(TrainingPlanTest, ImpossiblePlansAreRefused) {
  const auto complaint = [](const std::function<void(TrainingPlan&)>& change) {
    TrainingPlan plan = TrainingPlan::standard();
    change(plan);
    return complaintAbout(plan);
  };
  EXPECT_THAT(complaint([](auto& plan) { plan.exercises[0].count = 0; }), HasSubstr("repetitions"));
  EXPECT_THAT(complaint([](auto& plan) { plan.exercises[0].count = 2'000'000'000; }),
              HasSubstr("repetitions"));
  EXPECT_THAT(complaint([](auto& plan) { plan.exercises[0].start = -1ns; }),
              HasSubstr("must begin"));
  EXPECT_THAT(complaint([](auto& plan) { plan.exercises[0].start = StrapTime::max(); }),
              HasSubstr("must begin"));
  EXPECT_THAT(complaint([](auto& plan) { plan.exercises[0].count = 4; }), HasSubstr("overlap"));
  EXPECT_THAT(complaint([](auto& plan) { std::swap(plan.exercises[0], plan.exercises[1]); }),
              HasSubstr("in order"));
  EXPECT_THAT(complaint([](auto& plan) { plan.walks[0].start = 3s; }), HasSubstr("overlap"));
  EXPECT_THAT(complaint([](auto& plan) { plan.walks[0].duration = -1s; }), HasSubstr("last"));
  EXPECT_THAT(complaint([](auto& plan) { plan.cycle = 25s; }), HasSubstr("within the cycle"));
  EXPECT_THAT(complaint([](auto& plan) { plan.cycle = 0s; }), HasSubstr("1 s"));
  EXPECT_THAT(complaint([](auto& plan) { plan.electrodesOff[0].duration = 1min; }),
              HasSubstr("without electrodes"));
  EXPECT_THAT(complaint([](auto& plan) { plan.charging[0].start = 1min; }), HasSubstr("charger"));
  EXPECT_THAT(complaint([](auto& plan) { plan.linkLosses[0].absence = StrapTime::max(); }),
              HasSubstr("absence"));
  EXPECT_THAT(complaint([](auto& plan) {
                plan.linkLosses = {{5s, {}, 0s}, {4s, {}, 0s}};
              }),
              HasSubstr("link losses must be in order"));
}

}  // namespace
}  // namespace Zephly::simulator
