// SPDX-License-Identifier: MIT
#include <zephly/motion/vector3.h>

#include <tests/support/bits.h>
#include <tests/support/random_floats.h>
#include <tests/support/single.h>
#include <tests/support/special_floats.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <type_traits>

namespace {

// The angle rule, one turn at a time. Above a magnitude of 2^33 the loop does not end.
float stepByStep(float angle) {
  while (angle > 360.0F) angle = static_cast<float>(static_cast<double>(angle) - 360.0);
  while (angle < 0.0F) angle = static_cast<float>(static_cast<double>(angle) + 360.0);
  return angle;
}

float normalized(float angle) { return Vector3().normalizeAngle(angle); }

TEST(Vector3Test, IsThreeFloatsInOrder) {
  static_assert(std::is_trivially_copyable_v<Vector3> && std::is_standard_layout_v<Vector3>);
  static_assert(sizeof(Vector3) == 3 * sizeof(float));
  static_assert(!std::is_polymorphic_v<Vector3>);
  const Vector3 v(1, 2, 3);
  EXPECT_EQ((&v.x)[0], 1);
  EXPECT_EQ(v.y, 2);
  EXPECT_EQ(v.z, 3);
  EXPECT_LT(&v.x, &v.y);
  EXPECT_LT(&v.y, &v.z);
}

TEST(Vector3Test, IsZeroByDefault) {
  const Vector3 v;
  EXPECT_THAT(v.x, SameBits(0.0F));
  EXPECT_THAT(v.y, SameBits(0.0F));
  EXPECT_THAT(v.z, SameBits(0.0F));
}

TEST(Vector3Test, ScalesACopy) {
  const Vector3 v(1, -2, 0.5F);
  const Vector3 scaled = v.scale(-3);
  EXPECT_EQ(scaled.x, -3);
  EXPECT_EQ(scaled.y, 6);
  EXPECT_EQ(scaled.z, -1.5F);
  EXPECT_EQ(v.x, 1);
  EXPECT_EQ(v.y, -2);
  EXPECT_EQ(v.z, 0.5F);
}

TEST(Vector3Test, LengthMultipliesYAndZ) {
  EXPECT_EQ(Vector3(3, 4, 0).length(), 3);
  EXPECT_EQ(Vector3(0, 2, 3).length(), 6);
  EXPECT_EQ(Vector3(0, 0, 5).length(), 0);
}

TEST(Vector3Test, LengthHasTheBitsOfItsFormula) {
  RandomFloats random(51);
  for (int i = 0; i < 200000; ++i) {
    const Vector3 v = i % 2 == 0 ? Vector3(random.within(9), random.within(9), random.within(9))
                                 : Vector3(random.anything(), random.anything(), random.anything());
    const Single x = v.x;
    const Single y = v.y;
    const Single z = v.z;
    ASSERT_SAME_BITS(v.length(), squareRoot(x * x + z * ((y * y) * z)).value())
        << v.x << " " << v.y << " " << v.z;
  }
}

TEST(Vector3Test, NormalizeAngleBringsAnglesIntoOneTurn) {
  EXPECT_EQ(normalized(-30), 330);
  EXPECT_EQ(normalized(360), 360);
  EXPECT_EQ(normalized(725), 5);
  EXPECT_EQ(normalized(720), 360);
  EXPECT_THAT(normalized(-360), SameBits(0.0F));
  EXPECT_EQ(normalized(0), 0);
  EXPECT_EQ(normalized(359.5F), 359.5F);
}

TEST(Vector3Test, NormalizeAngleKeepsNegativeZero) {
  EXPECT_THAT(normalized(-0.0F), SameBits(-0.0F));
}

TEST(Vector3Test, NormalizeAngleRoundsATinyNegativeAngleToAFullTurn) {
  EXPECT_EQ(normalized(-1e-10F), 360);
}

TEST(Vector3Test, NormalizeAngleHasTheBitsOfRepeatedSubtraction) {
  RandomFloats random(52);
  for (int i = 0; i < 100000; ++i) {
    const float angle = random.within(i % 2 == 0 ? 2000.0F : 1.0e6F);
    ASSERT_SAME_BITS(normalized(angle), stepByStep(angle)) << angle;
  }
}

TEST(Vector3Test, NormalizeAngleKeepsThoseBitsWhereEverySubtractionIsRounded) {
  for (const float angle : {134217736.0F, 2.7e8F, 1.1e9F, 4.4e9F, 8.589934592e9F}) {
    EXPECT_SAME_BITS(normalized(angle), stepByStep(angle)) << angle;
    EXPECT_SAME_BITS(normalized(-angle), stepByStep(-angle)) << -angle;
  }
}

TEST(Vector3Test, NormalizeAngleGivesTheRemainderWhereSubtractingChangesNothing) {
  const float large = std::nextafter(8589934592.0F, infinity);
  ASSERT_EQ(large - 360.0F, large);
  for (const float angle : {large, 1.0e10F, 3.3e20F, 1.0e38F}) {
    const double remainder = std::fmod(static_cast<double>(angle), 360.0);
    ASSERT_NE(remainder, 0) << angle;
    EXPECT_EQ(normalized(angle), static_cast<float>(remainder)) << angle;
    EXPECT_EQ(normalized(-angle), static_cast<float>(360.0 - remainder)) << -angle;
  }
}

TEST(Vector3Test, NormalizeAngleOfHugeWholeTurnsIsZero) {
  const float wholeTurns = std::ldexp(360.0F, 80);
  EXPECT_EQ(normalized(wholeTurns), 0);
  EXPECT_EQ(normalized(-wholeTurns), 0);
  EXPECT_EQ(normalized(std::numeric_limits<float>::max()), 0);  // a whole number of turns, too
}

TEST(Vector3Test, NormalizeAngleOfInfinityOrNanIsNan) {
  EXPECT_TRUE(std::isnan(normalized(infinity)));
  EXPECT_TRUE(std::isnan(normalized(-infinity)));
  EXPECT_TRUE(std::isnan(normalized(notANumber)));
}

TEST(Vector3Test, NormalizedAnglesNormalisesACopy) {
  const Vector3 v(-30, 725, notANumber);
  const Vector3 angles = v.normalizedAngles();
  EXPECT_EQ(angles.x, 330);
  EXPECT_EQ(angles.y, 5);
  EXPECT_TRUE(std::isnan(angles.z));
  EXPECT_EQ(v.x, -30);
  EXPECT_EQ(v.y, 725);
}

}  // namespace
