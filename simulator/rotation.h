// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Rotations of a body in space, in double precision. Shares no code with the kit's arithmetic,
/// which the simulated strap tests.

#include <array>
#include <cmath>

namespace Zephly::simulator {

using Vector = std::array<double, 3>;

/// A unit quaternion, scalar first, that turns vectors of the sensor into vectors of the world.
struct Rotation {
  double w = 1;
  double x = 0;
  double y = 0;
  double z = 0;

  /// By `angle` (radians) about a unit vector.
  static Rotation about(const Vector& axis, double angle) {
    const double sine = std::sin(angle / 2);
    return {std::cos(angle / 2), axis[0] * sine, axis[1] * sine, axis[2] * sine};
  }

  /// The turn `second` in the turned frame, after this one.
  Rotation then(const Rotation& second) const {
    return {w * second.w - x * second.x - y * second.y - z * second.z,
            w * second.x + x * second.w + y * second.z - z * second.y,
            w * second.y - x * second.z + y * second.w + z * second.x,
            w * second.z + x * second.y - y * second.x + z * second.w};
  }

  Rotation inverse() const { return {w, -x, -y, -z}; }

  Vector apply(const Vector& v) const {
    const Rotation turned = then({0, v[0], v[1], v[2]}).then(inverse());
    return {turned.x, turned.y, turned.z};
  }

  Rotation normalized() const {
    const double length = std::sqrt(w * w + x * x + y * y + z * z);
    return {w / length, x / length, y / length, z / length};
  }
};

}  // namespace Zephly::simulator
