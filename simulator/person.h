// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The movements of the strap's wearer, and the readings of a motion sensor on the chest.
///
///   Person person(plan, seed);
///   frame.bytes = encodeMotion(person.next());   // 30 times a second
///
/// The sensor's axes on the body: x towards the head, y to the left, z out of the back. So z points
/// up when prone, down when lying on the back, and lies level when upright.
///
/// The movements are smooth paths of the chest (minimum-jerk steps: T. Flash and N. Hogan, "The
/// coordination of arm movements", J. Neurosci. 5(7), 1985; a jump flies on a parabola), and what
/// the accelerometer reads is the second difference of that path over two sampling intervals, plus
/// gravity, turned into the sensor's axes by the same orientation that is sent. The second
/// difference is the mean acceleration under a triangle of that width: the sensor's anti-alias
/// filter, by which integrating the readings gives the path back.
///
/// The movements are chosen so that a detector that follows the vertical axis of the band of tilt
/// (prone, upright, on the back) counts every repetition once, and counts nothing else:
/// - The trunk turns about the chest; the hips give way.
/// - The way down to the floor leads along the trunk's own axis while it leans forward by 45
///   degrees, as in a deep squat that goes down and back.
/// - A push-up lowers the chest by 0.28 m in 0.7 s and raises it as fast.
/// - A jump starts from knees bent by 0.06 m and flies for about 0.42 s; landing gives as much.
/// - A sit-up rolls the trunk back by 70 degrees about a pivot 2 cm below the sensor.
/// - Calm walking moves the chest by 0.025 m, 1.8 steps a second.
/// Other movements have other counts. A change of height of about 0.1 m within half a second is a
/// movement, so running, or stepping up and down, counts as jumps. Getting up from the floor about
/// fixed hips can count as one more push-up.

#include <simulator/frame_encoder.h>
#include <simulator/random.h>
#include <simulator/rotation.h>
#include <simulator/training_plan.h>

#include <cstdint>

namespace Zephly::simulator {

/// The position and the orientation of the chest.
struct Pose {
  double lean = 0;     ///< radians: 0 upright, pi/2 prone, -pi/2 on the back
  double roll = 0;     ///< radians, about the trunk's axis
  double height = 0;   ///< metres above the height when standing
  double forward = 0;  ///< metres ahead of where the person stands
};

/// One body that follows one plan.
class Person {
 public:
  Person(TrainingPlan plan, std::uint64_t seed);

  /// The next reading, the first one being of time 0. The sensor's filter delays by one reading.
  MotionReading next();

  /// Where the chest is at `time`; repetitions vary by some percent with the seed.
  Pose poseAt(StrapTime time) const;

 private:
  MotionReading read(const Pose& before, const Pose& now, const Pose& after);

  TrainingPlan plan_;
  std::uint64_t seed_;
  Random noise_;
  std::int64_t index_ = 0;  // of the next reading
  Pose previous_;           // pose of the reading before that
  Pose beforePrevious_;
  double heading_;  // radians, of the person about the vertical
};

}  // namespace Zephly::simulator
