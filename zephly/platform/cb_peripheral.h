// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A remote device, its services and its characteristics, as a host offers them to the kit.
///
/// All calls and all callbacks are made on the thread that runs the main queue. The delegate is
/// never called from inside a call to the peripheral. Objects are identified by address: during one
/// connection the host reports the same service or characteristic with the same object.

#include <zephly/platform/cb_uuid.h>
#include <zephly/platform/export.h>
#include <zephly/platform/foundation.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

class CBPeripheral;

/// A value that the device notifies. Owned by its service.
class ZEPHLY_EXPORT CBCharacteristic : public NSObject {
 public:
  virtual CBUUID UUID() const = 0;

  /// The bytes received most recently; empty when none were received. Inside
  /// peripheralDidUpdateValueForCharacteristic it is the value that the call announces, even when a
  /// later one has already arrived.
  virtual std::shared_ptr<const NSData> value() const = 0;

  /// One line, in the host's words, that identifies the characteristic to a person.
  std::string description() const override = 0;
};

/// A group of characteristics. Owned by its peripheral.
class ZEPHLY_EXPORT CBService : public NSObject {
 public:
  virtual CBUUID UUID() const = 0;

  /// The characteristics found, in the order in which the device lists them; empty (absent) until
  /// their discovery has ended. The kit reads it only from
  /// peripheralDidDiscoverCharacteristicsForService, where an absent list is a fatal error: a host
  /// that found none, or failed, reports an empty list.
  virtual std::optional<std::vector<std::shared_ptr<CBCharacteristic>>> characteristics() const = 0;
};

/// Receives the events of a peripheral. `error` is empty when there was none.
class ZEPHLY_EXPORT CBPeripheralDelegate {
 public:
  virtual ~CBPeripheralDelegate() = default;

  /// The answer to discoverServices: one per call.
  virtual void peripheralDidDiscoverServices(const std::shared_ptr<CBPeripheral>& peripheral,
                                             const std::shared_ptr<const NSError>& error) = 0;
  /// The answer to discoverCharacteristics: one per call.
  virtual void peripheralDidDiscoverCharacteristicsForService(
      const std::shared_ptr<CBPeripheral>& peripheral, const std::shared_ptr<CBService>& service,
      const std::shared_ptr<const NSError>& error) = 0;
  /// The answer to setNotifyValue: one per call.
  virtual void peripheralDidUpdateNotificationStateForCharacteristic(
      const std::shared_ptr<CBPeripheral>& peripheral,
      const std::shared_ptr<CBCharacteristic>& characteristic,
      const std::shared_ptr<const NSError>& error) = 0;
  /// One notification: called once for each value that the device sent, in the order of arrival,
  /// from the moment of the subscription on (which may be before its answer) until the
  /// disconnection.
  virtual void peripheralDidUpdateValueForCharacteristic(
      const std::shared_ptr<CBPeripheral>& peripheral,
      const std::shared_ptr<CBCharacteristic>& characteristic,
      const std::shared_ptr<const NSError>& error) = 0;

 protected:
  CBPeripheralDelegate() = default;
  CBPeripheralDelegate(const CBPeripheralDelegate&) = default;
  CBPeripheralDelegate& operator=(const CBPeripheralDelegate&) = default;
};

/// A device that has been found, connected or not.
class ZEPHLY_EXPORT CBPeripheral : public NSObject {
 public:
  /// The name under which the device advertises; absent when it advertises none.
  virtual std::optional<std::string> name() const = 0;

  /// The receiver of all events; held weakly. Replaces the previous one immediately; once it is
  /// destroyed, its events are dropped.
  virtual void setDelegate(std::weak_ptr<CBPeripheralDelegate> delegate) = 0;

  /// Starts discovery of the services with the given identifiers, of all services when
  /// `serviceUUIDs` is absent. Every call is answered. Without a connection there is no answer.
  virtual void discoverServices(const std::optional<std::vector<CBUUID>>& serviceUUIDs) = 0;

  /// The services found, in the order of their discovery; absent until a discovery has ended. The
  /// kit reads it only from peripheralDidDiscoverServices, where an absent list is a fatal error: a
  /// host that found none, or failed, reports an empty list.
  virtual std::optional<std::vector<std::shared_ptr<CBService>>> services() const = 0;

  /// Starts discovery of the service's characteristics, of all of them when `characteristicUUIDs`
  /// is absent. Every call is answered. Without a connection there is no answer.
  virtual void discoverCharacteristics(
      const std::optional<std::vector<CBUUID>>& characteristicUUIDs,
      const std::shared_ptr<CBService>& service) = 0;

  /// Subscribes to (true) or unsubscribes from (false) the characteristic's values. A second
  /// subscription is answered like the first and delivers no value twice. A subscription ends with
  /// its connection. Without a connection there is no answer.
  virtual void setNotifyValue(bool enabled,
                              const std::shared_ptr<CBCharacteristic>& characteristic) = 0;
};
