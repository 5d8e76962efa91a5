// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The strap's notifications, one call each, from the peripheral handler through the central
/// manager to the session.
///
/// Called on the main queue, synchronously, in the order in which the notifications arrived.
/// Implementations must not block. The destructor is declared last so that the operations have the
/// slots 0 to 6 of the virtual table, in the order below; relays rely on that order.

#include <zephly/platform/export.h>
#include <zephly/protocol/battery_status.h>

#include <vector>

/// One call per notification.
class ZEPHLY_EXPORT ZephlyPeripheralDelegate {
 public:
  /// The device is connected.
  virtual void didConnectPeripheral() = 0;
  /// The link to the device is lost.
  virtual void didDisconnectPeripheral() = 0;
  /// Object (skin) and ambient temperature in degrees Celsius.
  virtual void didReceiveTemperature(float objectTemperature, float ambientTemperature) = 0;
  /// The samples of one frame, oldest first; full scale is +-2.42.
  virtual void didReceiveECG(const std::vector<float>& samples) = 0;
  /// The samples of one frame, oldest first; full scale is +-2.42.
  virtual void didReceiveRespiration(const std::vector<float>& samples) = 0;
  virtual void didReceiveBatteryStatus(BatteryStatus status) = 0;
  /// Orientation as a quaternion, scalar first, and acceleration in g.
  virtual void didReceiveIMUValues(float qw, float qx, float qy, float qz, float ax, float ay,
                                   float az) = 0;

  virtual ~ZephlyPeripheralDelegate() = default;
};
