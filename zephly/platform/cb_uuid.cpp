// SPDX-License-Identifier: MIT
#include <zephly/platform/cb_uuid.h>

#include <zephly/platform/fatal_error.h>

#include <cstddef>

namespace {

constexpr std::string_view baseUUID = "-0000-1000-8000-00805F9B34FB";
constexpr std::size_t longFormLength = 36;

std::optional<std::uint8_t> hexDigit(char character) {
  if (character >= '0' && character <= '9') return static_cast<std::uint8_t>(character - '0');
  if (character >= 'a' && character <= 'f') return static_cast<std::uint8_t>(character - 'a' + 10);
  if (character >= 'A' && character <= 'F') return static_cast<std::uint8_t>(character - 'A' + 10);
  return std::nullopt;
}

bool isHyphenPosition(std::size_t position) {
  return position == 8 || position == 13 || position == 18 || position == 23;
}

}  // namespace

std::optional<CBUUID> CBUUID::parse(std::string_view text) {
  std::string full(text);
  if (full.size() == 4) full.insert(0, "0000");
  if (full.size() == 8) full += baseUUID;
  if (full.size() != longFormLength) return std::nullopt;

  std::array<std::uint8_t, 16> bytes{};
  std::size_t digits = 0;
  for (std::size_t position = 0; position < longFormLength; ++position) {
    if (isHyphenPosition(position)) {
      if (full[position] != '-') return std::nullopt;
      continue;
    }
    const auto digit = hexDigit(full[position]);
    if (!digit) return std::nullopt;
    std::uint8_t& byte = bytes[digits / 2];
    byte = static_cast<std::uint8_t>(byte << 4 | *digit);
    ++digits;
  }
  return CBUUID(bytes);
}

CBUUID CBUUID::UUIDWithString(std::string_view text) {
  const auto parsed = parse(text);
  if (!parsed) Zephly::fatalError("\"" + std::string(text) + "\" is not a Bluetooth UUID");
  return *parsed;
}

std::string CBUUID::UUIDString() const {
  constexpr std::string_view digits = "0123456789ABCDEF";
  std::string text;
  text.reserve(longFormLength);
  for (const std::uint8_t byte : bytes_) {
    if (isHyphenPosition(text.size())) text += '-';
    text += digits[byte >> 4];
    text += digits[byte & 0xF];
  }
  return text;
}
