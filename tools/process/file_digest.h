// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Size and SHA-256 of a file.
///
///   const FileDigest digest = digestOf("walk.zcap", [](std::uint64_t bytes) { progress(bytes); });
///   digest.sha256;   // "e3b0c442..."

#include <cstdint>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>

namespace Zephly::processing {

struct FileDigest {
  std::uint64_t bytes = 0;
  std::string sha256;  ///< 64 hexadecimal digits, lower case

  friend bool operator==(const FileDigest&, const FileDigest&) = default;
};

/// Reads a regular file to its end. Calls `read` with the bytes so far after each piece, at least
/// some hundred times a second. Throws std::runtime_error, one line, when it cannot be read.
FileDigest digestOf(const std::filesystem::path& file,
                    const std::function<void(std::uint64_t bytes)>& read);

/// One line that names the file and says why it cannot be read.
std::runtime_error cannotRead(const std::filesystem::path& file, int errorNumber);

}  // namespace Zephly::processing
