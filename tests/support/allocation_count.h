// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Counts what a test program allocates with `new`. A program that uses it lists
/// tests/support/allocation_count.cpp among its sources, which replaces the global operators.
///
///   const std::size_t before = allocationCount();
///   filter.process(1.0);
///   EXPECT_EQ(allocationCount(), before);

#include <cstddef>

/// Calls of any form of operator new so far, in all threads.
std::size_t allocationCount();

/// Allocations that have not been freed yet.
std::size_t liveAllocationCount();

/// Counts, and fails, only allocations for which `here` returns true; null: all. `here` may not
/// allocate.
void countAllocationsWhere(bool (*here)());

/// Allocations that were made to fail.
std::size_t failedAllocationCount();

/// Makes one allocation fail: the next (1), the one after it (2), and so on; 0: none.
void failAllocation(std::size_t number);

/// Makes this allocation and every later one fail, as when no memory is left. failAllocation(0)
/// ends it.
void failAllocationsFrom(std::size_t number);
