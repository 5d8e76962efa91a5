// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Compiled for the baseline of the architecture, because std::sort must not be compiled for more:
/// the linker may keep any copy of it for the whole program.

#include <cstddef>
#include <cstdint>

namespace Zephly::offline {

/// Sorts rows by their samples.
void sortRows(std::uint32_t* rows, std::size_t count, const double* samples);

}  // namespace Zephly::offline
