// SPDX-License-Identifier: MIT
#include <zephly/protocol/frame_decoders.h>

#include <hosts/foundation/data.h>
#include <tests/support/bits.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

namespace {

using FrameDecoders::calculateBatterySOCValue;
using FrameDecoders::calculateECGValue;
using FrameDecoders::calculateMotionValue;
using FrameDecoders::calculateTemperatureValue;
using Bytes = std::vector<std::uint8_t>;
using Zephly::hosts::Data;

TEST(FrameDecodersECGTest, Example) {
  const Data frame({0x01, 0, 0, 0xFF, 0xFF, 0xFF, 0, 0, 0x80, 0xFF, 0xFF, 0x7F, 0, 0, 0, 0, 0, 0});
  EXPECT_THAT(calculateECGValue(frame),
              testing::ElementsAre(SameBits(0.00000028848649f), SameBits(-0.00000028848649f),
                                   SameBits(-2.42000008f), SameBits(2.41999984f), SameBits(0.0f),
                                   SameBits(0.0f)));
}

TEST(FrameDecodersECGTest, NineBytesStillGiveSixSamples) {
  const Data frame({0, 0, 0x40, 0, 0, 0x40, 0, 0, 0x40});
  EXPECT_THAT(calculateECGValue(frame),
              testing::ElementsAre(SameBits(1.21f), SameBits(1.21f), SameBits(1.21f),
                                   SameBits(0.0f), SameBits(0.0f), SameBits(0.0f)));
}

TEST(FrameDecodersECGTest, ATruncatedSampleKeepsItsLowBytes) {
  EXPECT_SAME_BITS(calculateECGValue(Data({0x00, 0x01}))[0], 256.0f / 8388608.0f * 2.42f);
}

TEST(FrameDecodersTemperatureTest, Examples) {
  const auto reading = calculateTemperatureValue(Data({0x43, 0x3A, 0, 0}));
  EXPECT_SAME_BITS(reading.objectTemperature, 25.149994f);
  EXPECT_SAME_BITS(reading.ambientTemperature, -273.15f);
  EXPECT_SAME_BITS(calculateTemperatureValue(Data({0xFF, 0xFF, 0, 0})).objectTemperature,
                   1037.5499f);
}

TEST(FrameDecodersTemperatureTest, EveryCountIsOneProductAndOneSum) {
  for (int raw = 0; raw <= 0xFFFF; ++raw) {
    const auto low = static_cast<std::uint8_t>(raw & 0xFF);
    const auto high = static_cast<std::uint8_t>(raw >> 8);
    volatile float product = static_cast<float>(raw) * 0.02f;  // rounded before the sum
    const float expected = product - 273.15f;
    const auto reading = calculateTemperatureValue(Data({low, high, low, high}));
    ASSERT_SAME_BITS(reading.objectTemperature, expected);
    ASSERT_SAME_BITS(reading.ambientTemperature, expected);
  }
}

TEST(FrameDecodersBatteryTest, Examples) {
  EXPECT_EQ(calculateBatterySOCValue(Data({0xE8, 0x03, 0})), (BatteryStatus{100.0f, false}));
  EXPECT_EQ(calculateBatterySOCValue(Data({0xE8, 0x03, 2})), (BatteryStatus{100.0f, true}));
  EXPECT_EQ(calculateBatterySOCValue(Data({0xFF, 0xFF, 1})), (BatteryStatus{6553.5f, true}));
}

TEST(FrameDecodersBatteryTest, AnyNonZeroFlagMeansCharging) {
  for (int flag = 0; flag <= 0xFF; ++flag) {
    const Data frame({0, 0, static_cast<std::uint8_t>(flag)});
    EXPECT_EQ(calculateBatterySOCValue(frame).inCharge, flag != 0) << flag;
  }
}

TEST(FrameDecodersMotionTest, Examples) {
  const auto unit = calculateMotionValue(Data({0x40, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0}));
  EXPECT_SAME_BITS(unit.qw, 1.0f);
  EXPECT_SAME_BITS(unit.qx, 0.0f);
  EXPECT_SAME_BITS(unit.qy, 0.0f);
  EXPECT_SAME_BITS(unit.qz, 0.0f);
  EXPECT_SAME_BITS(unit.ax, 1.0f);
  const auto smallest =
      calculateMotionValue(Data({0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF}));
  EXPECT_SAME_BITS(smallest.ax, -0.0000152587890625f);
}

TEST(FrameDecodersMotionTest, EachFieldHasItsOffset) {
  const Data frame(
      {0x00, 0x01, 0x00, 0x02, 0x00, 0x03, 0x00, 0x04, 0, 5, 0, 0, 0, 6, 0, 0, 0, 7, 0, 0});
  const auto motion = calculateMotionValue(frame);
  EXPECT_SAME_BITS(motion.qw, 1.0f / 16384);
  EXPECT_SAME_BITS(motion.qx, 2.0f / 16384);
  EXPECT_SAME_BITS(motion.qy, 3.0f / 16384);
  EXPECT_SAME_BITS(motion.qz, 4.0f / 16384);
  EXPECT_SAME_BITS(motion.ax, 5.0f);
  EXPECT_SAME_BITS(motion.ay, 6.0f);
  EXPECT_SAME_BITS(motion.az, 7.0f);
}

// A reference implementation of the frame formats, byte by byte with plain arithmetic.
namespace restated {

int at(const Bytes& frame, std::size_t size, std::size_t offset) {
  return offset < size && offset < frame.size() ? frame[offset] : 0;
}

float sample(const Bytes& frame, std::size_t index) {
  int value = at(frame, 18, 3 * index) + 256 * at(frame, 18, 3 * index + 1) +
              65536 * at(frame, 18, 3 * index + 2);
  if (value >= 8388608) value -= 16777216;
  volatile float scaled = std::ldexp(static_cast<float>(value), -23);
  return scaled * 2.42f;
}

float temperature(const Bytes& frame, std::size_t offset) {
  volatile float kelvin =
      static_cast<float>(at(frame, 4, offset) + 256 * at(frame, 4, offset + 1)) * 0.02f;
  return kelvin - 273.15f;
}

float charge(const Bytes& frame) {
  return static_cast<float>(at(frame, 3, 0) + 256 * at(frame, 3, 1)) / 10.0f;
}

float orientation(const Bytes& frame, std::size_t offset) {
  int value = 256 * at(frame, 20, offset) + at(frame, 20, offset + 1);
  if (value >= 32768) value -= 65536;
  return std::ldexp(static_cast<float>(value), -14);
}

float acceleration(const Bytes& frame, std::size_t offset) {
  std::int64_t value = 0;
  for (std::size_t byte = 0; byte < 4; ++byte) value = value * 256 + at(frame, 20, offset + byte);
  if (value >= 2147483648) value -= 4294967296;
  return std::ldexp(static_cast<float>(value), -16);
}

}  // namespace restated

void expectDecodedAsRestated(const Bytes& bytes) {
  const Data frame(bytes);
  const auto samples = calculateECGValue(frame);
  ASSERT_EQ(samples.size(), 6u);
  for (std::size_t index = 0; index < 6; ++index) {
    EXPECT_SAME_BITS(samples[index], restated::sample(bytes, index));
  }
  const auto reading = calculateTemperatureValue(frame);
  EXPECT_SAME_BITS(reading.objectTemperature, restated::temperature(bytes, 0));
  EXPECT_SAME_BITS(reading.ambientTemperature, restated::temperature(bytes, 2));
  const auto status = calculateBatterySOCValue(frame);
  EXPECT_SAME_BITS(status.soc, restated::charge(bytes));
  EXPECT_EQ(status.inCharge, restated::at(bytes, 3, 2) != 0);
  const auto motion = calculateMotionValue(frame);
  EXPECT_SAME_BITS(motion.qw, restated::orientation(bytes, 0));
  EXPECT_SAME_BITS(motion.qx, restated::orientation(bytes, 2));
  EXPECT_SAME_BITS(motion.qy, restated::orientation(bytes, 4));
  EXPECT_SAME_BITS(motion.qz, restated::orientation(bytes, 6));
  EXPECT_SAME_BITS(motion.ax, restated::acceleration(bytes, 8));
  EXPECT_SAME_BITS(motion.ay, restated::acceleration(bytes, 12));
  EXPECT_SAME_BITS(motion.az, restated::acceleration(bytes, 16));
}

TEST(FrameDecodersTest, OfAnyLengthAndContentDecodes) {
  std::mt19937 random(42);
  std::uniform_int_distribution<int> byte(0, 255);
  for (std::size_t length = 0; length <= 512; ++length) {
    for (int round = 0; round < 20; ++round) {
      Bytes bytes(length);
      for (auto& value : bytes) value = static_cast<std::uint8_t>(byte(random));
      expectDecodedAsRestated(bytes);
      if (HasFailure()) FAIL() << "frame of " << length << " bytes, round " << round;
    }
  }
}

TEST(FrameDecodersTest, TheEmptyFrameIsAllZero) {
  const Data frame({});
  EXPECT_THAT(calculateECGValue(frame), testing::Each(SameBits(0.0f)));
  EXPECT_SAME_BITS(calculateTemperatureValue(frame).objectTemperature, -273.15f);
  EXPECT_EQ(calculateBatterySOCValue(frame), BatteryStatus{});
  EXPECT_SAME_BITS(calculateMotionValue(frame).az, 0.0f);
}

TEST(FrameDecodersTest, BytesBeyondTheLayoutAreIgnored) {
  Bytes bytes(512, 0xAB);
  Bytes cut(bytes.begin(), bytes.begin() + 20);
  for (std::size_t offset = 20; offset < bytes.size(); ++offset) bytes[offset] = 0x55;
  const auto longer = calculateMotionValue(Data(bytes));
  const auto exact = calculateMotionValue(Data(cut));
  EXPECT_SAME_BITS(longer.az, exact.az);
  EXPECT_EQ(calculateECGValue(Data(bytes)), calculateECGValue(Data(cut)));
}

}  // namespace
