// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Counts what a program allocates with `new`, and where. A program that uses it lists
/// allocation_sites.cpp among its sources, which replaces the global operators, and exports its
/// symbols.
///
///   const AllocationReport report = allocationsOf([&] { session.deliver(stream, value); });
///
/// For one thread.

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace bench {

/// A function that allocates, directly or through the standard library.
struct AllocationSite {
  std::string function;  ///< its name as Markdown code, or "the caller"
  std::size_t allocations = 0;
};

struct AllocationReport {
  std::size_t allocations = 0;
  std::size_t bytes = 0;
  std::vector<AllocationSite> sites;  ///< most allocations first
};

/// Runs `work` and counts its allocations.
AllocationReport allocationsOf(const std::function<void()>& work);

}  // namespace bench
