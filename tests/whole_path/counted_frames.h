#pragma once
/// @file
/// ECG and respiration frames whose samples are a running count, so that a test sees at once what
/// is missing, repeated or out of order.

#include <cmath>
#include <cstdint>
#include <vector>

namespace counted {

/// A frame of the six counts from `first` on (below 2^23).
inline std::vector<std::uint8_t> frame(std::uint32_t first) {
  std::vector<std::uint8_t> bytes;
  for (std::uint32_t count = first; count < first + 6; ++count) {
    for (int shift = 0; shift < 24; shift += 8) {
      bytes.push_back(static_cast<std::uint8_t>(count >> shift));
    }
  }
  return bytes;
}

/// The count that a delivered ECG sample stands for.
inline std::uint32_t count(float sample) {
  return static_cast<std::uint32_t>(std::lround(static_cast<double>(sample) / 2.42 * 8388608.0));
}

}  // namespace counted
