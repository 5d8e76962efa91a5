// SPDX-License-Identifier: MIT
// Tests of the replaced operators on which the other tests of this program rely.

#include <tests/torture/out_of_memory.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <new>

// clang++ 14 does not declare these by itself.
void operator delete(void* memory, std::size_t size) noexcept;
void operator delete[](void* memory, std::size_t size) noexcept;
void operator delete(void* memory, std::size_t size, std::align_val_t alignment) noexcept;
void operator delete[](void* memory, std::size_t size, std::align_val_t alignment) noexcept;

namespace torture {
namespace {

constexpr std::align_val_t wide{64};

struct alignas(64) Wide {
  char bytes[64];
};

TEST(AllocationFormsTest, EachFormIsCountedFailsAndIsFreed) {
  const auto every = [] {
    ::operator delete(::operator new(1));
    ::operator delete (::operator new(1), std::size_t{1});
    ::operator delete[](::operator new[](1));
    ::operator delete[](::operator new[](1), std::size_t{1});
    ::operator delete(::operator new(1, wide), wide);
    ::operator delete (::operator new(1, wide), std::size_t{1}, wide);
    ::operator delete[](::operator new[](1, wide), wide);
    ::operator delete[](::operator new[](1, wide), std::size_t{1}, wide);
  };
  const Sweep sweep = failEach(Shortage::once, every);
  EXPECT_EQ(sweep.failures, 8U);
  EXPECT_EQ(sweep.passed.kept, 0);
}

TEST(AllocationFormsTest, NothrowFormsReturnNull) {
  failAllocationsFrom(1);
  void* const plain = ::operator new(1, std::nothrow);
  void* const array = ::operator new[](1, std::nothrow);
  void* const aligned = ::operator new(1, wide, std::nothrow);
  void* const alignedArray = ::operator new[](1, wide, std::nothrow);
  failAllocation(0);
  EXPECT_EQ(plain, nullptr);
  EXPECT_EQ(array, nullptr);
  EXPECT_EQ(aligned, nullptr);
  EXPECT_EQ(alignedArray, nullptr);
}

TEST(AllocationFormsTest, AlignmentIsKept) {
  const Attempt made = attempt(Shortage::once, 0, [] {
    const auto* const one = new Wide;
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(one) % 64, 0U);
    delete one;
  });
  EXPECT_EQ(made.allocations, 1U);
  EXPECT_EQ(made.kept, 0);
}

TEST(AllocationFormsTest, APermanentShortageLastsUntilItIsEnded) {
  int failures = 0;
  failAllocationsFrom(2);
  for (int i = 0; i < 4; ++i) {
    try {
      ::operator delete(::operator new(8));
    } catch (const std::bad_alloc&) {
      ++failures;
    }
  }
  failAllocation(0);
  EXPECT_EQ(failures, 3);
  ::operator delete(::operator new(8));
}

}  // namespace
}  // namespace torture
