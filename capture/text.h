// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Text for messages: times, and text from outside that may contain control characters, such as
/// paths and the names in a capture. Thread-safe.

#include <zephly/platform/export.h>

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>

namespace Zephly::capture {

/// "0:07", "12:30", "1:02:03"
ZEPHLY_EXPORT std::string clockText(std::chrono::nanoseconds time);

/// The number of bytes of the first character of UTF-8 `text`, which must not be empty. For a
/// truncated character, the number of bytes present; 1 for a byte that begins no character.
ZEPHLY_EXPORT std::size_t characterLength(std::string_view text);

/// One character, or '?' for a control character and for invalid UTF-8.
ZEPHLY_EXPORT std::string printableCharacter(std::string_view character);

/// The text with each control character and each invalid sequence of UTF-8 replaced by '?', so that
/// it cannot control a terminal.
ZEPHLY_EXPORT std::string printable(std::string_view text);

}  // namespace Zephly::capture
