// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A sliding window over the latest values of a signal.
///
///     Zephly::CyclicBuffer window{5, {}};
///     window.push(34.1F);

#include <zephly/platform/export.h>

#include <vector>

namespace Zephly {

/// The owner sets the capacity; a push keeps the newest `capacity` values.
struct ZEPHLY_EXPORT CyclicBuffer {
  int capacity = 0;           ///< the largest number of values kept
  std::vector<float> values;  ///< oldest first

  /// Appends `value` and drops the oldest one when more than `capacity` are held then.
  void push(float value);
};

}  // namespace Zephly
