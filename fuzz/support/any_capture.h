// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Capture files made from any input.
///
///   const auto file = fuzz::captureFrom(input);
///
/// The first byte selects how much of the file is valid, because a fuzzer cannot guess a checksum:
/// raw bytes; a valid header and records with any payload, some of them truncated, repeated or with
/// a wrong checksum; or valid records in any order.

#include <fuzz/support/input.h>

#include <cstdint>
#include <filesystem>
#include <vector>

namespace fuzz {

/// Takes the whole input. Ends the program when a record that is written does not read back.
std::vector<std::uint8_t> captureFrom(Input& input);

/// A regular file in memory with this content, the same one at each call.
const std::filesystem::path& fileInMemory(const std::vector<std::uint8_t>& bytes);

}  // namespace fuzz
