// SPDX-License-Identifier: MIT
#include <zephly/motion/motion_detector.h>

#include <zephly/platform/fatal_error.h>
#include <zephly/platform/report.h>

namespace Zephly {

namespace {

// Bands of the up vector.
constexpr int pointingDown = 0;
constexpr int horizontal = 1;
constexpr int pointingUp = 2;

// Vertical headings.
constexpr int down = 0;
constexpr int up = 1;
constexpr int still = 2;

}  // namespace

void MotionDetector::missingJumpCallback(void* /*context*/) {
  fatalError("MotionDetector detected a jump, but its jumpCallback was never set");
}

void MotionDetector::missingSitUpCallback(void* /*context*/) {
  fatalError("MotionDetector detected a sit-up, but its sitUpCallback was never set");
}

void MotionDetector::missingPushUpCallback(void* /*context*/) {
  fatalError("MotionDetector detected a push-up, but its pushUpCallback was never set");
}

MotionDetector::MotionDetector()
    : velocityHighPass(std::make_unique<ButterworthFilter>(1.0F, 500, Highpass, 2.0F)),
      positionLowPass(std::make_unique<ButterworthFilter>(1.0F, 60, Lowpass, 2.0F)) {}

void MotionDetector::process(Quaternion orientation, Vector3 acceleration, float rate) {
  const int band = determineVerticalOrientation(orientation);
  const float vertical = band == horizontal ? acceleration.x : acceleration.z;
  const int heading = determineVerticalHeading(vertical, rate);

  // All three conditions read the state before this sample, so the state is updated below, after
  // the callbacks.
  if (band == pointingUp && heading == up && lastHeading == down) {
    pushUpCallback(context);
  }
  if (band == horizontal && heading == down && lastHeading == up) {
    jumpCallback(context);
  }
  if (band == horizontal && currentOrientation == pointingDown &&
      previousOrientation == horizontal) {
    sitUpCallback(context);
  }

  if (heading != still) {
    lastHeading = heading;
  }
  // The two latest different bands: a sit-up goes horizontal, down, horizontal.
  if (currentOrientation != band) {
    previousOrientation = currentOrientation;
    currentOrientation = band;
  }
}

int MotionDetector::determineVerticalOrientation(Quaternion orientation) {
  const float vertical = orientation.normalVectorToUp().z;
  if (vertical >= 0.5F) {
    return pointingUp;
  }
  return vertical <= -0.5F ? pointingDown : horizontal;
}

int MotionDetector::determineVerticalHeading(float acceleration, float rate) {
  velocity = acceleration / rate + velocity;
  const float highPassed = velocityHighPass->process(velocity);
  position = position + highPassed / rate;
  const float displacement = position - positionLowPass->process(position);
  report(MotionTrace{highPassed, displacement}, &Observer::didTraceMotion);

  // In double, so that the float nearest to 0.01 lies inside the dead band.
  const double wide = displacement;
  if (wide < -0.01) {
    return down;
  }
  return wide > 0.01 ? up : still;
}

}  // namespace Zephly
