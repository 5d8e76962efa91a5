// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The names and heads of the files of a continued recording. Internal to the room.
///
///   partOf("walk.zcap", 2);  // "walk.2.zcap"

#include <capture/record.h>

#include <cstdint>
#include <filesystem>
#include <vector>

namespace Zephly::capture {

/// The name of a file that continues `first`.
std::filesystem::path partOf(const std::filesystem::path& first, std::uint32_t number);

/// The files beside `first` with such a name, in the order of their numbers. When `first` is a
/// symbolic link, those beside its target.
std::vector<std::filesystem::path> existingParts(const std::filesystem::path& first);

/// Whether `other` is the head of a file that continues the recording of `first`: the time at which
/// a session began, in nanoseconds, identifies it.
bool belongTogether(const Preamble& first, const Preamble& other);

}  // namespace Zephly::capture
