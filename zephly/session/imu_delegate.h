// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Samples of the phone's own motion sensors. Nothing in the kit produces them yet.
///
/// May be implemented by a value as well as by an object: a holder keeps it by std::shared_ptr,
/// into which a value is copied.

#include <zephly/platform/export.h>

/// One call per sample of all three sensors.
class ZEPHLY_EXPORT IMUDelegate {
 public:
  /// Rotation rate, acceleration and magnetic field, each x, y, z.
  virtual void didReceiveIMUValues(float gx, float gy, float gz, float ax, float ay, float az,
                                   float mx, float my, float mz) = 0;

  virtual ~IMUDelegate() = default;
};
