// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The error of a capture in one line: file, position and reason.
///
///   try {
///     reader.next();
///   } catch (const CaptureError& error) {
///     std::cerr << error.what() << '\n';  // "walk.zcap: at byte 4711: cut off in the middle..."
///   }

#include <zephly/platform/export.h>

#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <string>

namespace Zephly::capture {

/// An error of a capture, with its kind and its offset in the file.
class ZEPHLY_EXPORT CaptureError : public std::runtime_error {
 public:
  enum class Kind {
    unusable,  ///< not a capture, or of a version that cannot be read
    cut,       ///< the file ends too early: every record before has been read
    damaged,   ///< bytes were changed or are missing: the next call of next() continues after them
  };

  /// Control characters in the name of the file are replaced by '?'.
  CaptureError(Kind kind, const std::filesystem::path& file, std::uint64_t offset,
               const std::string& what);
  /// Of a file that cannot be opened: `unusable`, with offset 0, which is not in the message.
  CaptureError(const std::filesystem::path& file, const std::string& what);

  Kind kind() const { return kind_; }
  /// Bytes from the beginning of the file.
  std::uint64_t offset() const { return offset_; }
  /// The message without file and offset.
  const std::string& reason() const { return reason_; }

 private:
  Kind kind_;
  std::uint64_t offset_;
  std::string reason_;
};

}  // namespace Zephly::capture
