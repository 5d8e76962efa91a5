// SPDX-License-Identifier: MIT
#include <simulator/person.h>

#include <simulator/rates.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <numbers>
#include <utility>

namespace Zephly::simulator {

namespace {

using std::numbers::pi;

constexpr double gravity = 9.81;              // m/s^2
constexpr double accelerometerNoise = 0.002;  // g, standard deviation of a reading
constexpr double degree = pi / 180;

// From 0 to 1 while `part` goes from 0 to 1, with speed and acceleration 0 at both ends.
double smoothStep(double part) {
  const double u = std::clamp(part, 0.0, 1.0);
  return u * u * u * (10 + u * (-15 + 6 * u));
}

// Down to the floor, in three movements: bow, sink along the trunk's axis, turn the trunk. Together
// they take no longer than exerciseTimes leaves for getting ready and for getting up.
struct WayDown {
  double drop;  // metres
  double lean;  // radians, at its end
};

constexpr double bow = 45 * degree;
constexpr double bowing = 0.6;  // seconds
constexpr double sinking = 1.0;
constexpr double turning = 0.6;
constexpr WayDown wayToPushUps{0.8, 80 * degree};
constexpr WayDown wayToSitUps{0.75, 0};

Pose onTheWayDown(const WayDown& way, double time) {
  const double sunk = way.drop * smoothStep((time - bowing) / sinking);
  Pose pose;
  pose.lean = bow * smoothStep(time / bowing) +
              (way.lean - bow) * smoothStep((time - bowing - sinking) / turning);
  pose.height = -sunk;
  pose.forward = -sunk * std::tan(bow);
  return pose;
}

// A repetition after `time` seconds; `vigour` is 1 for the average one.
double pushUpHeight(double time, double vigour) {
  constexpr double depth = 0.28;  // metres
  constexpr double move = 0.7;    // seconds, each way
  constexpr double hold = 0.05;
  return -depth * vigour * (smoothStep(time / move) - smoothStep((time - move - hold) / move));
}

Pose sitUpPose(double time, double vigour) {
  constexpr double farthest = 70 * degree;
  constexpr double pivot = 0.02;  // metres from the sensor
  constexpr double back = 1.0;    // seconds
  constexpr double hold = 0.2;
  constexpr double forth = 0.8;
  Pose pose;
  pose.lean =
      -farthest * vigour * (smoothStep(time / back) - smoothStep((time - back - hold) / forth));
  pose.height = -pivot * (1 - std::cos(pose.lean));
  pose.forward = pivot * std::sin(pose.lean);
  return pose;
}

// Take-off and landing push evenly for `push` seconds; the flight between is a parabola.
double jumpHeight(double time, double vigour) {
  constexpr double dip = 0.06;      // metres
  constexpr double bending = 0.45;  // seconds
  constexpr double push = 0.14;
  const double flight = 0.42 * vigour;
  const double thrust = gravity * flight / (2 * push);  // beyond the body's weight
  const double whole = 2 * push + flight;
  const double sinceThrust = time - bending;
  // The movement is symmetric about the top.
  const double fromNearEnd = whole / 2 - std::abs(sinceThrust - whole / 2);
  double height = -dip * (smoothStep(time / bending) - smoothStep((sinceThrust - whole) / bending));
  if (fromNearEnd <= 0) return height;
  if (fromNearEnd < push) return height + thrust * fromNearEnd * fromNearEnd / 2;
  const double aloft = fromNearEnd - push;
  return height + thrust * push * push / 2 + thrust * push * aloft - gravity * aloft * aloft / 2;
}

// How far a repetition goes, in terms of the average one.
double vigourOf(std::uint64_t seed, const ExerciseSet& set, std::int64_t repetition) {
  const auto which = static_cast<std::uint64_t>(set.start.count() + repetition);
  if (set.kind == Exercise::jump) return scrambledUniform(seed, which, 0.95, 1.1);
  return scrambledUniform(seed, which, 0.9, 1.1);
}

Pose floorPose(const ExerciseSet& set, double sinceStart) {
  const WayDown& way = set.kind == Exercise::pushUp ? wayToPushUps : wayToSitUps;
  const double untilStanding = seconds(set.duration()) - sinceStart;
  return onTheWayDown(way, std::min(sinceStart, untilStanding));
}

Pose exercisePose(const ExerciseSet& set, StrapTime time, std::uint64_t seed) {
  Pose pose;
  if (set.kind != Exercise::jump) pose = floorPose(set, seconds(time - set.start));
  const StrapTime sinceFirst = time - set.repetitionStart(0);
  const StrapTime each = exerciseTimes(set.kind).repetition;
  if (sinceFirst < StrapTime(0) || sinceFirst >= set.count * each) return pose;
  const double within = seconds(sinceFirst % each);
  const double vigour = vigourOf(seed, set, sinceFirst / each);
  switch (set.kind) {
    case Exercise::pushUp:
      pose.height += pushUpHeight(within, vigour);
      break;
    case Exercise::sitUp: {
      const Pose moved = sitUpPose(within, vigour);
      pose.lean += moved.lean;
      pose.height += moved.height;
      pose.forward += moved.forward;
      break;
    }
    case Exercise::jump:
      pose.height += jumpHeight(within, vigour);
      break;
  }
  return pose;
}

// 1.8 steps a second; the trunk swings and rolls with every second one.
Pose walkingPose(const Interval& walk, StrapTime time) {
  constexpr double steps = 1.8;     // per second
  constexpr double bounce = 0.025;  // metres
  constexpr double easing = 0.7;    // seconds to full stride, and to a halt
  const double since = seconds(time - walk.start);
  const double stride =
      smoothStep(since / easing) * smoothStep((seconds(walk.duration) - since) / easing);
  Pose pose;
  pose.lean = 0.03 * stride * std::sin(pi * steps * since);
  pose.roll = 0.05 * stride * std::sin(pi * steps * since);
  pose.height = -bounce / 2 * stride * (1 - std::cos(2 * pi * steps * since));
  return pose;
}

// The upright person's frame: x ahead, y to the left, z up.
Rotation bodyRotation(const Pose& pose) {
  const Rotation lean = Rotation::about({0, 1, 0}, pose.lean - pi / 2);
  return lean.then(Rotation::about({1, 0, 0}, pose.roll));
}

}  // namespace

Person::Person(TrainingPlan plan, std::uint64_t seed)
    : plan_(std::move(plan)), seed_(scramble(seed, 1)), noise_(seed, 2) {
  heading_ = noise_.uniform(-pi, pi);
  previous_ = beforePrevious_ = poseAt(StrapTime(0));
}

Pose Person::poseAt(StrapTime time) const {
  Pose pose;
  if (const auto set = plan_.exerciseAt(time)) {
    pose = exercisePose(*set, time, seed_);
  } else if (const auto walk = plan_.walkAt(time)) {
    pose = walkingPose(*walk, time);
  }
  // A standing person sways slightly.
  const double phase = scrambledUniform(seed_, 0, 0, 2 * pi);
  pose.lean += 0.008 * std::sin(2 * pi * 0.23 * seconds(time) + phase);
  pose.roll += 0.006 * std::sin(2 * pi * 0.17 * seconds(time) + 2 * phase);
  return pose;
}

MotionReading Person::next() {
  const Pose now = poseAt(sampleTime(index_, motionRate));
  ++index_;
  const MotionReading reading = read(beforePrevious_, previous_, now);
  beforePrevious_ = previous_;
  previous_ = now;
  return reading;
}

MotionReading Person::read(const Pose& before, const Pose& now, const Pose& after) {
  constexpr double perSquareSecond = static_cast<double>(motionRate) * motionRate / gravity;
  const auto change = [&](double Pose::*part) {
    return (after.*part - 2 * (now.*part) + before.*part) * perSquareSecond;
  };
  const Rotation body = bodyRotation(now);
  Vector felt = body.inverse().apply({change(&Pose::forward), 0, change(&Pose::height) + 1});
  for (double& component : felt) component += accelerometerNoise * noise_.normal();
  heading_ += 0.002 * noise_.normal();
  const Rotation turned = Rotation::about({0, 0, 1}, heading_).then(body);
  return {{turned.w, turned.x, turned.y, turned.z}, felt};
}

}  // namespace Zephly::simulator
