// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Reads one channel of a record in format 212 and its annotations (.hea, .dat, .atr).

#include <bench/vitals/recording.h>

#include <filesystem>
#include <vector>

namespace Zephly::bench {

/// Throws std::runtime_error.
MarkedRecording readRecording(const std::filesystem::path& header, int channel = 0);
/// All records of a folder, in the order of their names.
std::vector<MarkedRecording> readRecordings(const std::filesystem::path& folder, int channel = 0);

}  // namespace Zephly::bench
