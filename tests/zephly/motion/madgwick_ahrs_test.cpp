// SPDX-License-Identifier: MIT
#include <zephly/motion/madgwick_ahrs.h>

#include <tests/support/bits.h>
#include <tests/support/random_floats.h>
#include <tests/support/recording.h>
#include <tests/zephly/motion/literal_motion.h>

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

namespace {

constexpr float invSqrtOfOne = 1.0001187F;

// The orientation is global: every test starts from the identity and restores it.
class MadgwickAHRSTest : public testing::Test {
 public:
  MadgwickAHRSTest() { setOrientation(1, 0, 0, 0); }
  ~MadgwickAHRSTest() override { setOrientation(1, 0, 0, 0); }
  MadgwickAHRSTest(const MadgwickAHRSTest&) = delete;
  MadgwickAHRSTest& operator=(const MadgwickAHRSTest&) = delete;

  static void setOrientation(float w, float x, float y, float z) {
    q0 = w;
    q1 = x;
    q2 = y;
    q3 = z;
    beta = 0.2F;
  }

  static void expectOrientation(const literal::Fusion& expected) {
    ASSERT_SAME_BITS(q0, expected.q[0].value());
    ASSERT_SAME_BITS(q1, expected.q[1].value());
    ASSERT_SAME_BITS(q2, expected.q[2].value());
    ASSERT_SAME_BITS(q3, expected.q[3].value());
  }
};

// Nothing in this program changes these before main.
const float initialGain = beta;
const float initialOrientation[] = {q0, q1, q2, q3};

TEST_F(MadgwickAHRSTest, StartsAtTheIdentityWithAGainOfOneFifth) {
  EXPECT_EQ(bitsOf(initialGain), 0x3E4CCCCDU);
  EXPECT_THAT(initialOrientation[0], SameBits(1.0F));
  EXPECT_THAT(initialOrientation[1], SameBits(0.0F));
  EXPECT_THAT(initialOrientation[2], SameBits(0.0F));
  EXPECT_THAT(initialOrientation[3], SameBits(0.0F));
}

TEST_F(MadgwickAHRSTest, InvSqrtOfOneIsApproximate) {
  EXPECT_THAT(invSqrt(1.0F), SameBits(invSqrtOfOne));
}

TEST_F(MadgwickAHRSTest, InvSqrtHasTheBitsOfItsFormula) {
  RandomFloats random(57);
  for (int i = 0; i < 500000; ++i) {
    const float x = random.anything();
    ASSERT_SAME_BITS(invSqrt(x), literal::inverseSquareRoot(x).value()) << x;
  }
  for (const float x : {0.0F, -0.0F, 1e-45F, INFINITY, -INFINITY, NAN, -1.0F}) {
    EXPECT_SAME_BITS(invSqrt(x), literal::inverseSquareRoot(x).value()) << x;
  }
}

TEST_F(MadgwickAHRSTest, InvSqrtIsCloseForAllNormalNumbers) {
  float x = 1.2e-38F;
  while (x < 3.0e38F) {
    const double relative = static_cast<double>(invSqrt(x)) * std::sqrt(static_cast<double>(x));
    ASSERT_NEAR(relative, 1.0, 6.6e-4) << x;
    x *= 1.01F;
  }
}

TEST_F(MadgwickAHRSTest, GravityOnZOnlyNormalisesTheIdentity) {
  MadgwickAHRSupdateIMU(0, 0, 0, 0, 0, 1);
  EXPECT_THAT(q0, SameBits(invSqrtOfOne));
  EXPECT_EQ(q1, 0);
  EXPECT_EQ(q2, 0);
  EXPECT_EQ(q3, 0);
}

TEST_F(MadgwickAHRSTest, WithoutAccelerometerOnlyTheGyroscopeCounts) {
  beta = NAN;  // if it were used, every result would be NaN
  MadgwickAHRSupdateIMU(0, 0, 0.3F, 0, 0, 0);
  EXPECT_NEAR(q3, 0.005, 1e-5);
  MadgwickAHRSupdate(0, 0, 0.3F, 0, 0, 0, 20, 0, -40);
  EXPECT_NEAR(q3, 0.010, 1e-5);
  EXPECT_EQ(q1, 0);
  EXPECT_EQ(q2, 0);
}

TEST_F(MadgwickAHRSTest, ARateAboutZTurnsByRateTimesPeriod) {
  MadgwickAHRSupdateIMU(0, 0, 0.3F, 0, 0, 0);
  EXPECT_NEAR(2 * std::atan2(q3, q0), 0.01, 1e-6);
  // Half the rate for a thirtieth of a second, then the normalisation.
  const Single half = Single(0.5F) * Single(0.3F) * Single(0.033333335F);
  const Single factor = literal::inverseSquareRoot(Single(1.0F) + half * half);
  EXPECT_SAME_BITS(q3, (half * factor).value());
}

TEST_F(MadgwickAHRSTest, TheGainScalesTheCorrection) {
  MadgwickAHRSupdateIMU(0, 0, 0, 0, 1, 0);
  const float corrected = q1;
  setOrientation(1, 0, 0, 0);
  beta = 0.4F;
  MadgwickAHRSupdateIMU(0, 0, 0, 0, 1, 0);
  EXPECT_NE(corrected, 0);
  EXPECT_NEAR(q1 / corrected, 2, 1e-3);
}

TEST_F(MadgwickAHRSTest, AZeroMagnetometerIsTheSixAxisUpdate) {
  RandomFloats random(58);
  for (int i = 0; i < 2000; ++i) {
    const float start[] = {random.within(1), random.within(1), random.within(1), random.within(1)};
    float n[6];
    for (float& value : n) value = random.awkward(3, 20);
    setOrientation(start[0], start[1], start[2], start[3]);
    MadgwickAHRSupdateIMU(n[0], n[1], n[2], n[3], n[4], n[5]);
    const float six[] = {q0, q1, q2, q3};
    setOrientation(start[0], start[1], start[2], start[3]);
    MadgwickAHRSupdate(n[0], n[1], n[2], n[3], n[4], n[5], 0.0F, -0.0F, 0.0F);
    ASSERT_SAME_BITS(q0, six[0]);
    ASSERT_SAME_BITS(q1, six[1]);
    ASSERT_SAME_BITS(q2, six[2]);
    ASSERT_SAME_BITS(q3, six[3]);
  }
}

TEST_F(MadgwickAHRSTest, ReadingsWithOneZeroComponentAreUsed) {
  literal::Fusion expected;
  MadgwickAHRSupdate(0, 0, 0, 0, 0.5F, 0, 0, 0, 0.3F);
  expected.update({0.0F, 0.0F, 0.0F}, {0.0F, 0.5F, 0.0F}, {0.0F, 0.0F, 0.3F});
  expectOrientation(expected);
  EXPECT_NE(q1, 0);
}

TEST_F(MadgwickAHRSTest, SixAxesHaveTheBitsOfTheAlgorithm) {
  RandomFloats random(59);
  literal::Fusion expected;
  for (int i = 0; i < 50000; ++i) {
    float n[6];
    for (float& value : n) value = random.awkward(2, 1000000);
    MadgwickAHRSupdateIMU(n[0], n[1], n[2], n[3], n[4], n[5]);
    expected.update({n[0], n[1], n[2]}, {n[3], n[4], n[5]});
    expectOrientation(expected);
    if (HasFatalFailure()) return;
  }
  EXPECT_FALSE(std::isnan(q0));
}

TEST_F(MadgwickAHRSTest, NineAxesHaveTheBitsOfTheAlgorithm) {
  RandomFloats random(60);
  literal::Fusion expected;
  for (int i = 0; i < 50000; ++i) {
    const float scale = i % 100 == 0 ? 1e-3F : 50.0F;
    const Vector3 g(random.within(4), random.within(4), random.within(4));
    const Vector3 a(random.within(2), random.within(2), random.within(2));
    const Vector3 m(random.within(scale), random.within(scale), random.within(scale));
    MadgwickAHRSupdate(g.x, g.y, g.z, a.x, a.y, a.z, m.x, m.y, m.z);
    expected.update({g.x, g.y, g.z}, {a.x, a.y, a.z}, {m.x, m.y, m.z});
    expectOrientation(expected);
    if (HasFatalFailure()) return;
  }
  EXPECT_FALSE(std::isnan(q0));
}

TEST_F(MadgwickAHRSTest, HasTheBitsOfTheAlgorithmFromAnyStateAndForAnyReading) {
  RandomFloats random(61);
  for (int i = 0; i < 50000; ++i) {
    float n[13];
    for (float& value : n) value = random.awkward(2, 8);
    literal::Fusion expected;
    for (int k = 0; k < 4; ++k) expected.q[k] = n[9 + k];
    setOrientation(n[9], n[10], n[11], n[12]);
    MadgwickAHRSupdate(n[0], n[1], n[2], n[3], n[4], n[5], n[6], n[7], n[8]);
    expected.update({n[0], n[1], n[2]}, {n[3], n[4], n[5]}, {n[6], n[7], n[8]});
    expectOrientation(expected);
    if (HasFatalFailure()) return;
  }
}

// Readings of a sensor at rest in the orientation (w, x, y, z). In the world's frame gravity points
// along z, and the magnetic field along x and -z.
struct AtRest {
  double w, x, y, z;

