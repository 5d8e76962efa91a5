// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The central role of Bluetooth Low Energy, as a host offers it to the kit: radio state, scanning,
/// connecting.
///
/// Created through CBCentralManager::init, which asks the host that is in use (see host.h). All
/// calls and all callbacks are made on the thread that runs the main queue. The delegate is never
/// called from inside a call to the central, nor from inside init.

#include <zephly/platform/cb_peripheral.h>
#include <zephly/platform/export.h>
#include <zephly/platform/foundation.h>

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

class CBCentralManager;

/// The radio. The numbers are those of the platform interface that this boundary is modelled on.
enum class CBManagerState : int {
  unknown = 0,       ///< not known yet: the state before the first report
  resetting = 1,     ///< lost for a moment, a report follows
  unsupported = 2,   ///< this machine has no usable radio or no Bluetooth service
  unauthorized = 3,  ///< this program may not use it
  poweredOff = 4,
  poweredOn = 5,
};

/// A queue other than the main one. No host has any: every caller passes null, the main queue.
class DispatchQueue;

/// Options by name, for scans, connections and creation. The kit passes none.
using CBOptions = std::map<std::string, std::string>;

/// The content of one advertisement, as far as the host knows it.
struct CBAdvertisementData {
  std::optional<std::string> localName;
  std::vector<CBUUID> serviceUUIDs;
};

/// Receives the events of a central. `error` is empty when there was none.
class ZEPHLY_EXPORT CBCentralManagerDelegate {
 public:
  virtual ~CBCentralManagerDelegate() = default;

  /// The state has become known or has changed; read it with central->state(). Comes at least once
  /// after creation.
  virtual void centralManagerDidUpdateState(const std::shared_ptr<CBCentralManager>& central) = 0;
  /// One advertisement while scanning; a device is reported again with each advertisement.
  /// `RSSI` is the signal strength in dBm; 127 when it is not known.
  virtual void centralManagerDidDiscoverPeripheral(const std::shared_ptr<CBCentralManager>& central,
                                                   const std::shared_ptr<CBPeripheral>& peripheral,
                                                   const CBAdvertisementData& advertisementData,
                                                   int RSSI) = 0;
  /// A requested connection is established.
  virtual void centralManagerDidConnectPeripheral(
      const std::shared_ptr<CBCentralManager>& central,
      const std::shared_ptr<CBPeripheral>& peripheral) = 0;
  /// A requested connection cannot be made; the request has ended.
  virtual void centralManagerDidFailToConnectPeripheral(
      const std::shared_ptr<CBCentralManager>& central,
      const std::shared_ptr<CBPeripheral>& peripheral,
      const std::shared_ptr<const NSError>& error) = 0;
  /// A connection has ended; called exactly once. `error` is empty when it was ended on purpose.
  virtual void centralManagerDidDisconnectPeripheral(
      const std::shared_ptr<CBCentralManager>& central,
      const std::shared_ptr<CBPeripheral>& peripheral,
      const std::shared_ptr<const NSError>& error) = 0;

 protected:
  CBCentralManagerDelegate() = default;
  CBCentralManagerDelegate(const CBCentralManagerDelegate&) = default;
  CBCentralManagerDelegate& operator=(const CBCentralManagerDelegate&) = default;
};

/// The radio of this machine in the central role.
class ZEPHLY_EXPORT CBCentralManager : public NSObject {
 public:
  /// A central of the host in use, never empty; without a host a fatal error that names the hosts
  /// of this build. `delegate` is held weakly; once it is destroyed, its events are dropped.
  /// `queue` null is the main queue, the only one there is.
  static std::shared_ptr<CBCentralManager> init(std::weak_ptr<CBCentralManagerDelegate> delegate,
                                                DispatchQueue* queue,
                                                const std::optional<CBOptions>& options);

  virtual CBManagerState state() const = 0;

  /// Reports every device that advertises one of the services, every device at all when
  /// `serviceUUIDs` is absent, until the central is destroyed. During a scan it replaces the
  /// filter; while the radio is not powered on it does nothing.
  virtual void scanForPeripheralsWithServices(
      const std::optional<std::vector<CBUUID>>& serviceUUIDs,
      const std::optional<CBOptions>& options) = 0;

  /// Requests a connection. The request does not time out: it is pending until the device is
  /// connected, the connection fails for a reason other than absence, or the central is destroyed.
  /// While a request for the device is pending or the device is connected, a further call does
  /// nothing and is not answered.
  virtual void connectPeripheral(const std::shared_ptr<CBPeripheral>& peripheral,
                                 const std::optional<CBOptions>& options) = 0;
};
