#pragma once
/// @file
/// Text for people: paths and other foreign text in messages, and times.

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>

namespace Zephly::capture {

/// "0:07", "12:30", "1:02:03"
std::string clockText(std::chrono::nanoseconds time);

/// Bytes of the first character of UTF-8 `text`, which is not empty; of a character that is cut off
/// or no character at all, those that belong together.
std::size_t characterLength(std::string_view text);

/// One character, or '?' in place of one that could drive a terminal.
std::string printableCharacter(std::string_view character);

/// The text with '?' for each character that could drive a terminal.
std::string printable(std::string_view text);

}  // namespace Zephly::capture
