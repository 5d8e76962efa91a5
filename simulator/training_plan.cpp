// SPDX-License-Identifier: MIT
#include <simulator/training_plan.h>

#include <zephly/platform/fatal_error.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <stdexcept>

namespace Zephly::simulator {

using namespace std::chrono_literals;

namespace {

constexpr StrapTime longestTime = std::chrono::hours(24 * 1000);
constexpr int mostRepetitions = 1'000'000;
constexpr double exertionTimeConstant = 20;  // seconds

void demand(bool condition, const std::string& otherwise) {
  if (!condition) throw std::invalid_argument("training plan: " + otherwise);
}

void checkInterval(StrapTime start, StrapTime end, const TrainingPlan& plan,
                   const std::string& what) {
  demand(start >= StrapTime::zero() && start <= longestTime,
         what + " must begin within 0 to 1000 days");
  demand(end >= start && end <= longestTime, what + " must end within 1000 days");
  demand(!plan.cycle || end <= *plan.cycle, what + " must end within the cycle");
}

void checkIntervals(const std::vector<Interval>& intervals, const TrainingPlan& plan,
                    const std::string& what) {
  for (const Interval& interval : intervals) {
    demand(interval.duration >= StrapTime::zero() && interval.duration <= longestTime,
           what + " must last 0 to 1000 days");
    checkInterval(interval.start, interval.end(), plan, what);
  }
}

// Sets and walks move the same body.
void checkMovements(const TrainingPlan& plan) {
  std::vector<Interval> movements = plan.walks;
  StrapTime end = StrapTime::zero();
  for (const ExerciseSet& set : plan.exercises) {
    demand(set.start >= end, "exercises must be in order and not overlap");
    end = set.end();
    movements.push_back({set.start, set.duration()});
  }
  std::ranges::sort(movements, {}, &Interval::start);
  for (std::size_t i = 1; i < movements.size(); ++i)
    demand(movements[i].start >= movements[i - 1].end(),
           "walks must not overlap exercises or each other");
}

// Where `time` lies in its cycle, and when that cycle began.
struct CycleTime {
  StrapTime beginning;
  StrapTime within;
};

CycleTime inCycle(const TrainingPlan& plan, StrapTime time) {
  if (!plan.cycle || time < StrapTime::zero()) return {StrapTime::zero(), time};
  const StrapTime beginning = *plan.cycle * (time / *plan.cycle);
  return {beginning, time - beginning};
}

bool anyContains(const std::vector<Interval>& intervals, StrapTime time) {
  return std::ranges::any_of(intervals,
                             [time](const Interval& interval) { return interval.contains(time); });
}

Repetitions doneWithin(const TrainingPlan& plan, StrapTime time) {
  Repetitions done;
  for (const ExerciseSet& set : plan.exercises) {
    const StrapTime sinceFirst = time - set.repetitionStart(0);
    if (sinceFirst < StrapTime::zero()) break;
    const auto finished = sinceFirst / exerciseTimes(set.kind).repetition;
    done.of(set.kind) += static_cast<int>(std::min<std::int64_t>(finished, set.count));
  }
  return done;
}

// A response to effort from `start` to `end` that rises and falls exponentially.
double effortLeft(StrapTime start, StrapTime end, StrapTime time) {
  if (time <= start) return 0;
  const double risen = std::exp(-seconds(time - std::min(end, time)) / exertionTimeConstant);
  return risen - std::exp(-seconds(time - start) / exertionTimeConstant);
}

}  // namespace

ExerciseTimes exerciseTimes(Exercise exercise) {
  switch (exercise) {
    case Exercise::pushUp:
      return {2400ms, 1800ms, 2500ms};
    case Exercise::sitUp:
      return {2200ms, 2200ms, 2400ms};
    case Exercise::jump:
      return {500ms, 1700ms, 600ms};
  }
  fatalError("a person knows three exercises; this is none of them");
}

StrapTime ExerciseSet::duration() const {
  const ExerciseTimes times = exerciseTimes(kind);
  return times.gettingReady + count * times.repetition + times.gettingUp;
}

StrapTime ExerciseSet::repetitionStart(int index) const {
  const ExerciseTimes times = exerciseTimes(kind);
  return start + times.gettingReady + index * times.repetition;
}

TrainingPlan TrainingPlan::standard() {
  TrainingPlan plan;
  plan.exercises = {
      {Exercise::jump, 2000ms, 2}, {Exercise::pushUp, 6600ms, 2}, {Exercise::sitUp, 15200ms, 2}};
  plan.walks = {{24300ms, 2s}};
  plan.electrodesOff = {{10s, 2500ms}};
  plan.charging = {{18s, 4s}};
  // The link is back, with some seconds to spare, before the jumps of the next cycle.
  plan.linkLosses = {{26500ms, "The connection has timed out unexpectedly.", 1500ms}};
  plan.cycle = 30s;
  return plan;
}

TrainingPlan TrainingPlan::quiet() { return {}; }

void TrainingPlan::check() const {
  demand(!cycle || (*cycle >= 1s && *cycle <= longestTime), "a cycle must last 1 s to 1000 days");
  for (const ExerciseSet& set : exercises) {
    demand(set.count >= 1 && set.count <= mostRepetitions,
           "an exercise has 1 to 1000000 repetitions");
    demand(set.start >= StrapTime::zero() && set.start <= longestTime,
           "an exercise must begin within 0 to 1000 days");
    checkInterval(set.start, set.end(), *this, "an exercise");
  }
  checkIntervals(walks, *this, "a walk");
  checkIntervals(electrodesOff, *this, "a time without electrodes");
  checkIntervals(charging, *this, "a time at the charger");
  StrapTime last = StrapTime::zero();
  for (const LinkLoss& loss : linkLosses) {
    demand(loss.time >= last, "link losses must be in order");
    demand(loss.absence >= StrapTime::zero() && loss.absence <= longestTime,
           "an absence must last 0 to 1000 days");
    checkInterval(loss.time, loss.time + loss.absence, *this, "a link loss");
    last = loss.time;
  }
  checkMovements(*this);
}

std::optional<ExerciseSet> TrainingPlan::exerciseAt(StrapTime time) const {
  const auto [beginning, within] = inCycle(*this, time);
  for (ExerciseSet set : exercises) {
    if (set.start > within) break;
    if (within >= set.end()) continue;
    set.start += beginning;
    return set;
  }
  return std::nullopt;
}

std::optional<Interval> TrainingPlan::walkAt(StrapTime time) const {
  const auto [beginning, within] = inCycle(*this, time);
  for (const Interval& walk : walks)
    if (walk.contains(within)) return Interval{beginning + walk.start, walk.duration};
  return std::nullopt;
}

bool TrainingPlan::electrodesOn(StrapTime time) const {
  return !anyContains(electrodesOff, inCycle(*this, time).within);
}

bool TrainingPlan::chargerIn(StrapTime time) const {
  return anyContains(charging, inCycle(*this, time).within);
}

Repetitions TrainingPlan::repetitionsDone(StrapTime time) const {
  const auto [beginning, within] = inCycle(*this, time);
  Repetitions done = doneWithin(*this, within);
  if (beginning == StrapTime::zero()) return done;
  const Repetitions each = doneWithin(*this, *cycle);
  const auto cycles = static_cast<int>(beginning / *cycle);
  for (const Exercise exercise : allExercises) done.of(exercise) += cycles * each.of(exercise);
  return done;
}

std::optional<LinkLoss> TrainingPlan::nextLinkLoss(StrapTime after) const {
  if (linkLosses.empty()) return std::nullopt;
  const auto [beginning, within] = inCycle(*this, after);
  for (LinkLoss loss : linkLosses) {
    if (loss.time <= within) continue;
    loss.time += beginning;
    return loss;
  }
  if (!cycle) return std::nullopt;
  LinkLoss first = linkLosses.front();
  first.time += beginning + *cycle;
  return first;
}

double TrainingPlan::exertion(StrapTime time) const {
  // What is older than this has faded to nothing.
  const StrapTime oldest = time - std::chrono::seconds(10) * static_cast<int>(exertionTimeConstant);
  StrapTime beginning = inCycle(*this, time).beginning;
  double sum = 0;
  while (true) {
    for (const ExerciseSet& set : exercises)
      sum += effortLeft(beginning + set.start, beginning + set.end(), time);
    if (!cycle || beginning == StrapTime::zero() || beginning < oldest) return sum;
    beginning -= *cycle;
  }
}

}  // namespace Zephly::simulator
