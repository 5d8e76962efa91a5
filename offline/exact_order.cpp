// SPDX-License-Identifier: MIT
#include <offline/exact_order.h>

#include <algorithm>

namespace Zephly::offline {

void sortRows(std::uint32_t* rows, std::size_t count, const double* samples) {
  std::sort(rows, rows + count, [samples](std::uint32_t left, std::uint32_t right) {
    return samples[left] < samples[right];
  });
}

}  // namespace Zephly::offline
