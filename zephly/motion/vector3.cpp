// SPDX-License-Identifier: MIT
#include <zephly/motion/vector3.h>

#include <cmath>

namespace {

constexpr float turn = 360.0F;  // degrees

// Beyond this magnitude a float minus a turn, rounded to float, is the same float again.
constexpr float largestReducible = 8589934592.0F;  // 2^33

}  // namespace

Vector3::Vector3(float x_, float y_, float z_) : x(x_), y(y_), z(z_) {}

Vector3 Vector3::scale(float factor) const { return Vector3(x * factor, y * factor, z * factor); }

float Vector3::length() const { return std::sqrt(x * x + z * ((y * y) * z)); }

Vector3 Vector3::normalizedAngles() const {
  return Vector3(normalizeAngle(x), normalizeAngle(y), normalizeAngle(z));
}

float Vector3::normalizeAngle(float angle) const {
  if (std::abs(angle) > largestReducible) {
    angle = std::fmod(angle, turn);  // not a number when infinite
  }
  while (angle > turn) angle -= turn;
  while (angle < 0.0F) angle += turn;
  return angle;
}
