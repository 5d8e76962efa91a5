// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Reads one signal of a record and its annotations (.hea, .dat, .atr).

#include <bench/vitals/recording.h>

#include <cstddef>
#include <filesystem>
#include <vector>

namespace Zephly::bench {

/// Throws std::runtime_error, as the reader of tools/vitals does.
MarkedRecording readRecording(const std::filesystem::path& header, std::size_t channel = 0);
/// The beats of an annotation file of a record with that rate.
std::vector<MarkedBeat> readBeats(const std::filesystem::path& annotations, double rate);
/// All records of a folder, in the order of their names.
std::vector<MarkedRecording> readRecordings(const std::filesystem::path& folder,
                                            std::size_t channel = 0);

}  // namespace Zephly::bench
