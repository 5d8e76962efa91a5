// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The error of an input file in one line: file, position and reason.
///
///   throw InputError("101.dat", 4711, "the file ends here, 1945289 bytes too early");

#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <string>

namespace Zephly::recorders {

/// what() is "101.dat: at byte 4711: the file ends here...", as for a capture.
class InputError : public std::runtime_error {
 public:
  /// Control characters in the name and in the reason are replaced by '?'.
  InputError(const std::filesystem::path& file, std::uint64_t offset, const std::string& reason);
  /// Of a file as a whole: it cannot be opened, or lacks something.
  InputError(const std::filesystem::path& file, const std::string& reason);
};

/// A piece of a file for an error message: short, in quotes, printable.
std::string excerpt(std::string_view text);

}  // namespace Zephly::recorders
