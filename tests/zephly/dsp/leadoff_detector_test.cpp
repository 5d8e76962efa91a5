// SPDX-License-Identifier: MIT
#include <zephly/dsp/leadoff_detector.h>

#include <tests/support/random_floats.h>
#include <tests/support/special_floats.h>
#include <tests/zephly/dsp/signals.h>

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstddef>
#include <vector>

namespace {

using Zephly::LeadoffDetector;

// Whether the range of the 70 samples of `all` that end at `newest` exceeds the threshold.
bool spans(const std::vector<float>& all, std::size_t newest) {
  const std::size_t oldest = newest < 69 ? 0 : newest - 69;
  float largest = all[oldest];
  float smallest = all[oldest];
  for (std::size_t i = oldest; i <= newest; ++i) {
    if (all[i] > largest) largest = all[i];
    if (all[i] < smallest) smallest = all[i];
  }
  const auto difference = static_cast<float>(static_cast<double>(largest) - smallest);
  return difference > std::bit_cast<float>(0x3C23D70AU);
}

void expectFollowsTheRule(const std::vector<float>& samples) {
  LeadoffDetector detector;
  for (std::size_t i = 0; i < samples.size(); ++i) {
    ASSERT_EQ(detector.process(samples[i]), spans(samples, i)) << "sample " << i;
  }
}

TEST(LeadoffDetectorTest, TheFirstSampleIsFlat) {
  LeadoffDetector detector;
  EXPECT_FALSE(detector.process(2.0F));
}

TEST(LeadoffDetectorTest, AnAmplitudeOfExactlyTheThresholdIsFlat) {
  LeadoffDetector detector;
  detector.process(0.0F);
  EXPECT_FALSE(detector.process(0.01F));
  LeadoffDetector other;
  other.process(0.0F);
  EXPECT_TRUE(other.process(0.0101F));
}

TEST(LeadoffDetectorTest, TheNextFloatAboveTheThresholdIsContact) {
  const LeadoffDetector detector;
  EXPECT_FALSE(detector.leadoffAmpltiudeDetection({0.01F, 0.0F}));
  EXPECT_TRUE(detector.leadoffAmpltiudeDetection({std::nextafter(0.01F, 1.0F), 0.0F}));
}

// In double precision these differ by more than the threshold; rounded to float they do not.
TEST(LeadoffDetectorTest, TheAmplitudeIsRoundedToSinglePrecision) {
  const float largest = 0.01F;
  const float smallest = -1e-12F;
  ASSERT_GT(static_cast<double>(largest) - smallest, static_cast<double>(0.01F));
  EXPECT_FALSE(LeadoffDetector().leadoffAmpltiudeDetection({smallest, largest}));
}

TEST(LeadoffDetectorTest, ASpikeCountsUntilSeventyLaterSamplesHavePushedItOut) {
  LeadoffDetector detector;
  for (int i = 0; i < 100; ++i) detector.process(0.5F);
  EXPECT_TRUE(detector.process(1.0F));
  for (int call = 1; call < 70; ++call) EXPECT_TRUE(detector.process(0.5F)) << call;
  EXPECT_FALSE(detector.process(0.5F));
}

TEST(LeadoffDetectorTest, ASpikeAsTheFirstSampleLeavesTheWindowToo) {
  LeadoffDetector detector;
  detector.process(1.0F);
  for (int call = 1; call < 70; ++call) EXPECT_TRUE(detector.process(0.5F)) << call;
  EXPECT_FALSE(detector.process(0.5F));
}

TEST(LeadoffDetectorTest, TheWindowNeverGrowsBeyondSeventy) {
  LeadoffDetector detector;
  for (int round = 0; round < 50; ++round) {
    EXPECT_TRUE(detector.process(1.0F) || round == 0);
    int contact = 0;
    for (int call = 0; call < 70 + round; ++call) contact += detector.process(0.0F) ? 1 : 0;
    EXPECT_EQ(contact, 69);
  }
}

TEST(LeadoffDetectorTest, AFlatSignalIsLeadOffWhateverItsLevel) {
  LeadoffDetector detector;
  for (int i = 0; i < 200; ++i) EXPECT_FALSE(detector.process(2.42F));
}

TEST(LeadoffDetectorTest, AmplitudeLooksAtAllOfALongVector) {
  std::vector<float> samples(500, 1.0F);
  const LeadoffDetector detector;
  EXPECT_FALSE(detector.leadoffAmpltiudeDetection(samples));
  samples.back() = 0.9F;
  EXPECT_TRUE(detector.leadoffAmpltiudeDetection(samples));
}

TEST(LeadoffDetectorTest, AnEmptyVectorHasNoAmplitude) {
  EXPECT_FALSE(LeadoffDetector().leadoffAmpltiudeDetection({}));
}

TEST(LeadoffDetectorTest, IgnoresNanUnlessItComesFirst) {
  const LeadoffDetector detector;
  EXPECT_TRUE(detector.leadoffAmpltiudeDetection({0.0F, notANumber, 1.0F, notANumber}));
  EXPECT_FALSE(detector.leadoffAmpltiudeDetection({0.0F, notANumber}));
  EXPECT_FALSE(detector.leadoffAmpltiudeDetection({notANumber, 0.0F, 1.0F}));
}

TEST(LeadoffDetectorTest, InfinitiesHaveAmplitudeExceptAmongThemselves) {
  const LeadoffDetector detector;
  EXPECT_TRUE(detector.leadoffAmpltiudeDetection({0.0F, infinity}));
  EXPECT_TRUE(detector.leadoffAmpltiudeDetection({infinity, -infinity}));
  EXPECT_FALSE(detector.leadoffAmpltiudeDetection({infinity, infinity}));
}

TEST(LeadoffDetectorTest, FollowsTheRuleOverABreathingPersonWithLooseElectrodes) {
  const std::vector<double> signal = respirationLike(20000, 44);
  expectFollowsTheRule(std::vector<float>(signal.begin(), signal.end()));
}

TEST(LeadoffDetectorTest, FollowsTheRuleNearTheThreshold) {
  RandomFloats random(45);
  std::vector<float> samples;
  samples.reserve(20000);
  for (int i = 0; i < 20000; ++i) {
    samples.push_back(random.within(i % 500 < 250 ? 0.00502F : 0.004F));
  }
  expectFollowsTheRule(samples);
}

TEST(LeadoffDetectorTest, FollowsTheRuleForAnySamples) {
  RandomFloats random(46);
  std::vector<float> samples;
  samples.reserve(20000);
  for (int i = 0; i < 20000; ++i) samples.push_back(random.awkward(0.005F, 30));
  expectFollowsTheRule(samples);
}

TEST(LeadoffDetectorTest, AnEmptyVectorIsNotSaturated) {
  EXPECT_FALSE(LeadoffDetector().leadoffSaturationDetection({}));
}

TEST(LeadoffDetectorTest, SaturationIsComparedInDoublePrecision) {
  const LeadoffDetector detector;
  EXPECT_TRUE(detector.leadoffSaturationDetection({2.4F}));
  EXPECT_FALSE(detector.leadoffSaturationDetection({std::nextafter(2.4F, 0.0F)}));
}

TEST(LeadoffDetectorTest, SaturationIsThatOfTheLargestSample) {
  const LeadoffDetector detector;
  EXPECT_TRUE(detector.leadoffSaturationDetection({0.0F, 2.41F, -1.0F}));
  EXPECT_FALSE(detector.leadoffSaturationDetection({0.0F, 2.39F, -3.0F}));
  EXPECT_FALSE(detector.leadoffSaturationDetection({notANumber, 3.0F}));
  EXPECT_TRUE(detector.leadoffSaturationDetection({3.0F, notANumber}));
}

}  // namespace
