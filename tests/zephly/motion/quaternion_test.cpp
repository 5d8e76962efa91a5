// SPDX-License-Identifier: MIT
#include <zephly/motion/quaternion.h>

#include <tests/support/bits.h>
#include <tests/support/random_floats.h>
#include <tests/zephly/motion/literal_motion.h>

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <type_traits>

namespace {

const float halfRoot = std::bit_cast<float>(0x3F3504F3U);  // 0.7071068

void expectSame(const Quaternion& q, const literal::Rotation& expected) {
  ASSERT_SAME_BITS(q.x, expected.x.value());
  ASSERT_SAME_BITS(q.y, expected.y.value());
  ASSERT_SAME_BITS(q.z, expected.z.value());
  ASSERT_SAME_BITS(q.w, expected.w.value());
}

void expectSame(const Vector3& v, const Vector3& expected) {
  ASSERT_SAME_BITS(v.x, expected.x);
  ASSERT_SAME_BITS(v.y, expected.y);
  ASSERT_SAME_BITS(v.z, expected.z);
}

Quaternion randomQuaternion(RandomFloats& random, int i) {
  if (i % 4 == 3) {
    return {random.anything(), random.anything(), random.anything(), random.anything()};
  }
  return {random.within(1), random.within(1), random.within(1), random.within(1)};
}

float narrowed(double value) { return static_cast<float>(value); }

// The reference angles, before scaling to degrees.
Vector3 anglesInRadians(const Quaternion& q) {
  const Single x = q.x;
  const Single y = q.y;
  const Single z = q.z;
  const Single w = q.w;
  const double unit = (w * w + ((x * x + y * y) + z * z)).value();
  const double test = (w * x - y * z).value();
  const double heading = std::atan2(static_cast<double>(q.y), static_cast<double>(q.x));
  const auto right = std::bit_cast<float>(0x3FC90FDBU);
  if (test > unit * 0.4995) return {right, narrowed(2.0 * heading), 0.0F};
  if (test < unit * -0.4995) return {-right, narrowed(-2.0 * heading), 0.0F};
  const Single one = 1.0F;
  const Single two = 2.0F;
  const double sine = (two * (w * x - z * y)).value();
  const double yOpposite = (two * z * x + two * w * y).value();
  const double yAdjacent = (one - two * (x * x + y * y)).value();
  const double zOpposite = (two * w * z + two * x * y).value();
  const double zAdjacent = (one - two * (x * x + z * z)).value();
  return {narrowed(std::asin(sine)), narrowed(std::atan2(yOpposite, yAdjacent)),
          narrowed(std::atan2(zOpposite, zAdjacent))};
}

float inDegrees(float radians) {
  float angle = (Single(radians) * Single(std::bit_cast<float>(0x42652EE1U))).value();
  while (angle > 360.0F) angle -= 360.0F;
  while (angle < 0.0F) angle += 360.0F;
  return angle;
}

TEST(QuaternionTest, IsFourFloatsWithTheScalarLast) {
  static_assert(std::is_trivially_copyable_v<Quaternion> && std::is_standard_layout_v<Quaternion>);
  static_assert(sizeof(Quaternion) == 4 * sizeof(float));
  static_assert(!std::is_polymorphic_v<Quaternion>);
  const Quaternion q(1, 2, 3, 4);
  EXPECT_EQ(q.x, 1);
  EXPECT_EQ(q.y, 2);
  EXPECT_EQ(q.z, 3);
  EXPECT_EQ(q.w, 4);
  EXPECT_LT(&q.x, &q.y);
  EXPECT_LT(&q.y, &q.z);
  EXPECT_LT(&q.z, &q.w);
}

TEST(QuaternionTest, IsZeroByDefaultAndNotTheIdentity) {
  expectSame(Quaternion(), literal::Rotation{});
}

TEST(QuaternionTest, MultipliesTheBasisByHamiltonsRules) {
  const Quaternion i(1, 0, 0, 0);
  const Quaternion j(0, 1, 0, 0);
  const Quaternion k(0, 0, 1, 0);
  Quaternion product = i;
  product.multiplyWithRight(j);
  EXPECT_EQ(product.z, 1);  // ij = k
  product = j;
  product.multiplyWithRight(i);
  EXPECT_EQ(product.z, -1);  // ji = -k
  product = j;
  product.multiplyWithRight(k);
  EXPECT_EQ(product.x, 1);  // jk = i
  product = k;
  product.multiplyWithRight(i);
  EXPECT_EQ(product.y, 1);  // ki = j
  product = i;
  product.multiplyWithRight(i);
  EXPECT_EQ(product.w, -1);  // ii = -1
}

TEST(QuaternionTest, ProductHasTheBitsOfItsFormula) {
  RandomFloats random(53);
  for (int i = 0; i < 100000; ++i) {
    const Quaternion p = randomQuaternion(random, i);
    const Quaternion r = randomQuaternion(random, i);
    Quaternion product = p;
    product.multiplyWithRight(r);
    expectSame(product, literal::product(literal::rotation(p), literal::rotation(r)));
    if (HasFatalFailure()) return;
  }
}

TEST(QuaternionTest, MultipliesByItself) {
  Quaternion q(0.1F, 0.2F, 0.3F, 0.4F);
  const literal::Rotation before = literal::rotation(q);
  q.multiplyWithRight(q);
  expectSame(q, literal::product(before, before));
}

TEST(QuaternionTest, TheIdentityDoesNotRotateUpAndIsOverwritten) {
  Quaternion q(0, 0, 0, 1);
  const Vector3 turnedUp = q.normalVectorToUp();
  EXPECT_EQ(turnedUp.x, 0);
  EXPECT_EQ(turnedUp.y, 0);
  EXPECT_EQ(turnedUp.z, 1);
  EXPECT_EQ(q.x, 0);
  EXPECT_EQ(q.y, 0);
  EXPECT_EQ(q.z, 1);
  EXPECT_EQ(q.w, 0);
}

TEST(QuaternionTest, AQuarterTurnAboutXRotatesUpToMinusY) {
  const Vector3 turnedUp = Quaternion(halfRoot, 0, 0, halfRoot).normalVectorToUp();
  EXPECT_FLOAT_EQ(turnedUp.y, -1);
  EXPECT_NEAR(turnedUp.z, 0, 1e-6);
}

TEST(QuaternionTest, RotatedUpHasTheBitsOfItsProductsAndOverwritesTheQuaternion) {
  RandomFloats random(54);
  for (int i = 0; i < 100000; ++i) {
    Quaternion q = randomQuaternion(random, i);
    const literal::Rotation expected = literal::rotatedUp(literal::rotation(q));
    const Vector3 turnedUp = q.normalVectorToUp();
    expectSame(q, expected);
    expectSame(turnedUp, Vector3(expected.x.value(), expected.y.value(), expected.z.value()));
    if (HasFatalFailure()) return;
  }
}

TEST(QuaternionTest, IdentityHasNoAngles) {
  const Vector3 angles = Quaternion(0, 0, 0, 1).FromQ2();
  EXPECT_EQ(angles.x, 0);
  EXPECT_EQ(angles.y, 0);
  EXPECT_EQ(angles.z, 0);
}

TEST(QuaternionTest, QuarterTurnsAboutXAreExactlyRightAngles) {
  const Vector3 forward = Quaternion(halfRoot, 0, 0, halfRoot).FromQ2();
  EXPECT_EQ(forward.x, 90);
  EXPECT_EQ(forward.y, 0);
  EXPECT_EQ(forward.z, 0);
  const Vector3 backward = Quaternion(-halfRoot, 0, 0, halfRoot).FromQ2();
  EXPECT_EQ(backward.x, 270);
  EXPECT_EQ(backward.z, 0);
}

TEST(QuaternionTest, QuarterTurnsAboutYAndZAppearInTheirOwnAngle) {
  const Vector3 aboutY = Quaternion(0, halfRoot, 0, halfRoot).FromQ2();
  EXPECT_EQ(aboutY.x, 0);
  EXPECT_NEAR(aboutY.y, 90, 1e-4);
  EXPECT_EQ(aboutY.z, 0);
  const Vector3 aboutZ = Quaternion(0, 0, -halfRoot, halfRoot).FromQ2();
  EXPECT_EQ(aboutZ.x, 0);
  EXPECT_EQ(aboutZ.y, 0);
  EXPECT_NEAR(aboutZ.z, 270, 1e-4);
}

// Equality must not count as aligned: 0 on both sides, and infinity on both sides.
TEST(QuaternionTest, TheGeneralFormulasApplyExactlyAtTheLimit) {
  const Vector3 nothing = Quaternion(0, 0, 0, 0).FromQ2();
  EXPECT_EQ(nothing.x, 0);
  EXPECT_EQ(nothing.y, 0);
  EXPECT_EQ(nothing.z, 0);
  EXPECT_TRUE(std::isnan(Quaternion(1e20F, 0, 0, 1e20F).FromQ2().x));
  EXPECT_TRUE(std::isnan(Quaternion(-1e20F, 0, 0, 1e20F).FromQ2().x));
}

// Unit quaternions with `test` as close to 0.4995 as floats allow, on either side.
TEST(QuaternionTest, TheLimitLiesBetweenNeighbouringRotations) {
  const double half = std::asin(2 * 0.4995) / 2;
  const auto about = [](double angle) {
    return Quaternion(narrowed(std::sin(angle)), 0, 0, narrowed(std::cos(angle))).FromQ2().x;
  };
  EXPECT_EQ(about(half + 1e-4), 90);
  EXPECT_LT(about(half - 1e-4), 88);
  EXPECT_EQ(about(-half - 1e-4), 270);
  EXPECT_GT(about(-half + 1e-4), 272);
}

TEST(QuaternionTest, DetectsAlignedAxesWithoutNormalising) {
  EXPECT_EQ(Quaternion(50 * halfRoot, 0, 0, 50 * halfRoot).FromQ2().x, 90);
  EXPECT_EQ(Quaternion(halfRoot / 50, 0, 0, halfRoot / 50).FromQ2().x, 90);
}

// The rotations are so close to the limit that the order in which the squares are added decides
// between the formulas.
TEST(QuaternionTest, AnglesHaveTheBitsOfTheirFormulasNextToTheLimit) {
  RandomFloats random(65);
  for (int i = 0; i < 20000; ++i) {
    const double x = 0.7 + 0.2 * static_cast<double>(random.within(1));
    const auto y = static_cast<double>(random.within(0.4F));
    const double z = -y + 0.001 * static_cast<double>(random.within(1));
    // w x - y z = 0.4995 (w^2 + x^2 + y^2 + z^2), solved for w.
    const double rest = 0.4995 * (x * x + y * y + z * z) + y * z;
    const auto w = static_cast<float>((x - std::sqrt(x * x - 4 * 0.4995 * rest)) / (2 * 0.4995));
    const float sign = i % 2 == 0 ? 1.0F : -1.0F;
    float near = std::nextafter(std::nextafter(w, 0.0F), 0.0F);
    for (int step = 0; step < 5; ++step) {
      Quaternion q(sign * narrowed(x), narrowed(y), sign * narrowed(z), near);
      const Vector3 radians = anglesInRadians(q);
      expectSame(q.FromQ2(),
                 Vector3(inDegrees(radians.x), inDegrees(radians.y), inDegrees(radians.z)));
      if (HasFatalFailure()) return;
      near = std::nextafter(near, 2.0F);
    }
  }
}

TEST(QuaternionTest, AnglesHaveTheBitsOfTheirFormulas) {
  RandomFloats random(55);
  int aligned = 0;
  int general = 0;
  for (int i = 0; i < 200000; ++i) {
    const bool nearLimit = i % 3 == 0;
    const float a = random.within(1);
    const float b = random.within(0.05F);
    const float sign = i % 2 == 0 ? 1.0F : -1.0F;
    Quaternion q = nearLimit ? Quaternion(sign * a, b, -sign * b, a) : randomQuaternion(random, i);
    const Quaternion before = q;
    const Vector3 radians = anglesInRadians(q);
    std::abs(radians.x) == std::bit_cast<float>(0x3FC90FDBU) ? ++aligned : ++general;
    expectSame(q.FromQ2(),
               Vector3(inDegrees(radians.x), inDegrees(radians.y), inDegrees(radians.z)));
    expectSame(q, literal::rotation(before));
    if (HasFatalFailure()) return;
  }
  EXPECT_GT(aligned, 10000);
  EXPECT_GT(general, 10000);
}

}  // namespace
