// SPDX-License-Identifier: MIT
#include <zephly/motion/motion_detector.h>

#include <tests/support/bits.h>
#include <tests/support/captured_output.h>
#include <tests/support/random_floats.h>
#include <tests/support/special_floats.h>
#include <tests/zephly/motion/literal_motion.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <iostream>
#include <locale>
#include <sstream>
#include <string>
#include <vector>

namespace {

constexpr int down = 0;
constexpr int up = 1;
constexpr int still = 2;

// One orientation of each band: upside down, on its side, upright.
Quaternion orientationIn(int band) {
  if (band == 0) return {1, 0, 0, 0};
  if (band == 1) return {0.7071068F, 0, 0, 0.7071068F};
  return {0, 0, 0, 1};
}

// An acceleration of which only the component that is vertical in `band` is used.
Vector3 accelerationAlong(int band, float vertical) {
  return band == 1 ? Vector3(vertical, notANumber, notANumber)
                   : Vector3(notANumber, notANumber, vertical);
}

literal::Vector vector(const Vector3& v) { return {v.x, v.y, v.z}; }

// A detector whose repetitions are recorded as letters, and the reference implementation.
class MotionDetectorTest : public testing::Test {
 public:
  MotionDetectorTest() {
    detector.context = this;
    detector.pushUpCallback = [](void* self) {
      static_cast<MotionDetectorTest*>(self)->events += 'P';
    };
    detector.jumpCallback = [](void* self) {
      static_cast<MotionDetectorTest*>(self)->events += 'J';
    };
    detector.sitUpCallback = [](void* self) {
      static_cast<MotionDetectorTest*>(self)->events += 'S';
    };
  }

  // Feeds one sample in `band` that makes the heading `heading`. Returns the completed repetitions.
  std::string move(int band, int heading) {
    const float targets[] = {-0.05F, 0.05F, 0.0F};
    const float vertical = rule.accelerationFor(targets[heading], 30.0F);
    const Vector3 acceleration = accelerationAlong(band, vertical);
    const Quaternion orientation = orientationIn(band);
    const literal::Detection expected =
        rule.process(literal::rotation(orientation), vector(acceleration), 30.0F);
    EXPECT_EQ(expected.band, band);
    EXPECT_EQ(expected.heading, heading);
    return process(orientation, acceleration, 30.0F);
  }

  std::string process(const Quaternion& orientation, const Vector3& acceleration, float rate) {
    events.clear();
    detector.process(orientation, acceleration, rate);
    return events;
  }

  // The diagnostic lines since the last call.
  std::string lines() {
    const std::string all = output.text();
    std::string fresh = all.substr(seen);
    seen = all.size();
    return fresh;
  }

  Zephly::MotionDetector detector;
  literal::Detector rule;
  std::string events;
  CapturedOutput output;

