// SPDX-License-Identifier: MIT
#include <tests/support/allocation_count.h>

#include <atomic>
#include <cstdlib>
#include <limits>
#include <new>

namespace {

std::atomic<std::size_t> allocations{0};
std::atomic<std::size_t> live{0};
std::atomic<std::size_t> failing{0};      // number of the first allocation that fails; 0: none
std::atomic<std::size_t> lastFailing{0};  // number of the last allocation that fails
std::atomic<std::size_t> failed{0};
std::atomic<bool (*)()> counts{nullptr};

bool failsNow() {
  bool (*const here)() = counts;
  if (here != nullptr && !here()) return false;
  const std::size_t number = ++allocations;
  const bool fails = failing != 0 && number >= failing && number <= lastFailing;
  if (fails) ++failed;
  return fails;
}

void* counted(void* memory) noexcept {
  if (memory != nullptr) ++live;
  return memory;
}

void* countedAllocation(std::size_t size) noexcept {
  return failsNow() ? nullptr : counted(std::malloc(size == 0 ? 1 : size));
}

void* countedAllocation(std::size_t size, std::align_val_t alignment) noexcept {
  const auto boundary = static_cast<std::size_t>(alignment);
  // aligned_alloc requires a size that is a multiple of the boundary.
  const std::size_t whole = (size + boundary - 1) / boundary * boundary;
  return failsNow() ? nullptr
                    : counted(std::aligned_alloc(boundary, whole == 0 ? boundary : whole));
}

template <class... Alignment>
void* countedAllocationOrThrow(std::size_t size, Alignment... alignment) {
  void* const memory = countedAllocation(size, alignment...);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

void release(void* memory) noexcept {
  if (memory != nullptr) --live;
  std::free(memory);
}

}  // namespace

std::size_t allocationCount() { return allocations; }

std::size_t liveAllocationCount() { return live; }

std::size_t failedAllocationCount() { return failed; }

void countAllocationsWhere(bool (*here)()) { counts = here; }

void failAllocation(std::size_t number) {
  failing = number == 0 ? 0 : allocations + number;
  lastFailing = failing.load();
}

void failAllocationsFrom(std::size_t number) {
  lastFailing = std::numeric_limits<std::size_t>::max();
  failing = number == 0 ? 0 : allocations + number;
}

// Every form is replaced, not only the two that the others call by default: an instrumented runtime
// replaces each of them, and checks that memory is freed by the form that belongs to its
// allocation.
void* operator new(std::size_t size) { return countedAllocationOrThrow(size); }
void* operator new[](std::size_t size) { return countedAllocationOrThrow(size); }
void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  return countedAllocation(size);
}
void* operator new[](std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  return countedAllocation(size);
}
void operator delete(void* memory) noexcept { release(memory); }
void operator delete[](void* memory) noexcept { release(memory); }
void operator delete(void* memory, std::size_t /*size*/) noexcept { release(memory); }
void operator delete[](void* memory, std::size_t /*size*/) noexcept { release(memory); }
void operator delete(void* memory, const std::nothrow_t& /*tag*/) noexcept { release(memory); }
void operator delete[](void* memory, const std::nothrow_t& /*tag*/) noexcept { release(memory); }

// For types that need more than the default alignment.

void* operator new(std::size_t size, std::align_val_t alignment) {
  return countedAllocationOrThrow(size, alignment);
}
void* operator new[](std::size_t size, std::align_val_t alignment) {
  return countedAllocationOrThrow(size, alignment);
}
void* operator new(std::size_t size, std::align_val_t alignment,
                   const std::nothrow_t& /*tag*/) noexcept {
  return countedAllocation(size, alignment);
}
void* operator new[](std::size_t size, std::align_val_t alignment,
                     const std::nothrow_t& /*tag*/) noexcept {
  return countedAllocation(size, alignment);
}
void operator delete(void* memory, std::align_val_t /*alignment*/) noexcept { release(memory); }
void operator delete[](void* memory, std::align_val_t /*alignment*/) noexcept { release(memory); }
void operator delete(void* memory, std::size_t /*size*/, std::align_val_t /*alignment*/) noexcept {
  release(memory);
}
void operator delete[](void* memory, std::size_t /*size*/,
                       std::align_val_t /*alignment*/) noexcept {
  release(memory);
}
void operator delete(void* memory, std::align_val_t /*alignment*/,
                     const std::nothrow_t& /*tag*/) noexcept {
  release(memory);
}
void operator delete[](void* memory, std::align_val_t /*alignment*/,
                       const std::nothrow_t& /*tag*/) noexcept {
  release(memory);
}
