// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// What happens to a strap and when: exercises, walks, electrodes off, charger in, link lost.
///
///   TrainingPlan plan;
///   plan.exercises = {{Exercise::pushUp, 3s, 5}, {Exercise::jump, 30s, 2}};
///   plan.electrodesOff = {{20s, 4s}};
///   Strap strap({.plan = plan});
///
/// A plan is data. The strap acts on all of it except the link losses, on which the carrier of its
/// frames acts (see nextLinkLoss). All times are times of the strap; with a `cycle` the whole plan
/// repeats with that period without end. Free of state, safe from any thread.

#include <zephly/motion/exercise.h>
#include <zephly/platform/export.h>
#include <zephly/protocol/strap_time.h>

#include <optional>
#include <string>
#include <vector>

namespace Zephly::simulator {

/// How long a person takes for one set. Getting ready begins and getting up ends standing still.
struct ExerciseTimes {
  StrapTime gettingReady;  ///< before the first repetition: down to the floor, for a jump a breath
  StrapTime repetition;    ///< each one, its pause included
  StrapTime gettingUp;     ///< after the last repetition
};

ZEPHLY_EXPORT ExerciseTimes exerciseTimes(Exercise exercise);

/// `count` repetitions without a break; `start` is when the person begins to get ready.
struct ZEPHLY_EXPORT ExerciseSet {
  Exercise kind;
  StrapTime start;
  int count;  ///< 1 or more

  /// From `start` until the person stands still again.
  StrapTime duration() const;
  StrapTime end() const { return start + duration(); }
  /// When repetition `index` (0 for the first) begins; that of `count` is when the last one ends.
  StrapTime repetitionStart(int index) const;
};

/// From `start` on, without its end.
struct Interval {
  StrapTime start;
  StrapTime duration;

  StrapTime end() const { return start + duration; }
  bool contains(StrapTime time) const { return start <= time && time < end(); }
};

/// The link breaks at `time` and the strap cannot be reached for `absence`. Without a reason the
/// disconnection is reported without an error.
struct LinkLoss {
  StrapTime time;
  std::optional<std::string> reason;
  StrapTime absence;
};

/// What happens when. Empty: the person is standing at rest.
struct ZEPHLY_EXPORT TrainingPlan {
  std::vector<ExerciseSet> exercises;   ///< in order of time, not overlapping
  std::vector<Interval> walks;          ///< calm walking; elsewhere the person stands
  std::vector<Interval> electrodesOff;  ///< the electrodes are off the skin
  std::vector<Interval> charging;       ///< the charger is plugged in
  std::vector<LinkLoss> linkLosses;     ///< in order of time
  std::optional<StrapTime> cycle;       ///< period of repetition; without one, it happens once

  /// Everything within 30 s, repeated without end: jumps, push-ups, sit-ups, a walk, electrodes off
  /// and on, charger in and out, and one lost link while the person stands still.
  static TrainingPlan standard();
  /// Standing at rest with everything in order.
  static TrainingPlan quiet();

  /// Throws std::invalid_argument that says what is wrong: negative times, a count below 1,
  /// exercises and walks that overlap or are out of order, a cycle shorter than what it holds.
  void check() const;

  /// The set, with its start in this very cycle, that is going on at `time`.
  std::optional<ExerciseSet> exerciseAt(StrapTime time) const;
  std::optional<Interval> walkAt(StrapTime time) const;
  bool electrodesOn(StrapTime time) const;
  bool chargerIn(StrapTime time) const;
  /// Repetitions finished until `time`, from the beginning of the strap's time.
  Repetitions repetitionsDone(StrapTime time) const;
  /// The first link loss later than `after`, with its time in its own cycle.
  std::optional<LinkLoss> nextLinkLoss(StrapTime after) const;
  /// How hard the heart has to work, 0 (rest) up to 1: follows the exercises with a time constant
  /// of 20 s.
  double exertion(StrapTime time) const;
};

}  // namespace Zephly::simulator
