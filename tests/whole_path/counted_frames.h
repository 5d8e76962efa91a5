// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// ECG and respiration frames whose samples are a running count, so that a test detects missing,
/// repeated and reordered samples.

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

/// The count in a delivered ECG sample.
inline std::uint32_t count(float sample) {
  return static_cast<std::uint32_t>(std::lround(static_cast<double>(sample) / 2.42 * 8388608.0));
}

}  // namespace counted
