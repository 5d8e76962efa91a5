// SPDX-License-Identifier: MIT
#include <fuzz/support/reclaim.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdlib>

// Functions of the sanitizer, declared under its names.
// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)

// Of its allocator; absent in other builds.
extern "C" [[gnu::weak]] int __sanitizer_install_malloc_and_free_hooks(
    void (*malloc_hook)(const volatile void*, std::size_t),
    void (*free_hook)(const volatile void*));

// Of its detector of leaks; absent in other builds.
extern "C" [[gnu::weak]] void __lsan_disable();
extern "C" [[gnu::weak]] void __lsan_enable();

// Memory from `new double[]` is also freed with free(): the allocator does not distinguish them.
extern "C" const char* __asan_default_options();
extern "C" const char* __asan_default_options() { return "alloc_dealloc_mismatch=0"; }

// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)

namespace fuzz {

namespace {

// No containers: the hooks may not allocate.
std::array<const volatile void*, 4096> blocks;
std::size_t count = 0;
bool watching = false;

void allocated(const volatile void* block, std::size_t /*size*/) {
  if (watching && block != nullptr && count < blocks.size()) blocks.at(count++) = block;
}

void freed(const volatile void* block) {
  auto* const end = blocks.data() + count;
  auto* const found = std::find(blocks.data(), end, block);
  if (found == end) return;
  *found = *(end - 1);
  --count;
}

[[maybe_unused]] const bool installed =
    __sanitizer_install_malloc_and_free_hooks != nullptr &&
    __sanitizer_install_malloc_and_free_hooks(allocated, freed) != 0;

}  // namespace

Reclaim::Reclaim() { count = 0; }

Reclaim::~Reclaim() {
  // Removed from the list first: compilers assume that free() changes no variable of this file.
  while (count > 0) std::free(const_cast<void*>(blocks.at(--count)));
}

Reclaim::Watching::Watching() { watching = true; }

Reclaim::Watching::~Watching() { watching = false; }

Reclaim::Keeping::Keeping() {
  if (__lsan_disable != nullptr) __lsan_disable();
}

Reclaim::Keeping::~Keeping() {
  if (__lsan_enable != nullptr) __lsan_enable();
}

}  // namespace fuzz
