// SPDX-License-Identifier: MIT
#include <simulator/frame_encoder.h>

#include <simulator/random.h>
#include <tests/simulator/literal_decoding.h>
#include <tests/support/long_run.h>
#include <tests/support/special_floats.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <vector>

namespace Zephly::simulator {
namespace {

using literal::Bytes;
using testing::ElementsAre;

TEST(FrameEncoderWaveformTest, WritesSamplesLeastSignificantByteFirst) {
  const Bytes bytes = encodeWaveform({literal::sampleOf(1), literal::sampleOf(-1), -2.42F, 2.42F,
                                      0.0F, literal::sampleOf(0x123456)});
  EXPECT_THAT(bytes, ElementsAre(1, 0, 0, 0xFF, 0xFF, 0xFF, 0, 0, 0x80, 0xFF, 0xFF, 0x7F, 0, 0, 0,
                                 0x56, 0x34, 0x12));
}

TEST(FrameEncoderWaveformTest, ReproducesEveryRawSample) {
  // All 2^24 values, six per frame.
  for (std::int64_t raw = -8388608; raw <= 8388607; raw += longRun(6, 66)) {
    std::array<float, 6> values{};
    for (std::int64_t i = 0; i < 6; ++i)
      values.at(static_cast<std::size_t>(i)) =
          literal::sampleOf(std::min<std::int64_t>(raw + i, 8388607));
    const Bytes bytes = encodeWaveform(values);
    for (std::int64_t i = 0; i < 6; ++i)
      ASSERT_EQ(literal::rawSample(bytes, static_cast<std::size_t>(i)),
                std::min<std::int64_t>(raw + i, 8388607));
  }
}

TEST(FrameEncoderWaveformTest, IsWithinHalfAStepOfAnySampleInRange) {
  Random random(1);
  const double step = static_cast<double>(2.42F) / 8388608;
  for (int i = 0; i < 100'000; ++i) {
    const auto sample = static_cast<float>(random.uniform(-2.42, 2.4199));
    const auto raw = literal::rawSample(encodeWaveform({sample, 0, 0, 0, 0, 0}), 0);
    ASSERT_NEAR(static_cast<double>(raw) * step, static_cast<double>(sample),
                step / 2 * (1 + 1e-9));
    // Half a step plus the decoder's rounding to float.
    ASSERT_NEAR(static_cast<double>(literal::sampleOf(raw)), static_cast<double>(sample),
                step / 2 + 0x1p-23);
  }
}

TEST(FrameEncoderWaveformTest, SaturatesAndNeverWraps) {
  const Bytes bytes = encodeWaveform({2.5F, -2.5F, infinity, -infinity, 3.4e38F, -3.4e38F});
  for (std::size_t i = 0; i < 6; ++i)
    EXPECT_EQ(literal::rawSample(bytes, i), i % 2 == 0 ? 8388607 : -8388608) << i;
}

TEST(FrameEncoderWaveformTest, EncodesNanAsZero) {
  const Bytes bytes = encodeWaveform({notANumber, 1, 1, 1, 1, 1});
  EXPECT_EQ(literal::rawSample(bytes, 0), 0);
  EXPECT_NE(literal::rawSample(bytes, 1), 0);
}

TEST(FrameEncoderWaveformTest, ReportsWhetherASampleSaturates) {
  EXPECT_FALSE(waveformSaturates(-2.42F));
  EXPECT_FALSE(waveformSaturates(literal::sampleOf(8388607)));
  EXPECT_TRUE(waveformSaturates(2.42F));  // one step too many
  EXPECT_TRUE(waveformSaturates(-2.43F));
  EXPECT_TRUE(waveformSaturates(notANumber));
  EXPECT_TRUE(waveformSaturates(-infinity));
}

TEST(FrameEncoderTemperatureTest, ReproducesEveryRawTemperature) {
  for (std::uint64_t raw = 0; raw <= 65535; ++raw) {
    const std::uint64_t other = 65535 - raw;
    const Bytes bytes = encodeTemperature(static_cast<double>(literal::celsiusOf(raw)),
                                          static_cast<double>(literal::celsiusOf(other)));
    ASSERT_EQ(bytes.size(), 4U);
    ASSERT_EQ(literal::littleEndian(bytes, 0, 2), raw);
    ASSERT_EQ(literal::littleEndian(bytes, 2, 2), other);
  }
}

TEST(FrameEncoderTemperatureTest, IsWithinHalfAStep) {
  Random random(2);
  for (int i = 0; i < 100'000; ++i) {
    const double skin = random.uniform(-273, 1037);
    const double ambient = random.uniform(-40, 60);
    const Bytes bytes = encodeTemperature(skin, ambient);
    ASSERT_NEAR(static_cast<double>(literal::celsiusOf(literal::littleEndian(bytes, 0, 2))), skin,
                0.0102);
    ASSERT_NEAR(static_cast<double>(literal::celsiusOf(literal::littleEndian(bytes, 2, 2))),
                ambient, 0.0101);
  }
}

TEST(FrameEncoderTemperatureTest, SaturatesAndNeverWraps) {
  EXPECT_THAT(encodeTemperature(-300, 1100), ElementsAre(0, 0, 0xFF, 0xFF));
  EXPECT_THAT(encodeTemperature(infinity, -infinity), ElementsAre(0xFF, 0xFF, 0, 0));
  EXPECT_THAT(encodeTemperature(notANumber, 25.15), ElementsAre(0, 0, 0x43, 0x3A));
  EXPECT_TRUE(temperatureSaturates(-273.2));
  EXPECT_TRUE(temperatureSaturates(1037.57));
  EXPECT_TRUE(temperatureSaturates(notANumber));
  EXPECT_FALSE(temperatureSaturates(-273.15));
  EXPECT_FALSE(temperatureSaturates(1037.55));
}

TEST(FrameEncoderBatteryTest, ReproducesEveryRawCharge) {
  for (std::uint64_t raw = 0; raw <= 65535; ++raw) {
    const Bytes bytes = encodeBattery(static_cast<double>(literal::percentOf(raw)), raw % 2 == 1);
    ASSERT_EQ(bytes.size(), 3U);
    ASSERT_EQ(literal::littleEndian(bytes, 0, 2), raw);
    ASSERT_EQ(bytes[2], raw % 2);
  }
}

TEST(FrameEncoderBatteryTest, RoundsToTenthsAndSaturates) {
  EXPECT_THAT(encodeBattery(100, false), ElementsAre(0xE8, 3, 0));
  EXPECT_THAT(encodeBattery(87.64, true), ElementsAre(0x6C, 3, 1));
  EXPECT_THAT(encodeBattery(-1, true), ElementsAre(0, 0, 1));
  EXPECT_THAT(encodeBattery(7000, false), ElementsAre(0xFF, 0xFF, 0));
  EXPECT_THAT(encodeBattery(notANumber, false), ElementsAre(0, 0, 0));
}

TEST(FrameEncoderMotionTest, WritesValuesMostSignificantByteFirst) {
  EXPECT_THAT(encodeMotion({{1, 0, -0.5, 0.25}, {1, -0x1p-16, 0x1.2345678p8}}),
              ElementsAre(0x40, 0, 0, 0, 0xE0, 0, 0x10, 0, 0, 1, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF, 1,
                          0x23, 0x45, 0x68));
}

TEST(FrameEncoderMotionTest, ReproducesEveryRawOrientation) {
  for (std::int64_t raw = -32768; raw <= 32767; ++raw) {
    const double value = static_cast<double>(raw) / 16384;
    const Bytes bytes = encodeMotion({{value, -value, 0, value}, {0, 0, 0}});
    ASSERT_EQ(literal::signedInteger(literal::bigEndian(bytes, 0, 2), 2), raw);
    ASSERT_EQ(literal::signedInteger(literal::bigEndian(bytes, 2, 2), 2),
              std::min<std::int64_t>(-raw, 32767));
    ASSERT_EQ(literal::signedInteger(literal::bigEndian(bytes, 6, 2), 2), raw);
  }
}

TEST(FrameEncoderMotionTest, ReproducesRawAccelerations) {
  Random random(3);
  std::vector<std::int64_t> raws = {-2147483648, -2147483647, -1, 0, 1, 2147483646, 2147483647};
  for (int i = 0; i < 100'000; ++i)
    raws.push_back(static_cast<std::int64_t>(random.below(1ULL << 32U)) - 2147483648);
  for (const std::int64_t raw : raws) {
    const double value = static_cast<double>(raw) / 65536;
    const Bytes bytes = encodeMotion({{1, 0, 0, 0}, {value, 0, value}});
    ASSERT_EQ(literal::signedInteger(literal::bigEndian(bytes, 8, 4), 4), raw);
    ASSERT_EQ(literal::signedInteger(literal::bigEndian(bytes, 16, 4), 4), raw);
  }
}

TEST(FrameEncoderMotionTest, IsWithinHalfAStep) {
  Random random(4);
  for (int i = 0; i < 100'000; ++i) {
    MotionReading reading{};
    for (double& part : reading.orientation) part = random.uniform(-1, 1);
    for (double& part : reading.acceleration) part = random.uniform(-16, 16);
    const auto decoded = literal::motion(encodeMotion(reading));
    for (std::size_t k = 0; k < 4; ++k)
      ASSERT_NEAR(static_cast<double>(decoded.at(k)), reading.orientation.at(k), 0x1p-15);
    for (std::size_t k = 0; k < 3; ++k)
      ASSERT_NEAR(static_cast<double>(decoded.at(4 + k)), reading.acceleration.at(k), 0x1p-17);
  }
}

TEST(FrameEncoderMotionTest, SaturatesAndNeverWraps) {
  EXPECT_THAT(encodeMotion({{2, -3, infinity, notANumber}, {32768, -infinity, notANumber}}),
              ElementsAre(0x7F, 0xFF, 0x80, 0, 0x7F, 0xFF, 0, 0, 0x7F, 0xFF, 0xFF, 0xFF, 0x80, 0, 0,
                          0, 0, 0, 0, 0));
  EXPECT_FALSE(motionSaturates({{1, 0, 0, 0}, {0, 0, 1}}));
  EXPECT_TRUE(motionSaturates({{2, 0, 0, 0}, {0, 0, 1}}));
  EXPECT_TRUE(motionSaturates({{1, 0, 0, 0}, {0, -40000, 1}}));
  EXPECT_TRUE(motionSaturates({{1, 0, 0, 0}, {0, notANumber, 1}}));
}

}  // namespace
}  // namespace Zephly::simulator
