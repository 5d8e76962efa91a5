// SPDX-License-Identifier: MIT
#include <zephly/motion/quaternion.h>

#include <bit>
#include <cmath>
#include <cstdint>

namespace {

constexpr float quarterTurn = 1.5707964F;  // rad
static_assert(std::bit_cast<std::uint32_t>(quarterTurn) == 0x3FC90FDB);

constexpr float degreesPerRadian = 57.29578F;
static_assert(std::bit_cast<std::uint32_t>(degreesPerRadian) == 0x42652EE1);

// sin(87.4 degrees) / 2: beyond this part of the squared norm the axes count as aligned.
constexpr double singularity = 0.4995;

float toSingle(double value) { return static_cast<float>(value); }

float arcTangent(float opposite, float adjacent) {
  return toSingle(std::atan2(static_cast<double>(opposite), static_cast<double>(adjacent)));
}

}  // namespace

Quaternion::Quaternion(float x_, float y_, float z_, float w_) : x(x_), y(y_), z(z_), w(w_) {}

void Quaternion::multiplyWithRight(Quaternion r) {
  const Quaternion p = *this;
  x = r.x * p.w + r.w * p.x + r.z * p.y - r.y * p.z;
  y = r.y * p.w + r.w * p.y + r.x * p.z - r.z * p.x;
  z = r.y * p.x + (r.z * p.w + r.w * p.z) - r.x * p.y;
  w = r.w * p.w - r.x * p.x - r.y * p.y - r.z * p.z;
}

Vector3 Quaternion::normalVectorToUp() {
  const Quaternion before = *this;
  multiplyWithRight(Quaternion(0.0F, 0.0F, 1.0F, 0.0F));
  multiplyWithRight(Quaternion(-before.x, -before.y, -before.z, before.w));
  return Vector3(x, y, z);
}

Vector3 Quaternion::FromQ2() {
  const double unit = w * w + ((x * x + y * y) + z * z);
  const double test = w * x - y * z;
  Vector3 radians;
  if (test > unit * singularity) {
    radians = Vector3(quarterTurn, toSingle(2.0 * std::atan2(double{y}, double{x})), 0.0F);
  } else if (test < unit * -singularity) {
    radians = Vector3(-quarterTurn, toSingle(-2.0 * std::atan2(double{y}, double{x})), 0.0F);
  } else {
    const float sine = 2.0F * (w * x - z * y);
    radians = Vector3(toSingle(std::asin(double{sine})),
                      arcTangent(2.0F * z * x + 2.0F * w * y, 1.0F - 2.0F * (x * x + y * y)),
                      arcTangent(2.0F * w * z + 2.0F * x * y, 1.0F - 2.0F * (x * x + z * z)));
  }
  return radians.scale(degreesPerRadian).normalizedAngles();
}
