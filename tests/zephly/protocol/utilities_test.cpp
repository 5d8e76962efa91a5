// SPDX-License-Identifier: MIT
#include <zephly/protocol/utilities.h>

#include <tests/support/bits.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <random>

namespace {

using Engine = ::Zephly::Utilities;

TEST(UtilitiesToU2Test, Extremes) {
  EXPECT_EQ(Engine::toU2(0xFF, 0xFF, 0xFF), -1);
  EXPECT_EQ(Engine::toU2(0x80, 0, 0), -8388608);
  EXPECT_EQ(Engine::toU2(0x7F, 0xFF, 0xFF), 8388607);
  EXPECT_EQ(Engine::toU2(0, 0, 0), 0);
}

TEST(UtilitiesToU2Test, TheMiddleArgumentIsNotMasked) {
  EXPECT_EQ(Engine::toU2(0, 0x100, 0), 65536);
}

TEST(UtilitiesToU2Test, TheLastArgumentIsNotMasked) { EXPECT_EQ(Engine::toU2(0, 0, 0x100), 256); }

TEST(UtilitiesToU2Test, OnlySevenBitsAndTheSignOfTheFirstArgumentCount) {
  EXPECT_EQ(Engine::toU2(0x17F, 0, 0), 0x7F0000);
  EXPECT_EQ(Engine::toU2(0x180, 0, 0), -8388608);
}

TEST(UtilitiesToU2Test, EveryValueOf24BitsReadsBack) {
  for (int value = -8388608; value <= 8388607; ++value) {
    const auto pattern = static_cast<std::uint32_t>(value);
    const int decoded =
        Engine::toU2(static_cast<int>(pattern >> 16 & 0xFF), static_cast<int>(pattern >> 8 & 0xFF),
                     static_cast<int>(pattern & 0xFF));
    ASSERT_EQ(decoded, value);
  }
}

TEST(UtilitiesQ16ToFloatTest, Examples) {
  EXPECT_SAME_BITS(Engine::q16ToFloat(0, 1, 0, 0), 1.0f);
  EXPECT_SAME_BITS(Engine::q16ToFloat(0xFF, 0xFF, 0xFF, 0xFF), -0.0000152587890625f);
  EXPECT_SAME_BITS(Engine::q16ToFloat(0x80, 0, 0, 0), -32768.0f);
  EXPECT_SAME_BITS(Engine::q16ToFloat(0x7F, 0xFF, 0xFF, 0xFF), 32768.0f);
}

TEST(UtilitiesQ30ToFloatTest, Examples) {
  EXPECT_SAME_BITS(Engine::q30ToFloat(0x40, 0, 0, 0), 1.0f);
  EXPECT_SAME_BITS(Engine::q30ToFloat(0xC0, 0, 0, 0), -1.0f);
  EXPECT_SAME_BITS(Engine::q30ToFloat(0xFF, 0xFF, 0, 0), -0.00006103515625f);
  EXPECT_SAME_BITS(Engine::q30ToFloat(0x7F, 0xFF, 0, 0), 1.99993896484375f);
}

TEST(UtilitiesQ30ToFloatTest, LosesTheLowestBitThatQ30ToDoubleKeeps) {
  EXPECT_SAME_BITS(Engine::q30ToFloat(0x40, 0, 0, 1), 1.0f);
  EXPECT_SAME_BITS(Engine::q30ToDouble(0x40, 0, 0, 1), 1.0000000009313226);
}

TEST(UtilitiesQ30ToFloatTest, WithTwoZeroBytesIsA16BitFraction) {
  for (int value = -32768; value <= 32767; ++value) {
    const auto pattern = static_cast<std::uint16_t>(value);
    ASSERT_SAME_BITS(Engine::q30ToFloat(pattern >> 8, pattern & 0xFF, 0, 0),
                     static_cast<float>(value) / 16384.0f);
  }
}

// The number read from memory when the four bytes are stored most significant first.
std::int32_t bigEndian(const int (&bytes)[4]) {
  std::uint32_t pattern = 0;
  for (const int byte : bytes) pattern = pattern * 256 + static_cast<std::uint32_t>(byte & 0xFF);
  std::int32_t value = 0;
  std::memcpy(&value, &pattern, sizeof value);
  return value;
}

// Mostly byte-sized arguments, sometimes any int.
class Arguments {
 public:
  int next() {
    const int number = any_(bits_);
    return number % 8 == 0 ? number : number & 0xFF;
  }

 private:
  std::mt19937 bits_{20240607};
  std::uniform_int_distribution<int> any_;
};

TEST(UtilitiesFixedPointTest, RandomArgumentsMatchTheirDefinition) {
  Arguments arguments;
  for (int round = 0; round < 200000; ++round) {
    const int bytes[4] = {arguments.next(), arguments.next(), arguments.next(), arguments.next()};
    const auto [a, b, c, d] = bytes;
    const std::int32_t value = bigEndian(bytes);
    ASSERT_SAME_BITS(Engine::q16ToFloat(a, b, c, d), static_cast<float>(value) / 65536.0f);
    ASSERT_SAME_BITS(Engine::q30ToFloat(a, b, c, d), static_cast<float>(value) / 1073741824.0f);
    ASSERT_SAME_BITS(Engine::q30ToDouble(a, b, c, d), value / 1073741824.0);
  }
}

TEST(UtilitiesWrapperTest, ReturnsTheEnginesResultsBitForBit) {
  Arguments arguments;
  ::Utilities wrapper;
  for (int round = 0; round < 50000; ++round) {
    const int a = arguments.next();
    const int b = arguments.next();
    const int c = arguments.next();
    const int d = arguments.next();
    ASSERT_EQ(wrapper.toU2(a, b, c), Engine::toU2(a, b, c));
    ASSERT_SAME_BITS(wrapper.q16tofloat(a, b, c, d), Engine::q16ToFloat(a, b, c, d));
    ASSERT_SAME_BITS(wrapper.q30tofloat(a, b, c, d), Engine::q30ToFloat(a, b, c, d));
    ASSERT_SAME_BITS(wrapper.q30todouble(a, b, c, d), Engine::q30ToDouble(a, b, c, d));
  }
}

TEST(UtilitiesWrapperTest, RespondsToItsFourMessageNames) {
  ::Utilities wrapper;
  EXPECT_EQ(wrapper.performSelector<int>("toU2:byteB:byteC:", 0, 1, 2), 258);
  EXPECT_SAME_BITS(wrapper.performSelector<float>("q16tofloat:byteB:byteC:byteD:", 0, 1, 0x80, 0),
                   1.5f);
  EXPECT_SAME_BITS(wrapper.performSelector<float>("q30tofloat:byteB:byteC:byteD:", 0x40, 0, 0, 0),
                   1.0f);
  EXPECT_SAME_BITS(wrapper.performSelector<double>("q30todouble:byteB:byteC:byteD:", 0x40, 0, 0, 1),
                   1.0000000009313226);
  EXPECT_FALSE(wrapper.respondsToSelector("q16ToFloat:byteB:byteC:byteD:"));
}

}  // namespace