 private:
  std::size_t seen = 0;
};

TEST_F(MotionDetectorTest, TakesTheBandFromTheUpVector) {
  EXPECT_EQ(detector.determineVerticalOrientation(orientationIn(0)), 0);
  EXPECT_EQ(detector.determineVerticalOrientation(orientationIn(1)), 1);
  EXPECT_EQ(detector.determineVerticalOrientation(orientationIn(2)), 2);
}

// For (x, 0, 0, w) the up vector's z is w^2 - x^2, which is exact here.
TEST_F(MotionDetectorTest, BandLimitsBelongToTheOuterBands) {
  EXPECT_EQ(Quaternion(0.25F, 0, 0, 0.75F).normalVectorToUp().z, 0.5F);
  EXPECT_EQ(detector.determineVerticalOrientation(Quaternion(0.25F, 0, 0, 0.75F)), 2);
  EXPECT_EQ(Quaternion(0.75F, 0, 0, 0.25F).normalVectorToUp().z, -0.5F);
  EXPECT_EQ(detector.determineVerticalOrientation(Quaternion(0.75F, 0, 0, 0.25F)), 0);
}

TEST_F(MotionDetectorTest, JustInsideTheLimitsIsHorizontal) {
  const float root = std::sqrt(0.4999F);
  EXPECT_EQ(detector.determineVerticalOrientation(Quaternion(0, 0, 0, root)), 1);
  EXPECT_EQ(detector.determineVerticalOrientation(Quaternion(root, 0, 0, 0)), 1);
  const float closest = 0.70710677F;
  EXPECT_LT(Quaternion(0, 0, 0, closest).normalVectorToUp().z, 0.5F);
  EXPECT_GT(Quaternion(0, 0, 0, closest).normalVectorToUp().z, 0.4999999F);
  EXPECT_EQ(detector.determineVerticalOrientation(Quaternion(0, 0, 0, closest)), 1);
  EXPECT_EQ(detector.determineVerticalOrientation(Quaternion(closest, 0, 0, 0)), 1);
}

TEST_F(MotionDetectorTest, ANanOrientationIsHorizontal) {
  EXPECT_EQ(detector.determineVerticalOrientation(Quaternion(0, 0, 0, notANumber)), 1);
  EXPECT_EQ(detector.determineVerticalOrientation(Quaternion()), 1);
}

TEST_F(MotionDetectorTest, BandsFollowTheRuleForAnyOrientation) {
  RandomFloats random(62);
  for (int i = 0; i < 100000; ++i) {
    float n[4];
    for (float& value : n) value = random.awkward(1, 10);
    const Quaternion q(n[0], n[1], n[2], n[3]);
    ASSERT_EQ(detector.determineVerticalOrientation(q),
              literal::Detector::band(literal::rotation(q)));
  }
}

TEST_F(MotionDetectorTest, AStillDeviceReportsNothing) {
  for (const int band : {2, 0, 2, 1, 2, 0}) {
    for (int i = 0; i < 50; ++i) {
      ASSERT_EQ(process(orientationIn(band), Vector3(0, 0, 0), 30.0F), "");
      ASSERT_EQ(lines(), "0, 0\n");
    }
  }
}

TEST_F(MotionDetectorTest, CountsAPushUpAtTheTurnFromDownToUp) {
  EXPECT_EQ(move(2, down), "");
  EXPECT_EQ(move(2, still), "");
  EXPECT_EQ(move(2, still), "");
  EXPECT_EQ(move(2, up), "P");
  EXPECT_EQ(move(2, up), "");
  EXPECT_EQ(move(2, still), "");
  EXPECT_EQ(move(2, up), "");
  EXPECT_EQ(move(2, down), "");
  EXPECT_EQ(move(2, up), "P");
}

TEST_F(MotionDetectorTest, CountsPushUpsOnlyWhileUpPointsUp) {
  for (const int band : {0, 1}) {
    move(band, down);
    EXPECT_EQ(move(band, up), "") << band;
  }
}

TEST_F(MotionDetectorTest, ADownwardMovementInAnotherBandStillBeginsAPushUp) {
  EXPECT_EQ(move(0, down), "");
  EXPECT_EQ(move(2, up), "P");
}

TEST_F(MotionDetectorTest, CountsAJumpAtTheTurnFromUpToDown) {
  EXPECT_EQ(move(1, up), "");
  EXPECT_EQ(move(1, still), "");
  EXPECT_EQ(move(1, down), "J");
  EXPECT_EQ(move(1, down), "");
  EXPECT_EQ(move(1, still), "");
  EXPECT_EQ(move(1, up), "");
  EXPECT_EQ(move(1, down), "J");
}

TEST_F(MotionDetectorTest, CountsJumpsOnlyInTheHorizontalBand) {
  for (const int band : {0, 2}) {
    move(band, up);
    EXPECT_EQ(move(band, down), "") << band;
  }
}

TEST_F(MotionDetectorTest, TheFirstMovementReportsNothing) {
  EXPECT_EQ(move(2, up), "");
  Zephly::MotionDetector other;
  other.process(orientationIn(1), accelerationAlong(1, -100.0F), 30.0F);
}

TEST_F(MotionDetectorTest, CountsASitUpOnReturnToTheHorizontalBand) {
  EXPECT_EQ(move(1, still), "");
  EXPECT_EQ(move(0, still), "");
  EXPECT_EQ(move(0, still), "");
  EXPECT_EQ(move(1, still), "S");
  EXPECT_EQ(move(1, still), "");
  EXPECT_EQ(move(0, still), "");
  EXPECT_EQ(move(1, still), "S");
}

TEST_F(MotionDetectorTest, CountsNoSitUpWhenTheStayBeganFromUpright) {
  EXPECT_EQ(move(2, still), "");
  EXPECT_EQ(move(0, still), "");
  EXPECT_EQ(move(1, still), "");
}

TEST_F(MotionDetectorTest, CountsNoSitUpWhenTheStayEndsUpright) {
  EXPECT_EQ(move(1, still), "");
  EXPECT_EQ(move(0, still), "");
  EXPECT_EQ(move(2, still), "");
  EXPECT_EQ(move(1, still), "");
}

TEST_F(MotionDetectorTest, TheFirstSamplesCountNoSitUpWhateverTheirBand) {
  EXPECT_EQ(move(0, still), "");
  EXPECT_EQ(move(1, still), "");
}

TEST_F(MotionDetectorTest, OneSampleCompletesAJumpAndThenASitUp) {
  EXPECT_EQ(move(1, still), "");
  EXPECT_EQ(move(0, up), "");
  EXPECT_EQ(move(1, down), "JS");
}

TEST_F(MotionDetectorTest, PassesItsContextToEveryCallback) {
  std::vector<void*> contexts;
  detector.context = &contexts;
  const auto note = [](void* context) {
    static_cast<std::vector<void*>*>(context)->push_back(context);
  };
  detector.pushUpCallback = note;
  detector.jumpCallback = note;
  detector.sitUpCallback = note;
  move(1, still);
  move(0, up);
  move(1, down);
  move(2, up);
  EXPECT_EQ(contexts, std::vector<void*>(3, &contexts));
}

TEST_F(MotionDetectorTest, WritesOneLineBeforeItsCallbacks) {
  move(1, up);
  lines();
  detector.jumpCallback = [](void* self) {
    static_cast<MotionDetectorTest*>(self)->events =
        static_cast<MotionDetectorTest*>(self)->lines();
  };
  const std::string written = move(1, down);
  EXPECT_EQ(std::count(written.begin(), written.end(), '\n'), 1);
  EXPECT_EQ(lines(), "");
}

TEST_F(MotionDetectorTest, WritesTheLineOfEverySample) {
  const literal::Detection expected =
      rule.process(literal::rotation(orientationIn(2)), {0.0F, 0.0F, 1.0F}, 30.0F);
  process(orientationIn(2), Vector3(0, 0, 1), 30.0F);
  EXPECT_EQ(lines(), expected.line);
  std::string line;
  rule.heading(-0.3F, 30.0F, line);
  detector.determineVerticalHeading(-0.3F, 30.0F);
  EXPECT_EQ(lines(), line);
}

// Keeps the text written up to the latest flush.
class FlushedText : public std::stringbuf {
 public:
  std::string text;

