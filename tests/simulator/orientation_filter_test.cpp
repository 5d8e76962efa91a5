// SPDX-License-Identifier: MIT
#include <simulator/orientation_filter.h>

#include <simulator/random.h>
#include <tests/support/special_floats.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numbers>

namespace Zephly::simulator {
namespace {

using std::numbers::pi;

constexpr double endless = std::numeric_limits<double>::infinity();

// The world's vertical in the sensor's frame.
Vector verticalOf(const Rotation& rotation) { return rotation.inverse().apply({0, 0, 1}); }

void expectNear(const Vector& actual, const Vector& expected, double tolerance) {
  for (std::size_t i = 0; i < 3; ++i) EXPECT_NEAR(actual.at(i), expected.at(i), tolerance) << i;
}

TEST(OrientationFilterTest, TheFirstOrientationAgreesWithItsAcceleration) {
  Random random(1);
  for (int i = 0; i < 1000; ++i) {
    Vector felt = {random.normal(), random.normal(), random.normal()};
    const double length = std::hypot(felt[0], felt[1], felt[2]);
    const Rotation rotation = OrientationFilter().next({9, 9, 9}, felt, 0.01);
    for (double& part : felt) part /= length;
    expectNear(verticalOf(rotation), felt, 1e-9);
  }
  expectNear(verticalOf(OrientationFilter().next({0, 0, 0}, {0, 0, -1}, 0.01)), {0, 0, -1}, 1e-9);
}

TEST(OrientationFilterTest, FollowsTheGyroscope) {
  OrientationFilter filter;
  filter.next({0, 0, 0}, {0, 0, 1}, 0.01);
  Rotation rotation;
  // A quarter turn about x within a second, without acceleration.
  for (int i = 0; i < 100; ++i) rotation = filter.next({pi / 2, 0, 0}, {0, 0, 0}, 0.01);
  expectNear(rotation.apply({0, 1, 0}), {0, 0, 1}, 1e-9);
  EXPECT_NEAR(rotation.w, std::cos(pi / 4), 1e-9);
  EXPECT_NEAR(rotation.x, std::sin(pi / 4), 1e-9);
}

TEST(OrientationFilterTest, TheAccelerometerCorrectsWithinSeconds) {
  OrientationFilter filter;
  filter.next({0, 0, 0}, {0, 0, 1}, 0.01);
  const Vector truth = {std::sin(0.3), 0, std::cos(0.3)};
  const auto error = [&](const Rotation& rotation) {
    const Vector up = verticalOf(rotation);
    return std::acos(std::min(1.0, up[0] * truth[0] + up[1] * truth[1] + up[2] * truth[2]));
  };
  Rotation rotation;
  for (int i = 0; i < 200; ++i) rotation = filter.next({0, 0, 0}, truth, 0.01);
  EXPECT_NEAR(error(rotation), 0.3 * std::exp(-1.0), 0.005);
  for (int i = 0; i < 2000; ++i) rotation = filter.next({0, 0, 0}, truth, 0.01);
  EXPECT_LT(error(rotation), 1e-4);
}

TEST(OrientationFilterTest, StaysAUnitQuaternionForAnyInput) {
  OrientationFilter filter;
  Random random(2);
  for (int i = 0; i < 10'000; ++i) {
    const double size = i % 7 == 0 ? 1e30 : 10;
    Vector rotation = {size * random.normal(), random.normal(), random.normal()};
    Vector felt = {random.normal(), size * random.normal(), random.normal()};
    if (i % 100 == 5) rotation[1] = endless;
    if (i % 100 == 6) felt[2] = endless;
    if (i % 100 == 7) felt[2] = notANumber;
    const Rotation estimate = filter.next(rotation, felt, 1.0 / 30);
    ASSERT_NEAR(estimate.w * estimate.w + estimate.x * estimate.x + estimate.y * estimate.y +
                    estimate.z * estimate.z,
                1, 1e-9);
  }
}

}  // namespace
}  // namespace Zephly::simulator
