// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Compiled for the baseline of the architecture, because std::sort must not be compiled for more:
/// the linker may keep any copy of it for the whole program.

#include <cstddef>
#include <cstdint>

namespace Zephly::offline {

/// Sorts up to 1,024 samples into `sorted`, one in every `distance` elements. `places` becomes the
/// rank of each sample, counted from `first`.
void sortExactly(const double* samples, std::size_t count, double* sorted, std::size_t distance,
                 std::uint16_t* places, std::uint16_t first);

}  // namespace Zephly::offline
