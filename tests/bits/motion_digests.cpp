// SPDX-License-Identifier: MIT
#include <tests/bits/digest.h>
#include <tests/bits/signal.h>
#include <tests/support/captured_output.h>
#include <zephly/dsp/signal_processor.h>
#include <zephly/motion/gravity_compensation.h>
#include <zephly/motion/madgwick_ahrs.h>
#include <zephly/motion/motion_detector.h>
#include <zephly/motion/quaternion.h>
#include <zephly/motion/vector3.h>

namespace bits {

namespace {

void add(Digest& digest, const Vector3& vector) {
  for (const float number : {vector.x, vector.y, vector.z}) digest.add(number);
}

void add(Digest& digest, const Quaternion& quaternion) {
  for (const float number : {quaternion.x, quaternion.y, quaternion.z, quaternion.w}) {
    digest.add(number);
  }
}

void countRepetition(void* digest) { static_cast<Digest*>(digest)->add(1.0); }

// Both motion paths. The digest includes the detector's trace line of each sample.
void digestEngine() {
  Zephly::SignalProcessor engine;
  Digest digest;
  engine.setJumpCallback(countRepetition, &digest);
  engine.setSitUpCallback(countRepetition, &digest);
  engine.setPushUpCallback(countRepetition, &digest);
  Signal signal;
  const CapturedOutput trace;
  for (int index = 0; index < 20000; ++index) {
    const auto value = [&signal] { return 2 * signal.nextFloat() - 1; };
    const float v[] = {value(), value(), value(), value(), value(),
                       value(), value(), value(), value()};
    engine.imu(v[0], v[1], v[2], v[3], v[4], v[5], v[6], v[7], v[8]);
    for (const float component : {q0, q1, q2, q3}) digest.add(component);
    engine.imu(v[0], v[1], v[2], v[3], v[4], v[5], v[6]);
  }
  digest.add(trace.text());
  digest.print("SignalProcessor motion");
}

void digestDetector() {
  Zephly::MotionDetector detector;
  Digest digest;
  detector.context = &digest;
  detector.jumpCallback = countRepetition;
  detector.sitUpCallback = countRepetition;
  detector.pushUpCallback = countRepetition;
  Signal signal;
  const CapturedOutput trace;
  for (int index = 0; index < 20000; ++index) {
    const auto value = [&signal] { return signal.nextFloat() - 0.5F; };
    const Quaternion orientation{value(), value(), value(), value()};  // braces: in this order
    digest.add(detector.determineVerticalOrientation(orientation));
    const Vector3 acceleration{value(), value(), value()};
    detector.process(orientation, acceleration, 30);
  }
  digest.add(trace.text());
  digest.print("MotionDetector");
}

void digestFusion() {
  Digest digest;
  Signal signal;
  for (int index = 0; index < 50000; ++index) {
    const auto value = [&signal] { return 2 * signal.nextFloat() - 1; };
    const float v[] = {value(), value(), value(), value(), value(),
                       value(), value(), value(), value()};
    MadgwickAHRSupdate(v[0], v[1], v[2], v[3], v[4], v[5], v[6], v[7], v[8]);
    MadgwickAHRSupdateIMU(v[8], v[7], v[6], v[5], v[4], v[3]);
    for (const float component : {q0, q1, q2, q3}) digest.add(component);
  }
  AnyFloats numbers;
  for (int index = 0; index < 50000; ++index) digest.add(invSqrt(numbers.next()));
  digest.print("MadgwickAHRS");
}

void digestRotations() {
  Digest quaternions;
  Digest gravity;
  Signal signal;
  for (int index = 0; index < 50000; ++index) {
    const auto value = [&signal] { return signal.nextFloat() - 0.5F; };
    Quaternion quaternion{value(), value(), value(), value()};  // braces: in this order
    const Quaternion other{value(), value(), value(), value()};
    add(quaternions, quaternion.FromQ2());
    add(quaternions, quaternion.normalVectorToUp());
    const Vector3 acceleration{value(), value(), value()};
    add(gravity, Zephly::gravityCompensate(quaternion, acceleration));
    quaternion.multiplyWithRight(other);
    add(quaternions, quaternion);
  }
  quaternions.print("Quaternion");
  gravity.print("gravityCompensate");
}

void digestVectors() {
  Digest digest;
  AnyFloats numbers;
  for (int index = 0; index < 50000; ++index) {
    const Vector3 vector{numbers.next(), numbers.next(), numbers.next()};
    digest.add(vector.length());
    add(digest, vector.scale(numbers.next()));
  }
  Signal signal;
  for (int index = 0; index < 50000; ++index) {
    const auto angle = [&signal] { return 7200 * (signal.nextFloat() - 0.5F); };  // degrees
    add(digest, Vector3(angle(), 0, 0).normalizedAngles());
  }
  digest.print("Vector3");
}

}  // namespace

void digestMotion() {
  digestEngine();
  digestDetector();
  digestFusion();
  digestRotations();
  digestVectors();
}

}  // namespace bits
