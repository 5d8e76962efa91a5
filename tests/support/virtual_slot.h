// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The slot of a virtual operation in the virtual table of its class.
///
///   EXPECT_EQ(virtualSlot(&ZephlyDelegate::didReceiveECG), 4);
///
/// Reads the representation of a pointer to a member function in the Itanium C++ ABI, which g++ and
/// clang++ use on Linux: 1 + 8 * slot for a virtual function on 64-bit x86. On ARM the lowest bit
/// is in another word.

#include <array>
#include <cstddef>
#include <cstring>

template <class Method>
int virtualSlot(Method method) {
  static_assert(sizeof(method) == 2 * sizeof(std::ptrdiff_t));
  std::array<std::ptrdiff_t, 2> parts{};
  std::memcpy(parts.data(), &method, sizeof method);
#if defined(__aarch64__) || defined(__arm__)
  const std::ptrdiff_t offset = parts[0];
#else
  const std::ptrdiff_t offset = parts[0] - 1;
#endif
  return static_cast<int>(offset / static_cast<std::ptrdiff_t>(sizeof(void*)));
}
