// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Runs a function with its first, second, third ... allocation failing, until it succeeds.
///
///   const Sweep sweep = failEach(Shortage::once, [] { MedianFilter(5); });
///   EXPECT_EQ(sweep.failures, 2);    // one for each allocation
///   EXPECT_EQ(sweep.kept[0], 0);     // blocks that the first attempt left behind
///
/// Every failure must propagate as std::bad_alloc: an attempt that succeeds although an allocation
/// failed in it is a test failure. A block that is freed twice ends the program, in malloc or in
/// the address sanitizer.

#include <tests/support/allocation_count.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <new>
#include <string>
#include <vector>

namespace torture {

enum class Shortage {
  once,     ///< one allocation fails, later ones succeed
  forGood,  ///< this and all later allocations fail
};

/// Used in the names of parametrised tests.
inline std::string nameOf(const testing::TestParamInfo<Shortage>& shortage) {
  return shortage.param == Shortage::once ? "Once" : "ForGood";
}

struct Attempt {
  bool failed = false;
  std::size_t allocations = 0;  ///< including the failed one
  std::ptrdiff_t kept = 0;      ///< blocks that were not freed
};

/// `number` 0: nothing fails.
template <class Work>
Attempt attempt(Shortage shortage, std::size_t number, Work&& work) {
  const std::size_t liveBefore = liveAllocationCount();
  const std::size_t countBefore = allocationCount();
  Attempt result;
  if (shortage == Shortage::once) {
    failAllocation(number);
  } else {
    failAllocationsFrom(number);
  }
  try {
    work();
  } catch (const std::bad_alloc&) {
    result.failed = true;
  }
  failAllocation(0);
  result.allocations = allocationCount() - countBefore;
  result.kept =
      static_cast<std::ptrdiff_t>(liveAllocationCount()) - static_cast<std::ptrdiff_t>(liveBefore);
  if (!result.failed && number != 0) {
    EXPECT_LT(result.allocations, number) << "a failed allocation was passed over in silence";
  }
  return result;
}

struct Sweep {
  std::size_t failures = 0;
  std::vector<std::ptrdiff_t> kept;  ///< by each failure, in order
  Attempt passed;                    ///< the attempt that passed
};

template <class Work>
Sweep failEach(Shortage shortage, Work&& work) {
  Sweep sweep;
  for (std::size_t number = 1;; ++number) {
    const Attempt result = attempt(shortage, number, work);
    if (!result.failed) {
      sweep.passed = result;
      return sweep;
    }
    ++sweep.failures;
    sweep.kept.push_back(result.kept);
  }
}

}  // namespace torture
