// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The lock on a capture that is being recorded. A program that replaces an existing file takes it
/// first, so that it never replaces the file of a running recording.
///
///   const auto lock = FileLock::take("walk.zcap");
///   if (!lock) refuse("another program is writing it");
///   replace("walk.zcap");  // nobody begins to record to it meanwhile
///
/// It is an advisory lock of the whole file (flock), which ends with the process. Reading a capture
/// needs no lock.

#include <zephly/platform/export.h>

#include <filesystem>
#include <optional>

namespace Zephly::capture {

/// An exclusive lock on a regular file, until it is destroyed.
class ZEPHLY_EXPORT FileLock {
 public:
  /// Empty when another descriptor, in this program or in another one, has the lock. Follows
  /// symbolic links. Where there is no regular file, or one that cannot be opened or locked (not
  /// every file system supports locks), nothing can be recording: the result locks nothing.
  static std::optional<FileLock> take(const std::filesystem::path& path);

  FileLock(FileLock&& other) noexcept;
  FileLock& operator=(FileLock&& other) noexcept;
  FileLock(const FileLock&) = delete;
  FileLock& operator=(const FileLock&) = delete;
  ~FileLock();

 private:
  explicit FileLock(int descriptor) : descriptor_(descriptor) {}

  int descriptor_;  // -1: locks nothing
};

}  // namespace Zephly::capture
