// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A Bluetooth host without behaviour. Its objects record the kit's requests in one log and answer
/// nothing. A test calls the kit's delegates itself.

#include <hosts/foundation/data.h>
#include <hosts/foundation/error.h>
#include <hosts/foundation/gatt_objects.h>
#include <zephly/platform/core_bluetooth.h>
#include <zephly/platform/host.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace fake {

inline const std::shared_ptr<const NSError> noError;

/// An error with any text, also with control characters. The hosts of this project remove them;
/// other hosts may not.
class RawError : public NSError {
 public:
  explicit RawError(std::string text) : text_(std::move(text)) {}
  static std::shared_ptr<const NSError> of(std::string text) {
    return std::make_shared<const RawError>(std::move(text));
  }
  std::string localizedDescription() const override { return text_; }

 private:
  std::string text_;
};

/// The events in order, as short texts.
using Log = std::vector<std::string>;

class Characteristic : public Zephly::hosts::Characteristic {
 public:
  explicit Characteristic(const CBUUID& uuid)
      : Zephly::hosts::Characteristic(uuid, "characteristic " + uuid.UUIDString()) {}
};

class Service : public Zephly::hosts::Service {
 public:
  explicit Service(std::string_view uuid) : Zephly::hosts::Service(CBUUID::UUIDWithString(uuid)) {}
};

class Peripheral : public CBPeripheral {
 public:
  Peripheral(Log& log, std::optional<std::string> name) : current(std::move(name)), log_(log) {}

  std::optional<std::string> name() const override {
    ++nameReads;
    return current;
  }
  void setDelegate(std::weak_ptr<CBPeripheralDelegate> newDelegate) override {
    log_.emplace_back("setDelegate");
    delegate = std::move(newDelegate);
  }
  void discoverServices(const std::optional<std::vector<CBUUID>>& serviceUUIDs) override {
    log_.emplace_back(serviceUUIDs ? "discoverServices filtered" : "discoverServices");
  }
  std::optional<std::vector<std::shared_ptr<CBService>>> services() const override { return list; }
  void discoverCharacteristics(const std::optional<std::vector<CBUUID>>& characteristicUUIDs,
                               const std::shared_ptr<CBService>& service) override {
    log_.push_back(
        (characteristicUUIDs ? "discoverCharacteristics filtered " : "discoverCharacteristics ") +
        service->UUID().UUIDString().substr(4, 4));
  }
  void setNotifyValue(bool enabled,
                      const std::shared_ptr<CBCharacteristic>& characteristic) override {
    log_.push_back((enabled ? "subscribe " : "unsubscribe ") +
                   characteristic->UUID().UUIDString().substr(0, 8));
    if (whenSubscribing) whenSubscribing();
  }

  std::optional<std::string> current;  ///< the name
  mutable int nameReads = 0;
  std::optional<std::vector<std::shared_ptr<CBService>>> list;
  std::weak_ptr<CBPeripheralDelegate> delegate;
  std::function<void()> whenSubscribing;  ///< runs inside setNotifyValue

 private:
  Log& log_;
};

class Central : public CBCentralManager {
 public:
  explicit Central(Log& log) : log_(log) {}

  CBManagerState state() const override { return current; }
  void scanForPeripheralsWithServices(const std::optional<std::vector<CBUUID>>& serviceUUIDs,
                                      const std::optional<CBOptions>& options) override {
    log_.emplace_back(serviceUUIDs || options ? "scan filtered" : "scan");
  }
  void connectPeripheral(const std::shared_ptr<CBPeripheral>& peripheral,
                         const std::optional<CBOptions>& options) override {
    log_.emplace_back(options ? "connect with options" : "connect");
    requested.push_back(peripheral);
    if (whenConnecting) whenConnecting();
  }

  CBManagerState current = CBManagerState::unknown;
  std::vector<std::shared_ptr<CBPeripheral>> requested;
  std::function<void()> whenConnecting;  ///< runs inside connectPeripheral

 private:
  Log& log_;
};

/// The current host during its lifetime.
class World : public Zephly::Host {
 public:
  World() { Zephly::Host::use(this); }
  ~World() override { Zephly::Host::leave(this); }
  World(const World&) = delete;
  World& operator=(const World&) = delete;

  std::shared_ptr<CBCentralManager> createCentralManager(
      std::weak_ptr<CBCentralManagerDelegate> newDelegate, DispatchQueue* queue,
      const std::optional<CBOptions>& options) override {
    log.emplace_back(queue != nullptr || options ? "create central with queue or options"
                                                 : "create central");
    delegate = std::move(newDelegate);
    if (whenCreating) whenCreating();
    central = std::make_shared<Central>(log);
    return central;
  }

  std::shared_ptr<Peripheral> peripheral(std::optional<std::string> name) {
    return std::make_shared<Peripheral>(log, std::move(name));
  }

  Log log;
  std::shared_ptr<Central> central;
  std::weak_ptr<CBCentralManagerDelegate> delegate;
  std::function<void()> whenCreating;  ///< runs inside createCentralManager
};

}  // namespace fake
