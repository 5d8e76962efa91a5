// SPDX-License-Identifier: MIT
#include <simulator/resampler.h>

#include <simulator/random.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <vector>

namespace Zephly::simulator {
namespace {

using std::numbers::pi;
using testing::DoubleNear;
using testing::ElementsAre;
using testing::IsEmpty;

std::vector<double> sine(double frequency, double rate, std::size_t count) {
  std::vector<double> samples;
  for (std::size_t i = 0; i < count; ++i)
    samples.push_back(std::sin(2 * pi * frequency * (static_cast<double>(i) + 0.5) / rate));
  return samples;
}

TEST(ResamplerTest, CountsAreRoundedToTheNearest) {
  EXPECT_EQ(resampledCount(30'000, 100, 500), 150'000U);
  EXPECT_EQ(resampledCount(13'514, 100, 30), 4054U);  // 4054.2
  EXPECT_EQ(resampledCount(3, 100, 50), 2U);          // 1.5
  EXPECT_EQ(resampledCount(7, 99.5, 500), 35U);       // 35.2
  EXPECT_EQ(resampledCount(1, 1000, 1), 1U);          // at least one for a non-empty input
  EXPECT_EQ(resampledCount(0, 100, 500), 0U);
}

TEST(ResamplerTest, ProducesAsManyOutputsAsItCounts) {
  for (const std::size_t rows : {1U, 2U, 3U, 10U, 1001U})
    for (const double from : {0.5, 1.0, 29.97, 100.0, 499.0, 500.0, 512.0, 44'100.0})
      for (const double to : {1.0, 30.0, 500.0})
        EXPECT_EQ(resample(std::vector<double>(rows, 1), from, to).size(),
                  resampledCount(rows, from, to));
  EXPECT_THAT(resample({}, 100, 500), IsEmpty());
}

TEST(ResamplerTest, EqualRatesChangeNothing) {
  Random random(1);
  std::vector<double> rows(1000);
  for (double& row : rows) row = random.normal();
  EXPECT_EQ(resample(rows, 500, 500), rows);
}

TEST(ResamplerTest, UpsamplingInterpolatesLinearlyAndHoldsTheEnds) {
  const auto near = [](double value) { return DoubleNear(value, 1e-12); };
  EXPECT_THAT(resample({0, 4}, 1, 4), ElementsAre(near(0), near(0), near(0.5), near(1.5), near(2.5),
                                                  near(3.5), near(4), near(4)));
}

TEST(ResamplerTest, DownsamplingIsAMeanWeightedByATriangle) {
  // Output 1 of 4 -> 2 is centred between rows 2 and 3, and reaches two rows each way.
  const std::vector<double> outputs = resample({1, 2, 4, 8}, 4, 2);
  ASSERT_EQ(outputs.size(), 2U);
  EXPECT_NEAR(outputs[0], (1.5 * 1 + 1.5 * 2 + 0.5 * 4) / 3.5, 1e-12);
  EXPECT_NEAR(outputs[1], (0.5 * 2 + 1.5 * 4 + 1.5 * 8) / 3.5, 1e-12);
}

TEST(ResamplerTest, EveryRowCounts) {
  for (const double from : {10.0, 99.0, 100.0, 731.0, 5000.0}) {
    for (const double to : {30.0, 500.0}) {
      for (std::size_t row = 0; row < 200; ++row) {
        std::vector<double> rows(200, 0);
        rows[row] = 1;
        double sum = 0;
        for (const double output : resample(rows, from, to)) sum += output;
        ASSERT_GT(sum, 0) << "row " << row << " from " << from << " to " << to;
      }
    }
  }
}

TEST(ResamplerTest, KeepsAConstant) {
  for (const double from : {10.0, 100.0, 731.0})
    for (const double output : resample(std::vector<double>(500, 2.5), from, 30))
      ASSERT_NEAR(output, 2.5, 1e-12);
}

TEST(ResamplerTest, DoesNotDelayASlowSine) {
  const std::vector<double> expected = sine(1, 500, 5000);
  const std::vector<double> outputs = resample(sine(1, 100, 1000), 100, 500);
  ASSERT_EQ(outputs.size(), expected.size());
  for (std::size_t i = 5; i + 5 < outputs.size(); ++i) ASSERT_NEAR(outputs[i], expected[i], 0.002);
}

TEST(ResamplerTest, AttenuatesFrequenciesAboveTheLowerRate) {
  // Without the filter, 47 Hz would alias to 13 Hz at 30 samples per second.
  double most = 0;
  for (const double output : resample(sine(47, 500, 5000), 500, 30))
    most = std::max(most, std::abs(output));
  EXPECT_LT(most, 0.2);
}

}  // namespace
}  // namespace Zephly::simulator
