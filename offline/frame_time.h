// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// When samples were processed: part of a recording of respiration.

#include <cstddef>
#include <cstdint>

namespace Zephly::offline {

/// Consecutive samples during which the processor clock did not advance.
struct FrameTime {
  std::size_t samples;
  std::uint64_t processorTime;  ///< microseconds
};

}  // namespace Zephly::offline
