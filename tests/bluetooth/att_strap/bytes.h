// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Bytes in Bluetooth's order: least significant byte first.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Zephly::att_strap {

using Bytes = std::vector<std::uint8_t>;
using BytesView = std::span<const std::uint8_t>;

/// The 16-bit number at `position`, which must lie within the bytes.
inline std::uint16_t number16(BytesView bytes, std::size_t position) {
  return static_cast<std::uint16_t>(bytes[position] | bytes[position + 1] << 8U);
}

inline void append16(Bytes& bytes, std::uint16_t number) {
  bytes.push_back(static_cast<std::uint8_t>(number & 0xFFU));
  bytes.push_back(static_cast<std::uint8_t>(number >> 8U));
}

inline void append(Bytes& bytes, BytesView more) {
  bytes.insert(bytes.end(), more.begin(), more.end());
}

/// Two digits in lower case for each byte.
std::string toHex(BytesView bytes);
/// Empty when the text is not made of pairs of hexadecimal digits. An empty text is valid.
std::optional<Bytes> fromHex(std::string_view text);

}  // namespace Zephly::att_strap
