// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A reference implementation of the decoding of frames, number by number.

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace literal {

using Bytes = std::vector<std::uint8_t>;

// Two's complement of `width` bytes.
inline std::int64_t signedInteger(std::uint64_t bits, int width) {
  const std::int64_t span = std::int64_t{1} << (8 * width);
  const auto value = static_cast<std::int64_t>(bits);
  return value >= span / 2 ? value - span : value;
}

inline std::uint64_t littleEndian(const Bytes& bytes, std::size_t offset, int width) {
  std::uint64_t value = 0;
  for (int i = width - 1; i >= 0; --i)
    value = value * 256 + bytes.at(offset + static_cast<std::size_t>(i));
  return value;
}

inline std::uint64_t bigEndian(const Bytes& bytes, std::size_t offset, int width) {
  std::uint64_t value = 0;
  for (int i = 0; i < width; ++i)
    value = value * 256 + bytes.at(offset + static_cast<std::size_t>(i));
  return value;
}

inline std::int64_t rawSample(const Bytes& bytes, std::size_t index) {
  return signedInteger(littleEndian(bytes, 3 * index, 3), 3);
}

inline float sampleOf(std::int64_t raw) {
  return (static_cast<float>(raw) * 0.00000011920928955078125F) * 2.42F;
}

inline std::array<float, 6> samples(const Bytes& bytes) {
  EXPECT_EQ(bytes.size(), 18U);
  std::array<float, 6> values{};
  for (std::size_t i = 0; i < 6; ++i) values.at(i) = sampleOf(rawSample(bytes, i));
  return values;
}

inline float celsiusOf(std::uint64_t raw) {
  const float kelvin = static_cast<float>(raw) * 0.02F;
  return kelvin + -273.15F;
}

inline float percentOf(std::uint64_t raw) { return static_cast<float>(raw) / 10.0F; }

// w, x, y, z, then acceleration x, y, z.
inline std::array<float, 7> motion(const Bytes& bytes) {
  EXPECT_EQ(bytes.size(), 20U);
  std::array<float, 7> values{};
  for (std::size_t i = 0; i < 4; ++i)
    values.at(i) = static_cast<float>(signedInteger(bigEndian(bytes, 2 * i, 2), 2)) / 16384.0F;
  for (std::size_t i = 0; i < 3; ++i)
    values.at(4 + i) =
        static_cast<float>(signedInteger(bigEndian(bytes, 8 + 4 * i, 4), 4)) / 65536.0F;
  return values;
}

}  // namespace literal
