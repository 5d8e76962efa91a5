// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Counts repetitions of three body-weight exercises from the strap's motion samples.
///
///     Zephly::MotionDetector detector;
///     detector.context = &counts;
///     detector.jumpCallback = [](void* context) { ++static_cast<Counts*>(context)->jumps; };
///     ...                                                   // and the other two
///     detector.process(orientation, acceleration, 30.0F);   // once per sample

#include <zephly/dsp/butterworth_filter.h>
#include <zephly/motion/quaternion.h>
#include <zephly/motion/vector3.h>
#include <zephly/platform/export.h>

#include <memory>

namespace Zephly {

/// Recognises push-ups, sit-ups and jumps, one motion sample at a time.
///
/// The rotated up vector puts the torso into one of three bands; the acceleration along the axis
/// that is vertical in that band is integrated twice and band-limited; the sign of the resulting
/// displacement is the direction of vertical movement. A repetition is an edge:
/// - push-up: a turn from down to up while the up vector points up (band 2),
/// - jump: a turn from up to down while the up vector is about horizontal (band 1),
/// - sit-up: the return to band 1 from a stay in band 0 that was entered from band 1.
///
/// Samples without movement between the two directions are ignored. Only the dead band separates
/// repetitions: there is no timer. The integrators run from construction on and are never reset; an
/// acceleration that is infinite or not a number permanently ends the detection of push-ups and
/// jumps.
///
/// Not thread-safe; callbacks run on the thread that calls process, before it returns.
class ZEPHLY_EXPORT MotionDetector {
 public:
  /// The argument of every callback.
  void* context = nullptr;
  /// Called once per repetition. All three must be set before the first sample and never be null.
  /// The defaults are fatal errors that name the callback.
  void (*jumpCallback)(void*) = missingJumpCallback;
  void (*sitUpCallback)(void*) = missingSitUpCallback;
  void (*pushUpCallback)(void*) = missingPushUpCallback;

  /// The defaults of the callbacks: a fatal error that names the callback.
  static void missingJumpCallback(void* context);
  static void missingSitUpCallback(void* context);
  static void missingPushUpCallback(void* context);

  /// At rest, with the up vector pointing up.
  MotionDetector();

  /// One motion sample. Writes one diagnostic line (see determineVerticalHeading), then calls the
  /// callbacks of the repetitions that this sample completes: push-up, jump, sit-up, in this order.
  /// @param orientation   of the strap, a unit quaternion
  /// @param acceleration  free of gravity, in g
  /// @param rate          samples per second
  void process(Quaternion orientation, Vector3 acceleration, float rate);

  /// The band of an orientation, by the vertical part z of its up vector: 0 pointing down
  /// (z <= -0.5), 1 about horizontal, 2 pointing up (z >= 0.5). NaN counts as horizontal.
  int determineVerticalOrientation(Quaternion orientation);

  /// Advances the double integration by one sample of vertical acceleration (g) at `rate` samples
  /// per second and gives the direction of movement: 0 down, 1 up, 2 still, which is a displacement
  /// within +-0.01 or one that is not a number. Writes high-passed velocity and displacement as one
  /// line, "velocity, displacement", to the console.
  int determineVerticalHeading(float acceleration, float rate);

 private:
  float velocity = 0.0F;  // g s
  float position = 0.0F;  // g s^2
  // Designed for 500 and 60 samples per second. Motion samples arrive at 30, so the real cut-offs
  // are 0.06 and 0.5 Hz: low enough to pass a repetition, high enough to remove drift.
  std::unique_ptr<ButterworthFilter> velocityHighPass;
  std::unique_ptr<ButterworthFilter> positionLowPass;
  int lastHeading = 2;  // the latest other than 2 (still)
  int previousOrientation = 2;
  int currentOrientation = 2;
};

}  // namespace Zephly
