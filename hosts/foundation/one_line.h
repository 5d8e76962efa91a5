// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Text from outside (a daemon, a file, the network) made fit for one line of a log or a terminal.
///
///   oneLine("Out of\r\nreach.\n")   // "Out of reach."

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

namespace Zephly::hosts {

/// The number of bytes of the control character or line break at the beginning of `text` (UTF-8),
/// or 0 if it begins with neither: U+0000 to U+001F, U+007F to U+009F, U+2028 and U+2029.
inline std::size_t controlLength(std::string_view text) {
  if (text.empty()) return 0;
  const auto byte = [text](std::size_t index) { return static_cast<unsigned char>(text[index]); };
  if (byte(0) < 0x20 || byte(0) == 0x7F) return 1;
  // U+0080 to U+009F are C2 80 to C2 9F. C2 only ever begins a character.
  if (byte(0) == 0xC2 && text.size() > 1 && byte(1) >= 0x80 && byte(1) <= 0x9F) return 2;
  return text.starts_with("\u2028") || text.starts_with("\u2029") ? 3 : 0;
}

/// `text` with each run of control characters and line breaks replaced by one blank, or removed
/// where a blank or an end of the text is beside it. Everything else stays as it is. Allocates
/// nothing.
inline std::string oneLine(std::string text) {
  std::size_t kept = 0;
  bool removed = false;  // a run, just before `next`
  for (std::size_t next = 0; next < text.size();) {
    if (const std::size_t length = controlLength(std::string_view(text).substr(next))) {
      next += length;
      removed = true;
      continue;
    }
    // In place: a blank takes no more bytes than the control character that it replaces.
    const bool between = kept > 0 && text[kept - 1] != ' ' && text[next] != ' ';
    if (std::exchange(removed, false) && between) text[kept++] = ' ';
    text[kept++] = text[next++];
  }
  text.resize(kept);
  return text;
}

}  // namespace Zephly::hosts
