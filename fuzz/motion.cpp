// SPDX-License-Identifier: MIT
// The path of a motion sample: fusion, gravity compensation, exercise detection, and the vectors
// and quaternions that they are made of, with any floats.
//
// Excluded, because it is a documented fatal error: a detector whose callbacks were never set. An
// angle between a million and 2^33 degrees is normalised in up to 22 million steps: one in each
// input.

#include <zephly/motion/gravity_compensation.h>
#include <zephly/motion/madgwick_ahrs.h>
#include <zephly/motion/motion_detector.h>
#include <zephly/motion/quaternion.h>
#include <zephly/motion/vector3.h>
#include <fuzz/support/input.h>
#include <fuzz/support/quiet.h>
#include <fuzz/support/require.h>
#include <fuzz/support/target.h>

#include <array>
#include <cmath>
#include <cstdint>

namespace {

using fuzz::Input;
using fuzz::require;

Vector3 vectorOf(Input& input) {
  const auto x = input.real<float>();
  const auto y = input.real<float>();
  return {x, y, input.real<float>()};
}

Quaternion quaternionOf(Input& input) {
  const auto x = input.real<float>();
  const auto y = input.real<float>();
  const auto z = input.real<float>();
  return {x, y, z, input.real<float>()};
}

bool isAngle(float degrees) { return std::isnan(degrees) || (degrees >= 0 && degrees <= 360); }

void requireAngles(const Vector3& angles) {
  require(isAngle(angles.x) && isAngle(angles.y) && isAngle(angles.z), "angles of 0 to 360");
}

struct Repetitions {
  int jumps = 0;
  int sitUps = 0;
  int pushUps = 0;
};

class World {
 public:
  World() {
    // One orientation per process: every input starts with the initial one.
    q0 = 1;
    q1 = q2 = q3 = 0;
    detector_.context = &seen_;
    detector_.jumpCallback = [](void* seen) { ++static_cast<Repetitions*>(seen)->jumps; };
    detector_.sitUpCallback = [](void* seen) { ++static_cast<Repetitions*>(seen)->sitUps; };
    detector_.pushUpCallback = [](void* seen) { ++static_cast<Repetitions*>(seen)->pushUps; };
  }

  void step(Input& input) {
    switch (input.below(7)) {
      case 0:
        return fuse(input);
      case 1:
        return detect(input, quaternionOf(input), vectorOf(input));
      case 2:
        return band(input);
      case 3:
        return exercise(input);
      case 4:
        return angles(input);
      case 5:
        return compensate(input);
      default:
        return vectors(input);
    }
  }

 private:
  // With readings of realistic magnitude the orientation stays a unit quaternion.
  void fuse(Input& input) {
    std::array<float, 9> readings{};
    for (float& reading : readings) {
      reading = input.real<float>();
      const float size = std::abs(reading);
      tame_ = tame_ && (size == 0 || (size > 1e-3F && size < 1e3F));
    }
    const auto [gx, gy, gz, ax, ay, az, mx, my, mz] = readings;
    MadgwickAHRSupdate(gx, gy, gz, ax, ay, az, mx, my, mz);
    if (tame_) {
      const float norm = std::sqrt(q0 * q0 + q1 * q1 + q2 * q2 + q3 * q3);
      require(std::abs(norm - 1) < 0.002F, "an orientation of unit length");
    }
    detect(input, Quaternion(q1, q2, q3, q0), Vector3(ax, ay, az));
  }

  void detect(Input& input, Quaternion orientation, Vector3 acceleration) {
    const Repetitions before = seen_;
    const float rate = input.coin() ? 30.0F : input.real<float>();
    detector_.process(orientation, Zephly::gravityCompensate(orientation, acceleration), rate);
    require(seen_.jumps - before.jumps <= 1 && seen_.sitUps - before.sitUps <= 1 &&
                seen_.pushUps - before.pushUps <= 1,
            "one repetition of a kind in one sample");
    require(seen_.pushUps == before.pushUps || seen_.jumps == before.jumps,
            "no push-up and jump at once");
  }

  // A torso that rests and moves, many samples long, which makes repetitions.
  void exercise(Input& input) {
    constexpr std::array<Quaternion (*)(), 3> bands = {
        [] { return Quaternion(0, 0, 0, 1); }, [] { return Quaternion(0.7071F, 0, 0, 0.7071F); },
        [] { return Quaternion(1, 0, 0, 0); }};
    const Quaternion orientation = bands.at(input.below(3))();
    const auto push = input.everyday<float>();
    for (unsigned i = input.below(32); i > 0; --i) {
      detector_.process(orientation, Vector3(push, push, push), 30.0F);
    }
  }

  void band(Input& input) {
    const int band = detector_.determineVerticalOrientation(quaternionOf(input));
    require(band >= 0 && band <= 2, "one of three bands");
    const auto acceleration = input.real<float>();
    const int heading = detector_.determineVerticalHeading(acceleration, input.real<float>());
    require(heading >= 0 && heading <= 2, "one of three headings");
  }

  void angles(Input& input) {
    const auto angle = input.real<float>();
    const bool slow = std::abs(angle) > 1e6F && std::abs(angle) <= 8589934592.0F;
    if (slow && slowAngles_-- <= 0) return;
    require(isAngle(Vector3().normalizeAngle(angle)), "an angle of 0 to 360");
    require(!std::isfinite(angle) || !std::isnan(Vector3().normalizeAngle(slow ? 0.0F : angle)),
            "a finite angle stays one");
    requireAngles(quaternionOf(input).FromQ2());
  }

  void compensate(Input& input) {
    const Quaternion orientation = quaternionOf(input);
    const Vector3 moved = Zephly::gravityCompensate(orientation, vectorOf(input));
    static_cast<void>(moved.length());
    static_cast<void>(invSqrt(moved.x));
  }

  void vectors(Input& input) {
    Quaternion left = quaternionOf(input);
    left.multiplyWithRight(quaternionOf(input));
    static_cast<void>(left.normalVectorToUp().scale(input.real<float>()).length());
  }

  Zephly::MotionDetector detector_;
  Repetitions seen_;
  bool tame_ = true;
  int slowAngles_ = 1;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const fuzz::Quiet quiet;
  Input input(data, size);
  World world;
  while (!input.empty()) world.step(input);
  return 0;
}
