// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Finds the strap, connects to it and keeps the connection up.
///
/// Scans for all devices once the radio is powered on, and never stops; requests a connection to
/// every device whose advertised name is exactly `peripheralName`; requests it again immediately
/// after every disconnection. There is no timer, no retry limit and no way to stop. Events of the
/// connected strap are forwarded unchanged to the delegate. Radio states other than "powered on"
/// are not reported.
///
/// Everything runs on the main queue. This object owns its delegate (the session), and the session
/// owns this object: both live until the process ends.

#include <zephly/ble/zephly_peripheral.h>
#include <zephly/platform/core_bluetooth.h>
#include <zephly/platform/export.h>
#include <zephly/platform/foundation.h>
#include <zephly/session/zephly_peripheral_delegate.h>

#include <memory>
#include <vector>

struct SessionTestAccess;  // lets tests look at what the session's classes hold

/// Between the platform's central and the session.
class ZEPHLY_EXPORT CentralManager : public NSObject,
                                     public CBCentralManagerDelegate,
                                     public ZephlyPeripheralDelegate {
 public:
  /// Creates the platform's central with the new object as its delegate: from the first report of a
  /// radio that is powered on, it scans for the strap. Without a host a fatal error.
  static std::shared_ptr<CentralManager> init(std::shared_ptr<ZephlyPeripheralDelegate> delegate);

  /// Not available: a central manager always has a delegate. A fatal error.
  [[noreturn]] static std::shared_ptr<CentralManager> init();

  // Callbacks of the platform's central.

  /// Starts the scan when the radio is powered on; nothing in any other state.
  void centralManagerDidUpdateState(const std::shared_ptr<CBCentralManager>& central) override;
  /// Keeps a device with the strap's name and requests a connection; the scan continues.
  void centralManagerDidDiscoverPeripheral(const std::shared_ptr<CBCentralManager>& central,
                                           const std::shared_ptr<CBPeripheral>& peripheral,
                                           const CBAdvertisementData& advertisementData,
                                           int RSSI) override;
  /// Gives the device a new handler, starts service discovery, notifies the delegate.
  void centralManagerDidConnectPeripheral(const std::shared_ptr<CBCentralManager>& central,
                                          const std::shared_ptr<CBPeripheral>& peripheral) override;
  /// Prints one line; the next advertisement leads to the next attempt.
  void centralManagerDidFailToConnectPeripheral(
      const std::shared_ptr<CBCentralManager>& central,
      const std::shared_ptr<CBPeripheral>& peripheral,
      const std::shared_ptr<const NSError>& error) override;
  /// Notifies the delegate, requests the connection again, prints the error if there is one.
  void centralManagerDidDisconnectPeripheral(const std::shared_ptr<CBCentralManager>& central,
                                             const std::shared_ptr<CBPeripheral>& peripheral,
                                             const std::shared_ptr<const NSError>& error) override;

  // Calls of the peripheral handler, forwarded unchanged to the delegate.

  /// Does nothing: the platform's central reports connections.
  void didConnectPeripheral() override;
  /// Does nothing: the platform's central reports disconnections.
  void didDisconnectPeripheral() override;
  void didReceiveTemperature(float objectTemperature, float ambientTemperature) override;
  void didReceiveECG(const std::vector<float>& samples) override;
  void didReceiveRespiration(const std::vector<float>& samples) override;
  void didReceiveBatteryStatus(BatteryStatus status) override;
  void didReceiveIMUValues(float qw, float qx, float qy, float qz, float ax, float ay,
                           float az) override;

 protected:
  const Zephly::SelectorTable& selectors() const override;

 private:
  friend struct SessionTestAccess;

  explicit CentralManager(std::shared_ptr<ZephlyPeripheralDelegate> owner);

  ZephlyPeripheralDelegate& requireDelegate() const;
  CBCentralManager& requireCentralManager() const;

  std::shared_ptr<ZephlyPeripheralDelegate> delegate;
  std::shared_ptr<ZephlyPeripheral> zephlyPeripheral;  // of the latest connection
  std::shared_ptr<CBPeripheral> peripheral;            // the device found most recently
  std::shared_ptr<CBCentralManager> _centralManager;
};
