#pragma once
/// @file
/// What arrived, held against what was sent.

#include <tests/bluetooth/check/strap_log.h>

#include <cstddef>

namespace Zephly::bluetooth_check {

struct Tally {
  std::size_t sent = 0;
  std::size_t received = 0;
  std::size_t lost = 0;     ///< sent before something that arrived, and did not arrive itself
  std::size_t missing = 0;  ///< sent after the last that arrived: on their way when the link ended
  std::size_t twice = 0;    ///< arrived again, or later than something sent after it
  std::size_t foreign = 0;  ///< was never sent
  /// The strap had no room for it, because the machine was too slow for the air. Nothing that the
  /// session could have delivered.
  std::size_t dropped = 0;

  Tally& operator+=(const Tally& other);
  /// Each once and in order, but for the end.
  bool inOrder() const { return lost == 0 && twice == 0 && foreign == 0; }
  bool complete() const { return inOrder() && missing == 0; }
};

/// All streams of one link.
Tally compare(const Readings& sent, const Readings& received);

}  // namespace Zephly::bluetooth_check
