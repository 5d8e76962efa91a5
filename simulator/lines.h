// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The lines of a text that is read piece by piece: of a recording that is simulated, and of a
/// table of signals in tools/vitals. No header for applications.
///
///   Lines lines([&](char* bytes, std::size_t count) { return file.read(bytes, count); }, 65'536);
///   while (const auto line = lines.next()) use(*line);

#include <zephly/platform/export.h>

#include <cstddef>
#include <functional>
#include <optional>
#include <string_view>
#include <vector>

namespace Zephly::simulator {

/// Holds one line and one piece of the text.
class ZEPHLY_EXPORT Lines {
 public:
  /// Puts the next bytes of the text, at most `count`, at `bytes`; returns how many, 0 at the end.
  using Read = std::function<std::size_t(char* bytes, std::size_t count)>;

  /// Of a line longer than `longest` bytes, next() returns its beginning, which is longer than
  /// `longest`, and later the rest of it.
  Lines(Read read, std::size_t longest);

  /// The next line without its line feed, valid until the next call; empty at the end of the text.
  /// What follows the last line feed is a line if it is not empty.
  std::optional<std::string_view> next();

 private:
  bool readMore();

  Read read_;
  std::size_t longest_;
  std::vector<char> held_;
  std::size_t begin_ = 0;  // of what has not been returned yet
  std::size_t end_ = 0;
};

}  // namespace Zephly::simulator
