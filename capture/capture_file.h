// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A file with random access, read in pieces. Internal to the room.
///
///   CaptureFile file("walk.zcap");
///   const auto bytes = file.at(20, 24);  // 24 bytes, fewer at the end of the file
///
/// Not thread-safe.

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <span>
#include <vector>

namespace Zephly::capture {

/// A regular file that is open for reading.
class CaptureFile {
 public:
  /// Throws CaptureError when the path is not a regular file or cannot be opened; never waits for
  /// the other end of a pipe.
  explicit CaptureFile(const std::filesystem::path& path);
  CaptureFile(const CaptureFile&) = delete;
  CaptureFile& operator=(const CaptureFile&) = delete;
  ~CaptureFile();

  /// Up to `count` bytes at `offset`, fewer only where the file ends; valid until the next call.
  /// Throws CaptureError when the disk cannot be read, once: later calls return what was read
  /// before.
  std::span<const std::uint8_t> at(std::uint64_t offset, std::size_t count);

  const std::filesystem::path& path() const { return path_; }

 private:
  std::span<const std::uint8_t> held(std::uint64_t offset, std::size_t count) const;

  std::filesystem::path path_;
  int descriptor_;
  std::uint64_t begin_ = 0;  // of held_, in the file
  std::vector<std::uint8_t> held_;
  bool failed_ = false;
};

}  // namespace Zephly::capture
