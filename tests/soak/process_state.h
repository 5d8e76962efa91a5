// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The memory and the files that this process uses.
///
///   const ProcessState before = processState();

#include <cstddef>

namespace soak {

struct ProcessState {
  std::size_t liveBlocks = 0;  ///< from operator new, not freed
  std::size_t heapBytes = 0;   ///< in use, as counted by malloc
  std::size_t residentBytes = 0;
  std::size_t descriptors = 0;  ///< open files
  std::size_t threads = 0;
};

ProcessState processState();

}  // namespace soak
