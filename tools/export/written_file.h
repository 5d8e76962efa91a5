// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// What a person wants to know about a file that was written.
///
///   std::cout << writtenText(files);

#include <timing/stream_clock.h>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace Zephly::exporting {

struct WrittenFile {
  /// Times of the session.
  struct Span {
    timing::Nanoseconds from{};
    timing::Nanoseconds to{};
  };

  std::filesystem::path path;
  std::uint64_t bytes = 0;
  std::optional<Span> span = std::nullopt;           ///< empty: the file has no rows
  std::optional<std::uint64_t> rows = std::nullopt;  ///< empty: the file has none by its format
};

/// "999 B", "1.0 kB", "12.3 MB"
std::string sizeText(std::uint64_t bytes);

/// A table, one line for each file.
std::string writtenText(const std::vector<WrittenFile>& files);

}  // namespace Zephly::exporting
