// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The phone's own motion sensors. The kit holds such an object (see phone/imu.h) and calls nothing
/// on it, so the interface has no operation yet.

#include <zephly/platform/export.h>

/// To be derived from by a host that has such sensors.
class ZEPHLY_EXPORT CMMotionManager {
 public:
  virtual ~CMMotionManager() = default;

 protected:
  CMMotionManager() = default;
  CMMotionManager(const CMMotionManager&) = default;
  CMMotionManager& operator=(const CMMotionManager&) = default;
};
