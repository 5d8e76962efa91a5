// SPDX-License-Identifier: MIT
#include <zephly/motion/gravity_compensation.h>

#include <tests/support/bits.h>
#include <tests/support/random_floats.h>
#include <tests/zephly/motion/literal_motion.h>

#include <gtest/gtest.h>

namespace {

TEST(GravityCompensationTest, IsZeroForALevelDeviceAtRest) {
  const Vector3 rest = Zephly::gravityCompensate(Quaternion(0, 0, 0, 1), Vector3(0, 0, 1));
  EXPECT_THAT(rest.x, SameBits(0.0F));
  EXPECT_THAT(rest.y, SameBits(0.0F));
  EXPECT_THAT(rest.z, SameBits(0.0F));
}

TEST(GravityCompensationTest, KeepsAccelerationOtherThanGravity) {
  const Vector3 moved = Zephly::gravityCompensate(Quaternion(0, 0, 0, 1), Vector3(0.5F, 0, 1));
  EXPECT_THAT(moved.x, SameBits(0.5F));
  EXPECT_THAT(moved.y, SameBits(0.0F));
  EXPECT_THAT(moved.z, SameBits(0.0F));
}

// In these orientations the sensor's x, y and -z axis point up.
TEST(GravityCompensationTest, FollowsTheOrientation) {
  const float h = 0.7071068F;
  const Vector3 x = Zephly::gravityCompensate(Quaternion(0, -h, 0, h), Vector3(1, 0, 0));
  EXPECT_NEAR(x.x, 0, 1e-6);
  EXPECT_NEAR(x.z, 0, 1e-6);
  const Vector3 y = Zephly::gravityCompensate(Quaternion(h, 0, 0, h), Vector3(0, 1, 0));
  EXPECT_NEAR(y.y, 0, 1e-6);
  EXPECT_NEAR(y.z, 0, 1e-6);
  const Vector3 z = Zephly::gravityCompensate(Quaternion(1, 0, 0, 0), Vector3(0, 0, -1));
  EXPECT_EQ(z.z, 0);
}

TEST(GravityCompensationTest, HasTheBitsOfItsFormula) {
  RandomFloats random(56);
  for (int i = 0; i < 200000; ++i) {
    float n[7];
    for (float& value : n) value = i % 4 == 3 ? random.anything() : random.within(1);
    const Vector3 result =
        Zephly::gravityCompensate(Quaternion(n[0], n[1], n[2], n[3]), Vector3(n[4], n[5], n[6]));
    const literal::Vector expected =
        literal::withoutGravity({n[0], n[1], n[2], n[3]}, {n[4], n[5], n[6]});
    ASSERT_SAME_BITS(result.x, expected.x.value());
    ASSERT_SAME_BITS(result.y, expected.y.value());
    ASSERT_SAME_BITS(result.z, expected.z.value());
  }
}

}  // namespace
