// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Compares the values received with the values sent.

#include <tests/bluetooth/check/strap_log.h>

#include <cstddef>

namespace Zephly::bluetooth_check {

struct Tally {
  std::size_t sent = 0;
  std::size_t received = 0;
  std::size_t lost = 0;  ///< sent before a value that arrived, but did not arrive
  std::size_t missing =
      0;  ///< sent after the last value that arrived: in transit when the link ended
  std::size_t twice = 0;    ///< arrived again, or after a value that was sent later
  std::size_t foreign = 0;  ///< never sent
  /// Dropped by the strap because its queue was full, on a slow machine. The session could not have
  /// delivered it.
  std::size_t dropped = 0;

  Tally& operator+=(const Tally& other);
  /// Each value once and in order, except missing ones at the end.
  bool inOrder() const { return lost == 0 && twice == 0 && foreign == 0; }
  bool complete() const { return inOrder() && missing == 0; }
};

/// All streams of one link.
Tally compare(const Readings& sent, const Readings& received);

}  // namespace Zephly::bluetooth_check
