// SPDX-License-Identifier: MIT
#include <hosts/replay/samples.h>

#include <tests/support/long_run.h>
#include <zephly/dsp/respiration_filter.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cmath>
#include <complex>
#include <numbers>
#include <span>
#include <utility>
#include <vector>

namespace Zephly::replay {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::Pair;

TEST(SamplesTest, ColumnsHaveTheirUnits) {
  EXPECT_THAT(columnsOf(Stream::ecg), ElementsAre("ecg_mV"));
  EXPECT_THAT(columnsOf(Stream::respiration), ElementsAre("raw", "processed"));
  EXPECT_THAT(columnsOf(Stream::temperature),
              ElementsAre("skin_degC", "ambient_degC", "body_estimate_degC"));
  EXPECT_THAT(columnsOf(Stream::battery), ElementsAre("charge_percent", "charging"));
  EXPECT_THAT(columnsOf(Stream::motion),
              ElementsAre("qw", "qx", "qy", "qz", "ax_g", "ay_g", "az_g"));
}

TEST(SamplesTest, EachSampleHasAValueForEachColumn) {
  const PlayedRecord all{.ecg = {1, 2},
                         .respiration = {{3, 4}},
                         .temperature = TemperatureSample{5, 6, 7.0F},
                         .battery = BatteryStatus{8, true},
                         .motion = FrameDecoders::Motion{1, 2, 3, 4, 5, 6, 7}};
  std::vector<std::pair<Stream, std::vector<float>>> rows;
  forEachSample(all, [&](Stream stream, std::span<const float> row) {
    rows.emplace_back(stream, std::vector<float>(row.begin(), row.end()));
    EXPECT_EQ(row.size(), columnsOf(stream).size());
  });
  using Row = std::vector<float>;
  EXPECT_THAT(rows, ElementsAre(Pair(Stream::ecg, Row{1}), Pair(Stream::ecg, Row{2}),
                                Pair(Stream::respiration, Row{3, 4}),
                                Pair(Stream::temperature, Row{5, 6, 7}),
                                Pair(Stream::motion, Row{1, 2, 3, 4, 5, 6, 7}),
                                Pair(Stream::battery, Row{8, 1})));
}

TEST(SamplesTest, AValueThatDoesNotExistIsNaN) {
  const PlayedRecord record{.temperature = TemperatureSample{5, 6, std::nullopt}};
  std::vector<float> row;
  forEachSample(record, [&](Stream /*stream*/, std::span<const float> values) {
    row.assign(values.begin(), values.end());
  });
  ASSERT_EQ(row.size(), 3U);
  EXPECT_EQ(row[1], 6);
  EXPECT_TRUE(std::isnan(row[2]));
}

// By how much the filtered sine is later than the sine, in seconds.
double delayOfASine(double frequency) {
  constexpr double rate = 500;
  const auto period = static_cast<int>(std::lround(rate / frequency));
  const int settled = 30 * static_cast<int>(rate);  // the high-pass and the normalisation
  RespirationFilter filter;
  std::complex<double> sum;
  for (int n = 0; n < settled + 3 * period; ++n) {
    const double angle = 2 * std::numbers::pi * n / period;
    const auto out = static_cast<double>(filter.process(static_cast<float>(std::sin(angle))));
    if (n >= settled) sum += std::polar(out, -angle);
  }
  // A sine without delay has the phase -90 degrees of a cosine.
  const double lag = -std::numbers::pi / 2 - std::arg(sum);
  return std::remainder(lag, 2 * std::numbers::pi) / (2 * std::numbers::pi) * period / rate;
}

// As docs/export.md promises.
TEST(SamplesTest, TheProcessedDelayIsRightToATenthOfASecondFrom13To40BreathsAMinute) {
  const double delay = std::chrono::duration<double>(processedDelay).count();
  constexpr std::array breathsAMinute = {13.0, 20.0, 40.0};
  for (const double breaths : std::span(breathsAMinute).last(longRun<std::size_t>(3, 1))) {
    EXPECT_NEAR(delayOfASine(breaths / 60), delay, 0.1) << breaths << " breaths a minute";
  }
  EXPECT_NEAR(delayOfASine(15.0 / 60), 0.608, 0.002);
  EXPECT_NEAR(delayOfASine(30.0 / 60), 0.724, 0.002);
}

}  // namespace
}  // namespace Zephly::replay
