// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// What an application receives from a session, one call per sample or event.
///
///   struct Application : ZephlyDelegate {
///     void didReceiveECG(float sample) override { plot(sample); }
///     ...
///   };
///
/// Called on the main queue, synchronously, in the order in which the strap's notifications
/// arrived. Implementations must not block. The session holds its delegate weakly: once the object
/// is destroyed, events are dropped. It may be destroyed at any time, also from within one of these
/// calls. The destructor is declared last so that the operations have the slots 0 to 6 of the
/// virtual table.

#include <zephly/platform/export.h>
#include <zephly/protocol/battery_status.h>

/// Implemented by the application.
class ZEPHLY_EXPORT ZephlyDelegate {
 public:
  /// True: the electrodes have lost contact with the skin. False: they have contact. Called for the
  /// first respiration sample of a session, then only on changes, before the didReceiveRespiration
  /// of the same sample.
  virtual void didChangeLeadoffState(bool leadoff) = 0;
  /// The strap is connected.
  virtual void didConnectPeripheral() = 0;
  /// The link to the strap is lost; the session reconnects automatically.
  virtual void didDisconnectPeripheral() = 0;
  /// Degrees Celsius. `bodyTemperature` is always 0: the session does not estimate it.
  virtual void didReceiveTemperature(float objectTemperature, float ambientTemperature,
                                     float bodyTemperature) = 0;
  /// One ECG sample as the strap sent it, unfiltered; full scale is +-2.42.
  virtual void didReceiveECG(float sample) = 0;
  /// One respiration sample after filtering, normalised to 0..1.
  virtual void didReceiveRespiration(float sample) = 0;
  virtual void didReceiveBatteryStatus(BatteryStatus status) = 0;

  virtual ~ZephlyDelegate() = default;
};
