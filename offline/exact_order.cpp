// SPDX-License-Identifier: MIT
#include <offline/exact_order.h>

#include <algorithm>
#include <array>
#include <numeric>

namespace Zephly::offline {

void sortExactly(const double* samples, std::size_t count, double* sorted, std::size_t distance,
                 std::uint16_t* places, std::uint16_t first) {
  std::array<std::uint16_t, 1024> order{};
  const auto end = order.begin() + static_cast<std::ptrdiff_t>(count);
  std::iota(order.begin(), end, std::uint16_t{0});
  std::sort(order.begin(), end, [samples](std::uint16_t left, std::uint16_t right) {
    return samples[left] < samples[right];
  });
  for (std::size_t rank = 0; rank < count; ++rank) {
    sorted[rank * distance] = samples[order[rank]];
    places[order[rank]] = static_cast<std::uint16_t>(first + rank);
  }
}

}  // namespace Zephly::offline
