// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A delegate of central and peripherals that records its calls, one short line per call,
/// and makes the requests of a script.

#include <zephly/platform/core_bluetooth.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace boundary {

inline std::string hex(const std::shared_ptr<const NSData>& data) {
  if (!data) return "absent";
  std::vector<std::uint8_t> bytes(data->length());
  data->getBytes(bytes.data(), bytes.size());
  static constexpr char digits[] = "0123456789ABCDEF";
  std::string text;
  for (const std::uint8_t byte : bytes) {
    text += digits[byte >> 4U];
    text += digits[byte & 15U];
  }
  return text;
}

class Recorder : public CBCentralManagerDelegate, public CBPeripheralDelegate {
 public:
  /// Its automatic requests; by default those of an application that subscribes to everything.
  struct Script {
    bool scan = true;
    bool connect = true;    ///< to every device discovered
    bool discover = true;   ///< services, then characteristics
    bool subscribe = true;  ///< to every characteristic
    bool reconnect = true;  ///< after each disconnection
    bool logDiscoveries = false;
  };

  void centralManagerDidUpdateState(const std::shared_ptr<CBCentralManager>& central) override {
    note("state " + std::to_string(static_cast<int>(central->state())));
    if (script.scan) central->scanForPeripheralsWithServices(std::nullopt, std::nullopt);
  }
  void centralManagerDidDiscoverPeripheral(const std::shared_ptr<CBCentralManager>& central,
                                           const std::shared_ptr<CBPeripheral>& peripheral,
                                           const CBAdvertisementData& advertisementData,
                                           int RSSI) override {
    peripheral_ = peripheral;
    ++discoveries;
    if (script.logDiscoveries) {
      note("discovered " + peripheral->name().value_or("(none)") + " " + std::to_string(RSSI));
    }
    lastAdvertisement = advertisementData;
    if (script.connect) central->connectPeripheral(peripheral, std::nullopt);
  }
  void centralManagerDidConnectPeripheral(
      const std::shared_ptr<CBCentralManager>& /*central*/,
      const std::shared_ptr<CBPeripheral>& peripheral) override {
    note("connected");
    peripheral->setDelegate(peripheralDelegate);
    if (script.discover) peripheral->discoverServices(std::nullopt);
  }
  void centralManagerDidFailToConnectPeripheral(
      const std::shared_ptr<CBCentralManager>& /*central*/,
      const std::shared_ptr<CBPeripheral>& /*peripheral*/,
      const std::shared_ptr<const NSError>& error) override {
    note("failed" + text(error));
  }
  void centralManagerDidDisconnectPeripheral(const std::shared_ptr<CBCentralManager>& central,
                                             const std::shared_ptr<CBPeripheral>& peripheral,
                                             const std::shared_ptr<const NSError>& error) override {
    note("disconnected" + text(error));
    if (script.reconnect) central->connectPeripheral(peripheral, std::nullopt);
  }

  void peripheralDidDiscoverServices(const std::shared_ptr<CBPeripheral>& peripheral,
                                     const std::shared_ptr<const NSError>& error) override {
    const auto services = peripheral->services();
    note("services " + (services ? std::to_string(services->size()) : "absent") + text(error));
    if (!services) return;
    lastServices = *services;
    if (onServices) onServices();
    for (const auto& service : *services) {
      if (script.discover) peripheral->discoverCharacteristics(std::nullopt, service);
    }
  }
  void peripheralDidDiscoverCharacteristicsForService(
      const std::shared_ptr<CBPeripheral>& peripheral, const std::shared_ptr<CBService>& service,
      const std::shared_ptr<const NSError>& error) override {
    const auto list = service->characteristics();
    note("characteristics " + (list ? std::to_string(list->size()) : "absent") + text(error));
    if (!list) return;
    lastCharacteristics = *list;
    for (const auto& characteristic : *list) {
      if (script.subscribe) peripheral->setNotifyValue(true, characteristic);
    }
  }
  void peripheralDidUpdateNotificationStateForCharacteristic(
      const std::shared_ptr<CBPeripheral>& /*peripheral*/,
      const std::shared_ptr<CBCharacteristic>& characteristic,
      const std::shared_ptr<const NSError>& error) override {
    note("subscribed " + shortName(*characteristic) + text(error));
  }
  void peripheralDidUpdateValueForCharacteristic(
      const std::shared_ptr<CBPeripheral>& /*peripheral*/,
      const std::shared_ptr<CBCharacteristic>& characteristic,
      const std::shared_ptr<const NSError>& error) override {
    note("value " + shortName(*characteristic) + " " + hex(characteristic->value()) + text(error));
    if (onValue) onValue();
  }

  /// The calls since the last take().
  std::vector<std::string> take() { return std::exchange(log, {}); }

  /// The first two digits of the identifier, which distinguish the profile's characteristics.
  static std::string shortName(const CBCharacteristic& characteristic) {
    return characteristic.UUID().UUIDString().substr(0, 2);
  }

  Script script;
  std::vector<std::string> log;
  int discoveries = 0;
  CBAdvertisementData lastAdvertisement;
  std::vector<std::shared_ptr<CBService>> lastServices;
  std::vector<std::shared_ptr<CBCharacteristic>> lastCharacteristics;
  std::shared_ptr<CBPeripheral> peripheral_;
  std::weak_ptr<CBPeripheralDelegate> peripheralDelegate;
  std::function<void()> onServices;
  std::function<void()> onValue;

 private:
  static std::string text(const std::shared_ptr<const NSError>& error) {
    return error ? ": " + error->localizedDescription() : "";
  }
  void note(std::string line) { log.push_back(std::move(line)); }
};

/// One session: a recorder with a central of the current host.
struct Session {
  explicit Session(Recorder::Script script = {}) {
    recorder->script = script;
    recorder->peripheralDelegate = recorder;
    central = CBCentralManager::init(recorder, nullptr, std::nullopt);
  }

  std::shared_ptr<Recorder> recorder = std::make_shared<Recorder>();
  std::shared_ptr<CBCentralManager> central;
};

}  // namespace boundary
