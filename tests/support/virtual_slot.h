// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Which slot of its class's virtual table a virtual operation holds.
///
///   EXPECT_EQ(virtualSlot(&ZephlyDelegate::didReceiveECG), 4);
///
/// Reads the representation of pointers to members that the Itanium C++ ABI gives (1 + 8 * slot for
/// a virtual function on 64-bit x86; on ARM the mark is kept elsewhere): what g++ and clang++ use
/// on Linux.

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