 protected:
  int sync() override {
    text = str();
    return 0;
  }
};

TEST_F(MotionDetectorTest, FlushesTheLineOfEverySample) {
  FlushedText flushed;
  std::streambuf* const before = std::cout.rdbuf(&flushed);
  std::string expected;
  for (const float acceleration : {1.0F, -0.3F}) {
    std::string line;
    rule.heading(acceleration, 30.0F, line);
    expected += line;
    detector.determineVerticalHeading(acceleration, 30.0F);
    EXPECT_EQ(flushed.text, expected);
  }
  std::cout.rdbuf(before);
}

TEST_F(MotionDetectorTest, ItsLinesAreIndependentOfTheFormatOfStandardOutput) {
  struct Comma : std::numpunct<char> {
    char do_decimal_point() const override { return ','; }
  };
  std::ostream before(nullptr);
  before.copyfmt(std::cout);
  std::cout.imbue(std::locale(std::locale::classic(), new Comma));
  std::cout << std::fixed << std::setprecision(2) << std::showpos << std::setw(30);
  std::string line;
  rule.heading(1.5F, 30.0F, line);
  detector.determineVerticalHeading(1.5F, 30.0F);
  std::cout.copyfmt(before);
  EXPECT_EQ(lines(), line);
  EXPECT_EQ(line.find('+'), std::string::npos);
}

// The largest displacement inside the dead band is the float nearest to 0.01, which is less than
// 0.01.
TEST_F(MotionDetectorTest, TheDeadBandEndsBetweenTwoFloats) {
  const float inside = 0.01F;
  const float outside = std::nextafter(inside, 1.0F);
  bool sawInside = false;
  bool sawOutside = false;
  float acceleration = rule.accelerationFor(inside, 1.0F) * 0.99999F;
  for (int i = 0; i < 400; ++i) {
    acceleration = std::nextafter(acceleration, 1.0F);
    const float displacement = rule.displacementAfter(acceleration, 1.0F);
    if (displacement != inside && displacement != outside) continue;
    const bool isInside = displacement == inside;
    (isInside ? sawInside : sawOutside) = true;
    Zephly::MotionDetector rising;
    Zephly::MotionDetector falling;
    EXPECT_EQ(rising.determineVerticalHeading(acceleration, 1.0F), isInside ? still : up);
    EXPECT_EQ(falling.determineVerticalHeading(-acceleration, 1.0F), isInside ? still : down);
  }
  EXPECT_TRUE(sawInside);
  EXPECT_TRUE(sawOutside);
}

TEST_F(MotionDetectorTest, ANanDisplacementIsStillAndStaysNan) {
  EXPECT_EQ(detector.determineVerticalHeading(notANumber, 30.0F), still);
  EXPECT_EQ(detector.determineVerticalHeading(100.0F, 30.0F), still);
}

TEST_F(MotionDetectorTest, RecoversFromANanOrientationButNotFromANanAcceleration) {
  EXPECT_EQ(process(Quaternion(0, 0, 0, notANumber), Vector3(0, 0, 0), 30.0F), "");
  EXPECT_EQ(move(0, still), "");
  EXPECT_EQ(move(1, still), "S");  // the unknown orientation counted as horizontal
  EXPECT_EQ(process(orientationIn(2), Vector3(0, 0, infinity), 30.0F), "");
  EXPECT_EQ(process(orientationIn(2), Vector3(0, 0, -100), 30.0F), "");
  EXPECT_EQ(process(orientationIn(2), Vector3(0, 0, 100), 30.0F), "");
}

TEST_F(MotionDetectorTest, FollowsTheRuleThroughAnySequenceOfBandsAndHeadings) {
  RandomFloats random(63);
  std::string all;
  int band = 2;
  for (int i = 0; i < 20000; ++i) {
    if (random.below(4) == 0) band = static_cast<int>(random.below(3));
    const int heading = static_cast<int>(random.below(3));
    const float targets[] = {-0.02F, 0.02F, 0.0F};
    const Vector3 acceleration =
        accelerationAlong(band, rule.accelerationFor(targets[heading], 30.0F));
    const Quaternion q = orientationIn(band);
    const literal::Detection expected =
        rule.process(literal::rotation(q), vector(acceleration), 30.0F);
    ASSERT_EQ(process(q, acceleration, 30.0F), expected.events) << "sample " << i;
    ASSERT_EQ(lines(), expected.line) << "sample " << i;
    all += expected.events;
  }
  for (const char kind : {'P', 'J', 'S'}) EXPECT_GT(std::count(all.begin(), all.end(), kind), 50);
}

TEST_F(MotionDetectorTest, FollowsTheRuleForAnyInputAndRate) {
  RandomFloats random(64);
  for (int run = 0; run < 200; ++run) {
    Zephly::MotionDetector fresh;
    fresh.context = detector.context;
    fresh.pushUpCallback = detector.pushUpCallback;
    fresh.jumpCallback = detector.jumpCallback;
    fresh.sitUpCallback = detector.sitUpCallback;
    literal::Detector freshRule;
    for (int i = 0; i < 100; ++i) {
      float n[8];
      for (float& value : n) value = random.awkward(3, 200);
      const Quaternion q(n[0], n[1], n[2], n[3]);
      const Vector3 a(n[4], n[5], n[6]);
      const float rate = run % 2 == 0 ? 30.0F : n[7];
      const literal::Detection expected = freshRule.process(literal::rotation(q), vector(a), rate);
      events.clear();
      fresh.process(q, a, rate);
      ASSERT_EQ(events, expected.events) << "run " << run << ", sample " << i;
      // The sign of a NaN is unspecified.
      if (expected.line.find("nan") == std::string::npos) {
        ASSERT_EQ(lines(), expected.line) << "run " << run << ", sample " << i;
      } else {
        ASSERT_NE(lines().find("nan"), std::string::npos) << "run " << run << ", sample " << i;
      }
    }
  }
}

using MotionDetectorDeathTest = MotionDetectorTest;

TEST_F(MotionDetectorDeathTest, APushUpWithoutItsCallbackIsFatal) {
  detector.pushUpCallback = Zephly::MotionDetector().pushUpCallback;
  move(2, down);
  EXPECT_DEATH(move(2, up), "pushUpCallback");
}

TEST_F(MotionDetectorDeathTest, AJumpWithoutItsCallbackIsFatal) {
  detector.jumpCallback = Zephly::MotionDetector().jumpCallback;
  move(1, up);
  EXPECT_DEATH(move(1, down), "jumpCallback");
}

TEST_F(MotionDetectorDeathTest, ASitUpWithoutItsCallbackIsFatal) {
  detector.sitUpCallback = Zephly::MotionDetector().sitUpCallback;
  move(1, still);
  move(0, still);
  EXPECT_DEATH(move(1, still), "sitUpCallback");
}

}  // namespace