  Vector3 seen(double fieldX, double fieldZ) const {
    const double xx[] = {1 - 2 * (y * y + z * z), 2 * (x * y - w * z), 2 * (x * z + w * y)};
    const double zz[] = {2 * (x * z - w * y), 2 * (y * z + w * x), 1 - 2 * (x * x + y * y)};
    return {static_cast<float>(fieldX * xx[0] + fieldZ * zz[0]),
            static_cast<float>(fieldX * xx[1] + fieldZ * zz[1]),
            static_cast<float>(fieldX * xx[2] + fieldZ * zz[2])};
  }
};

// The purpose of the filter: a wrong sign in one term of the gradient fails here.
TEST_F(MadgwickAHRSTest, NineAxesFindTheOrientationOfASensorAtRest) {
  const AtRest truth{0.8, 0.2, -0.4, 0.4};
  const Vector3 a = truth.seen(0, 1);
  const Vector3 m = truth.seen(20, -40);
  for (int i = 0; i < 3000; ++i) MadgwickAHRSupdate(0, 0, 0, a.x, a.y, a.z, m.x, m.y, m.z);
  const double cosine = truth.w * q0 + truth.x * q1 + truth.y * q2 + truth.z * q3;
  EXPECT_NEAR(std::abs(cosine), 1, 2e-3);
}

TEST_F(MadgwickAHRSTest, SixAxesFindTheTiltOfASensorAtRest) {
  const AtRest truth{0.8, 0.2, -0.4, 0.4};
  const Vector3 a = truth.seen(0, 1);
  for (int i = 0; i < 3000; ++i) MadgwickAHRSupdateIMU(0, 0, 0, a.x, a.y, a.z);
  const Vector3 found = AtRest{q0, q1, q2, q3}.seen(0, 1);
  EXPECT_NEAR(found.x, a.x, 0.01);
  EXPECT_NEAR(found.y, a.y, 0.01);
  EXPECT_NEAR(found.z, a.z, 0.01);
}

TEST_F(MadgwickAHRSTest, ARecordingHasTheBitsOfTheAlgorithmAndKeepsTheOrientationNormal) {
  const auto rows = readRecording("imu_135s_100hz.csv");
  ASSERT_EQ(rows.size(), 13514U);
  const float radians = std::numbers::pi_v<float> / 180.0F;
  literal::Fusion expected;
  for (const auto& row : rows) {
    ASSERT_EQ(row.size(), 10U);
    const Vector3 g = Vector3(row[1], row[2], row[3]).scale(radians);
    MadgwickAHRSupdate(g.x, g.y, g.z, row[4], row[5], row[6], row[7], row[8], row[9]);
    expected.update({g.x, g.y, g.z}, {row[4], row[5], row[6]}, {row[7], row[8], row[9]});
    expectOrientation(expected);
    if (HasFatalFailure()) return;
    ASSERT_NEAR(q0 * q0 + q1 * q1 + q2 * q2 + q3 * q3, 1, 2e-3);
  }
}

}  // namespace
