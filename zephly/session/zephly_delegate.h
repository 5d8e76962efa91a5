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
/// arrived. Implementations must not block. The session holds its delegate without owning it: when
/// the object is gone, its events are dropped; it may go at any moment, also during one of these
/// calls. The destructor stands last so that the operations hold the slots 0 to 6 of the virtual
/// table.

#include <zephly/platform/export.h>
#include <zephly/protocol/battery_status.h>

/// To be implemented by the application.
class ZEPHLY_EXPORT ZephlyDelegate {
 public:
  /// True: the electrodes have lost contact with the skin. False: they have contact. Told for the
  /// first respiration sample of a session and from then on only when it changes, before that
  /// sample's didReceiveRespiration.
  virtual void didChangeLeadoffState(bool leadoff) = 0;
  /// The strap is connected.
  virtual void didConnectPeripheral() = 0;
  /// The link to the strap is gone; the session is already on its way to connect again.
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
