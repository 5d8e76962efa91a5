#include <tests/support/allocation_count.h>

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<std::size_t> allocations{0};
std::atomic<std::size_t> live{0};
std::atomic<std::size_t> failing{0};

void* countedAllocation(std::size_t size) noexcept {
  if (++allocations == failing) return nullptr;
  void* const memory = std::malloc(size == 0 ? 1 : size);
  if (memory != nullptr) ++live;
  return memory;
}

void* countedAllocationOrThrow(std::size_t size) {
  void* const memory = countedAllocation(size);
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

void failAllocation(std::size_t number) { failing = number == 0 ? 0 : allocations + number; }

// All forms are replaced, not only the two that the others default to: an instrumented runtime
// brings its own of each and checks that a pair belongs together.
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
