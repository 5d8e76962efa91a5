// SPDX-License-Identifier: MIT
#include <zephly/motion/madgwick_ahrs.h>

#include <zephly/motion/vector3.h>

#include <bit>
#include <cmath>
#include <cstdint>

float beta = 0.2F;
float q0 = 1.0F, q1 = 0.0F, q2 = 0.0F, q3 = 0.0F;

static_assert(std::bit_cast<std::uint32_t>(0.2F) == 0x3E4CCCCD);

namespace {

constexpr float samplePeriod = 0.033333335F;  // s
static_assert(std::bit_cast<std::uint32_t>(samplePeriod) == 0x3D088889);

constexpr std::uint32_t estimateBase = 0x5F1F1412;
constexpr float newtonConstant = 1.6900023F;
static_assert(std::bit_cast<std::uint32_t>(newtonConstant) == 0x3FD851FF);
constexpr float newtonFactor = -0.7141582F;
static_assert(std::bit_cast<std::uint32_t>(newtonFactor) == 0xBF36D312);

// One number for each of q0, q1, q2 and q3: their rates of change, or a gradient.
struct PerComponent {
  float of0, of1, of2, of3;
};

// The Earth's magnetic field with its horizontal part turned north. The C form of the algorithm
// uses it where the derivation has twice the field; this code does the same, so that results are
// equal.
struct ReferenceField {
  float x, z;
};

bool isZero(const Vector3& v) { return v.x == 0.0F && v.y == 0.0F && v.z == 0.0F; }

void normalize(Vector3& v) {
  const float factor = invSqrt(v.x * v.x + v.y * v.y + v.z * v.z);
  v.x *= factor;
  v.y *= factor;
  v.z *= factor;
}

PerComponent gyroscopeRate(const Vector3& g) {
  return {
      0.5F * (-q1 * g.x - q2 * g.y - q3 * g.z),
      0.5F * (q0 * g.x + q2 * g.z - q3 * g.y),
      0.5F * (q0 * g.y - q1 * g.z + q3 * g.x),
      0.5F * (q0 * g.z + q1 * g.y - q2 * g.x),
  };
}

// The gradient of the squared distance between the measured direction `a` and gravity in the
// current orientation.
PerComponent gravityGradient(const Vector3& a) {
  const float q0q0 = q0 * q0;
  const float q1q1 = q1 * q1;
  const float q2q2 = q2 * q2;
  const float q3q3 = q3 * q3;
  return {
      4.0F * q0 * q2q2 + 2.0F * q2 * a.x + 4.0F * q0 * q1q1 - 2.0F * q1 * a.y,
      4.0F * q1 * q3q3 - 2.0F * q3 * a.x + 4.0F * q0q0 * q1 - 2.0F * q0 * a.y - 4.0F * q1 +
          8.0F * q1 * q1q1 + 8.0F * q1 * q2q2 + 4.0F * q1 * a.z,
      4.0F * q0q0 * q2 + 2.0F * q0 * a.x + 4.0F * q2 * q3q3 - 2.0F * q3 * a.y - 4.0F * q2 +
          8.0F * q2 * q1q1 + 8.0F * q2 * q2q2 + 4.0F * q2 * a.z,
      4.0F * q1q1 * q3 - 2.0F * q1 * a.x + 4.0F * q2q2 * q3 - 2.0F * q2 * a.y,
  };
}

ReferenceField referenceField(const Vector3& m) {
  const float q0q0 = q0 * q0;
  const float q1q1 = q1 * q1;
  const float q2q2 = q2 * q2;
  const float q3q3 = q3 * q3;
  const float twoQ0mx = 2.0F * q0 * m.x;
  const float twoQ0my = 2.0F * q0 * m.y;
  const float twoQ0mz = 2.0F * q0 * m.z;
  const float twoQ1mx = 2.0F * q1 * m.x;
  const float twoQ1 = 2.0F * q1;
  const float twoQ2 = 2.0F * q2;

  const float hx = m.x * q0q0 - twoQ0my * q3 + twoQ0mz * q2 + m.x * q1q1 + twoQ1 * m.y * q2 +
                   twoQ1 * m.z * q3 - m.x * q2q2 - m.x * q3q3;
  const float hy = twoQ0mx * q3 + m.y * q0q0 - twoQ0mz * q1 + twoQ1mx * q2 - m.y * q1q1 +
                   m.y * q2q2 + twoQ2 * m.z * q3 - m.y * q3q3;
  return {
      std::sqrt(hx * hx + hy * hy),
      -twoQ0mx * q2 + twoQ0my * q1 + m.z * q0q0 + twoQ1mx * q3 - m.z * q1q1 + twoQ2 * m.y * q3 -
          m.z * q2q2 + m.z * q3q3,
  };
}

// The difference between gravity in the current orientation and the measured direction `a`.
Vector3 gravityError(const Vector3& a) {
  return Vector3(2.0F * (q1 * q3) - 2.0F * q0 * q2 - a.x, 2.0F * (q0 * q1) + 2.0F * q2 * q3 - a.y,
                 1.0F - 2.0F * (q1 * q1) - 2.0F * (q2 * q2) - a.z);
}

// The difference between the reference field in the current orientation and the measured direction
// `m`.
Vector3 fieldError(const Vector3& m, const ReferenceField& b) {
  return Vector3(b.x * (0.5F - q2 * q2 - q3 * q3) + b.z * (q1 * q3 - q0 * q2) - m.x,
                 b.x * (q1 * q2 - q0 * q3) + b.z * (q0 * q1 + q2 * q3) - m.y,
                 b.x * (q0 * q2 + q1 * q3) + b.z * (0.5F - q1 * q1 - q2 * q2) - m.z);
}

// The gradient of the squared distances of both measured directions.
PerComponent gravityAndFieldGradient(const Vector3& a, const Vector3& m) {
  const ReferenceField b = referenceField(m);
  const float twoX = 2.0F * b.x;
  const float twoZ = 2.0F * b.z;
  const Vector3 f = gravityError(a);
  const Vector3 e = fieldError(m, b);
  return {
      -(2.0F * q2) * f.x + 2.0F * q1 * f.y - b.z * q2 * e.x + (-b.x * q3 + b.z * q1) * e.y +
          b.x * q2 * e.z,
      2.0F * q3 * f.x + 2.0F * q0 * f.y - 4.0F * q1 * f.z + b.z * q3 * e.x +
          (b.x * q2 + b.z * q0) * e.y + (b.x * q3 - twoZ * q1) * e.z,
      -(2.0F * q0) * f.x + 2.0F * q3 * f.y - 4.0F * q2 * f.z + (-twoX * q2 - b.z * q0) * e.x +
          (b.x * q1 + b.z * q3) * e.y + (b.x * q0 - twoZ * q2) * e.z,
      2.0F * q1 * f.x + 2.0F * q2 * f.y + (-twoX * q3 + b.z * q1) * e.x +
          (-b.x * q0 + b.z * q2) * e.y + b.x * q1 * e.z,
  };
}

// Turns the rate of change towards the measured directions; only the gradient's direction counts.
void descend(PerComponent& rate, const PerComponent& s) {
  const float factor = invSqrt(s.of0 * s.of0 + s.of1 * s.of1 + s.of2 * s.of2 + s.of3 * s.of3);
  rate.of0 -= beta * (s.of0 * factor);
  rate.of1 -= beta * (s.of1 * factor);
  rate.of2 -= beta * (s.of2 * factor);
  rate.of3 -= beta * (s.of3 * factor);
}

void integrate(const PerComponent& rate) {
  q0 += rate.of0 * samplePeriod;
  q1 += rate.of1 * samplePeriod;
  q2 += rate.of2 * samplePeriod;
  q3 += rate.of3 * samplePeriod;

  const float factor = invSqrt(q0 * q0 + q1 * q1 + q2 * q2 + q3 * q3);
  q0 *= factor;
  q1 *= factor;
  q2 *= factor;
  q3 *= factor;
}

}  // namespace

void MadgwickAHRSupdate(float gx, float gy, float gz, float ax, float ay, float az, float mx,
                        float my, float mz) {
  Vector3 m(mx, my, mz);
  if (isZero(m)) {
    MadgwickAHRSupdateIMU(gx, gy, gz, ax, ay, az);
    return;
  }
  PerComponent rate = gyroscopeRate(Vector3(gx, gy, gz));
  Vector3 a(ax, ay, az);
  if (!isZero(a)) {
    normalize(a);
    normalize(m);
    descend(rate, gravityAndFieldGradient(a, m));
  }
  integrate(rate);
}

void MadgwickAHRSupdateIMU(float gx, float gy, float gz, float ax, float ay, float az) {
  PerComponent rate = gyroscopeRate(Vector3(gx, gy, gz));
  Vector3 a(ax, ay, az);
  if (!isZero(a)) {
    normalize(a);
    descend(rate, gravityGradient(a));
  }
  integrate(rate);
}

float invSqrt(float x) {
  const auto y = std::bit_cast<float>(estimateBase - (std::bit_cast<std::uint32_t>(x) >> 1U));
  return y * (y * (x * newtonFactor * y) + newtonConstant);
}
