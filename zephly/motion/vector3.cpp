#include <zephly/motion/vector3.h>

#include <cmath>

namespace {

constexpr float turn = 360.0F;  // degrees

// Takes turns away until at most one is left.
float withoutTurns(float angle) {
  while (angle > turn) {
    const float next = angle - turn;
    if (next == angle) {  // too large to change, or infinite
      const float remainder = std::fmod(angle, turn);
      return remainder == 0.0F ? turn : remainder;  // whole turns end at 360, as they do below
    }
    angle = next;
  }
  return angle;
}

// Adds turns until the angle is not negative.
float withTurns(float angle) {
  while (angle < 0.0F) {
    const float next = angle + turn;
    if (next == angle) {  // too large to change, or infinite
      const float remainder = std::fmod(angle, turn);
      return remainder < 0.0F ? remainder + turn : remainder + 0.0F;  // never a negative zero
    }
    angle = next;
  }
  return angle;
}

}  // namespace

Vector3::Vector3(float x_, float y_, float z_) : x(x_), y(y_), z(z_) {}

Vector3 Vector3::scale(float factor) const { return Vector3(x * factor, y * factor, z * factor); }

float Vector3::length() const { return std::sqrt(x * x + z * ((y * y) * z)); }

Vector3 Vector3::normalizedAngles() const {
  return Vector3(normalizeAngle(x), normalizeAngle(y), normalizeAngle(z));
}

float Vector3::normalizeAngle(float angle) const { return withTurns(withoutTurns(angle)); }
