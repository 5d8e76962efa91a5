// SPDX-License-Identifier: MIT
#include <capture/bytes.h>

#include <array>
#include <charconv>
#include <stdexcept>

namespace Zephly::capture {

namespace {

constexpr std::size_t uuidSize = 16;

}  // namespace

void ByteSink::raw(std::span<const std::uint8_t> bytes) {
  bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
}

void ByteSink::text(std::string_view text) {
  number(static_cast<std::uint32_t>(text.size()));
  bytes_.insert(bytes_.end(), text.begin(), text.end());
}

void ByteSink::optionalText(const std::optional<std::string>& text) {
  number(static_cast<std::uint8_t>(text ? 1 : 0));
  if (text) this->text(*text);
}

void ByteSink::uuid(std::string_view text) {
  const auto identifier = CBUUID::parse(text);
  if (!identifier) throw std::invalid_argument("no UUID: " + std::string(text));
  std::string digits = identifier->UUIDString();
  std::erase(digits, '-');
  for (std::size_t i = 0; i < uuidSize; ++i) {
    std::uint8_t byte = 0;
    std::from_chars(digits.data() + 2 * i, digits.data() + 2 * i + 2, byte, 16);
    bytes_.push_back(byte);
  }
}

std::span<const std::uint8_t> ByteSource::raw(std::size_t count) {
  if (count > rest_.size()) {
    whole_ = false;
    rest_ = {};
    return {};
  }
  const auto bytes = rest_.first(count);
  rest_ = rest_.subspan(count);
  return bytes;
}

std::string ByteSource::text() {
  const auto bytes = raw(number<std::uint32_t>());
  return {bytes.begin(), bytes.end()};
}

bool ByteSource::flag() {
  const auto value = number<std::uint8_t>();
  if (value > 1) reject();
  return value == 1;
}

std::optional<std::string> ByteSource::optionalText() {
  if (!flag()) return std::nullopt;
  return text();
}

std::string ByteSource::uuid() {
  constexpr std::string_view digits = "0123456789ABCDEF";
  std::string text;
  for (const std::uint8_t byte : raw(uuidSize)) {
    if (text.size() == 8 || text.size() == 13 || text.size() == 18 || text.size() == 23) {
      text += '-';
    }
    text += digits[byte >> 4U];
    text += digits[byte & 0xFU];
  }
  return text;
}

std::size_t ByteSource::count(std::size_t smallest) {
  const std::size_t stated = number<std::uint32_t>();
  if (stated <= left() / smallest) return stated;
  reject();
  return 0;
}

}  // namespace Zephly::capture
