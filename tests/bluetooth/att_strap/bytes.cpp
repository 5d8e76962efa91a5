// SPDX-License-Identifier: MIT
#include <tests/bluetooth/att_strap/bytes.h>

#include <charconv>

namespace Zephly::att_strap {

std::string toHex(BytesView bytes) {
  constexpr std::string_view digits = "0123456789abcdef";
  std::string text;
  for (const std::uint8_t byte : bytes) {
    text += digits[byte >> 4U];
    text += digits[byte & 0x0FU];
  }
  return text;
}

std::optional<Bytes> fromHex(std::string_view text) {
  if (text.size() % 2 != 0) return std::nullopt;
  Bytes bytes;
  for (std::size_t i = 0; i < text.size(); i += 2) {
    std::uint8_t byte = 0;
    const char* end = text.data() + i + 2;
    const auto result = std::from_chars(text.data() + i, end, byte, 16);
    if (result.ec != std::errc() || result.ptr != end) return std::nullopt;
    bytes.push_back(byte);
  }
  return bytes;
}

}  // namespace Zephly::att_strap
