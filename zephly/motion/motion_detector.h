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
/// Samples without movement between the two directions do not matter, and nothing but the dead
/// band keeps repetitions apart: there is no timer. The integrators run from construction on and
/// are never reset; an acceleration that is infinite or not a number ends the detection of push-ups
/// and jumps for good.
///
/// Not thread-safe; callbacks run on the thread that calls process, before it returns.
class ZEPHLY_EXPORT MotionDetector {
 public:
  /// Handed to whichever callback fires.
  void* context = nullptr;
  /// Called once per repetition. All three must be set before the first sample and never be null;
  /// until they are, each holds a function that is a fatal error naming it.
  void (*jumpCallback)(void*) = missingJumpCallback;
  void (*sitUpCallback)(void*) = missingSitUpCallback;
  void (*pushUpCallback)(void*) = missingPushUpCallback;

  /// What the callbacks are before they are set: a fatal error that names the callback.
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
  // lie at 0.06 and 0.5 Hz: slow enough to hold a repetition, fast enough to forget drift.
  std::unique_ptr<ButterworthFilter> velocityHighPass;
  std::unique_ptr<ButterworthFilter> positionLowPass;
  int lastHeading = 2;  // the last one that was not 2
  int previousOrientation = 2;
  int currentOrientation = 2;
};

}  // namespace Zephly
