// SPDX-License-Identifier: MIT
#include <capture/text.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>

namespace Zephly::capture {

namespace {

bool isContinuation(char byte) { return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U; }

// The number of bytes that the first byte of a character announces; 1 for a byte that begins none.
std::size_t announcedLength(char byte) {
  const auto first = static_cast<unsigned char>(byte);
  if (first < 0xC0) return 1;
  if (first < 0xE0) return 2;
  return first < 0xF0 ? 3 : 4;
}

// Characters below U+0020, DEL, and U+0080 to U+009F. Invalid UTF-8 counts as one too: some
// terminals interpret single bytes as control characters.
bool isControl(std::string_view character) {
  const auto first = static_cast<unsigned char>(character[0]);
  if (first < 0x20 || first == 0x7F || isContinuation(character[0])) return true;
  if (character.size() < announcedLength(character[0])) return true;
  return first == 0xC2 && static_cast<unsigned char>(character[1]) < 0xA0;
}

}  // namespace

std::string clockText(std::chrono::nanoseconds time) {
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time).count();
  std::array<char, 64> text{};
  if (seconds < 3600) {
    static_cast<void>(std::snprintf(text.data(), text.size(), "%lld:%02lld",
                                    static_cast<long long>(seconds / 60),
                                    static_cast<long long>(seconds % 60)));
  } else {
    static_cast<void>(std::snprintf(
        text.data(), text.size(), "%lld:%02lld:%02lld", static_cast<long long>(seconds / 3600),
        static_cast<long long>(seconds / 60 % 60), static_cast<long long>(seconds % 60)));
  }
  return text.data();
}

std::size_t characterLength(std::string_view text) {
  const std::size_t limit = std::min(announcedLength(text[0]), text.size());
  std::size_t length = 1;
  while (length < limit && isContinuation(text[length])) ++length;
  return length;
}

std::string printableCharacter(std::string_view character) {
  return isControl(character) ? "?" : std::string(character);
}

std::string printable(std::string_view text) {
  std::string printed;
  while (!text.empty()) {
    const std::string_view character = text.substr(0, characterLength(text));
    printed += printableCharacter(character);
    text.remove_prefix(character.size());
  }
  return printed;
}

}  // namespace Zephly::capture
