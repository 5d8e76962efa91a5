// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A byte buffer that a host hands to the kit: the value of a characteristic.
///
/// A host implements it over its own buffers; the bytes must not change during the object's
/// lifetime. The kit calls it on the main queue only and keeps no reference after the callback that
/// delivers it returns.

#include <zephly/platform/export.h>

#include <cstddef>

/// Immutable bytes.
class ZEPHLY_EXPORT NSData {
 public:
  virtual ~NSData() = default;

  /// Number of bytes, 0 or more.
  virtual std::size_t length() const = 0;

  /// Copies the first min(`length`, length()) bytes to `buffer`, which has room for `length` bytes.
  /// Bytes of `buffer` beyond those are left as they are.
  virtual void getBytes(void* buffer, std::size_t length) const = 0;

 protected:
  NSData() = default;
  NSData(const NSData&) = default;
  NSData& operator=(const NSData&) = default;
};
