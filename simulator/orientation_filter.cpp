// SPDX-License-Identifier: MIT
#include <simulator/orientation_filter.h>

#include <cmath>

namespace Zephly::simulator {

namespace {

constexpr double gain = 0.5;  // per second

double lengthOf(const Vector& v) { return std::hypot(v[0], v[1], v[2]); }

Vector cross(const Vector& a, const Vector& b) {
  return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}

// The shortest turn after which `up`, of length 1, points up in the world.
Rotation levelling(const Vector& up) {
  // Half way between the two: the product of `up` and the vertical, as quaternions.
  if (up[2] < -0.999999) return {0, 1, 0, 0};
  const Vector axis = cross(up, {0, 0, 1});
  return Rotation{1 + up[2], axis[0], axis[1], axis[2]}.normalized();
}

}  // namespace

Rotation OrientationFilter::next(const Vector& rotation, const Vector& acceleration,
                                 double interval) {
  const double force = lengthOf(acceleration);
  const bool correct = force > 1e-6 && std::isfinite(force);
  Vector felt{};
  if (correct) felt = {acceleration[0] / force, acceleration[1] / force, acceleration[2] / force};
  if (!started_) {
    started_ = true;
    if (correct) estimate_ = levelling(felt);
    return estimate_;
  }
  Vector turn = rotation;
  if (correct) {
    const Vector error = cross(felt, estimate_.inverse().apply({0, 0, 1}));
    for (std::size_t i = 0; i < 3; ++i) turn[i] += gain * error[i];
  }
  const double speed = lengthOf(turn);
  if (speed > 0 && std::isfinite(speed)) {
    const Vector axis = {turn[0] / speed, turn[1] / speed, turn[2] / speed};
    estimate_ = estimate_.then(Rotation::about(axis, speed * interval)).normalized();
  }
  return estimate_;
}

}  // namespace Zephly::simulator
