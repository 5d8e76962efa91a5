// SPDX-License-Identifier: MIT
#include <tests/tools/view/decoded.h>

#include <gtest/gtest.h>

#include <bit>
#include <cstddef>

namespace Zephly::view {

namespace {

template <class Number>
Number littleEndian(std::string_view bytes, std::size_t at) {
  Number number = 0;
  for (std::size_t i = sizeof(Number); i-- > 0;) {
    number = static_cast<Number>(number << 8 | static_cast<unsigned char>(bytes.at(at + i)));
  }
  return number;
}

}  // namespace

Samples decoded(std::string_view bytes) {
  Samples samples;
  EXPECT_GE(bytes.size(), 24U);
  if (bytes.size() < 24) return samples;
  EXPECT_EQ(bytes[0], 1);
  EXPECT_LT(bytes[1], 4);
  EXPECT_EQ(bytes[2], 0);
  EXPECT_EQ(bytes[3], 0);
  samples.trace = static_cast<Trace>(bytes[1]);
  samples.count = littleEndian<std::uint32_t>(bytes, 4);
  samples.index = littleEndian<std::uint64_t>(bytes, 8);
  samples.seconds = std::bit_cast<double>(littleEndian<std::uint64_t>(bytes, 16));
  const std::size_t width = samples.trace == Trace::motion ? 2 : 1;
  EXPECT_EQ(bytes.size(), 24 + samples.count * width * 4);
  for (std::size_t at = 24; at + 4 <= bytes.size(); at += 4) {
    samples.values.push_back(std::bit_cast<float>(littleEndian<std::uint32_t>(bytes, at)));
  }
  return samples;
}

std::vector<Samples> decodedAll(const std::vector<Message>& messages) {
  std::vector<Samples> all;
  for (const Message& message : messages) {
    EXPECT_EQ(message.kind, Message::Kind::samples);
    all.push_back(decoded(*message.bytes));
    EXPECT_EQ(message.trace, all.back().trace);
    EXPECT_EQ(message.samples, all.back().count);
  }
  return all;
}

}  // namespace Zephly::view
