// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// cohort.csv: one row for each result in a directory. docs/process.md describes the columns.
///
///   const std::size_t rows = writeCohort("results");
///
/// It depends on the results alone, not on who has computed them and in which order.

#include <cstddef>
#include <filesystem>

namespace Zephly::processing {

inline constexpr const char* cohortName = "cohort.csv";

/// Writes it anew, from all results with a valid manifest; returns the number of rows. Waits while
/// another process writes it. Throws std::runtime_error, one line, when it cannot be written, and
/// Interrupted (see capture_result.h).
std::size_t writeCohort(const std::filesystem::path& directory);

}  // namespace Zephly::processing
