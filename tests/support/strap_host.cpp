// SPDX-License-Identifier: MIT
#include <tests/support/strap_host.h>

#include <zephly/ble/gatt_profile.h>

#include <cstddef>
#include <utility>
#include <vector>

namespace fake {

namespace simulator = Zephly::simulator;

class StrapHost::Peripheral : public Zephly::hosts::Peripheral {
 public:
  Peripheral(Requests& requests, std::shared_ptr<CBService> service)
      : requests_(requests), service_(std::move(service)) {
    setName(std::string(peripheralName));
  }

  void discoverServices(const std::optional<std::vector<CBUUID>>& /*uuids*/) override {
    ++requests_.serviceDiscoveries;
  }
  std::optional<std::vector<std::shared_ptr<CBService>>> services() const override {
    return {{service_}};
  }
  void discoverCharacteristics(const std::optional<std::vector<CBUUID>>& /*uuids*/,
                               const std::shared_ptr<CBService>& /*service*/) override {
    ++requests_.characteristicDiscoveries;
  }
  void setNotifyValue(bool /*enabled*/,
                      const std::shared_ptr<CBCharacteristic>& /*characteristic*/) override {
    ++requests_.subscriptions;
  }

 private:
  Requests& requests_;
  std::shared_ptr<CBService> service_;
};

class StrapHost::Central : public CBCentralManager {
 public:
  explicit Central(Requests& requests) : requests_(requests) {}

  CBManagerState state() const override { return CBManagerState::poweredOn; }
  void scanForPeripheralsWithServices(const std::optional<std::vector<CBUUID>>& /*uuids*/,
                                      const std::optional<CBOptions>& /*options*/) override {
    ++requests_.scans;
  }
  void connectPeripheral(const std::shared_ptr<CBPeripheral>& /*peripheral*/,
                         const std::optional<CBOptions>& /*options*/) override {
    ++requests_.connections;
  }

 private:
  Requests& requests_;
};

StrapHost::StrapHost()
    : service_(std::make_shared<Zephly::hosts::Service>(simulator::serviceUUID())),
      advertisement_{std::string(peripheralName), {}} {
  Zephly::hosts::Service::List list(std::in_place);
  for (const Zephly::Stream stream : Zephly::allStreams) {
    const CBUUID& uuid = Zephly::characteristicUUID(stream);
    auto& characteristic = characteristics_.at(static_cast<std::size_t>(stream));
    characteristic = std::make_shared<Zephly::hosts::Characteristic>(
        uuid, "characteristic " + uuid.UUIDString());
    list->push_back(characteristic);
  }
  service_->setCharacteristics(std::move(list));
  peripheral_ = std::make_shared<Peripheral>(requests_, service_);
  Zephly::Host::use(this);
}

StrapHost::~StrapHost() { Zephly::Host::leave(this); }

std::shared_ptr<CBCentralManager> StrapHost::createCentralManager(
    std::weak_ptr<CBCentralManagerDelegate> delegate, DispatchQueue* /*queue*/,
    const std::optional<CBOptions>& /*options*/) {
  delegate_ = std::move(delegate);
  central_ = std::make_shared<Central>(requests_);
  return central_;
}

void StrapHost::turnOn() { delegate_.lock()->centralManagerDidUpdateState(central_); }

void StrapHost::discover() {
  constexpr int rssi = -60;
  delegate_.lock()->centralManagerDidDiscoverPeripheral(central_, peripheral_, advertisement_,
                                                        rssi);
}

void StrapHost::connect() {
  delegate_.lock()->centralManagerDidConnectPeripheral(central_, peripheral_);
}

void StrapHost::disconnect(const std::string& text) {
  delegate_.lock()->centralManagerDidDisconnectPeripheral(central_, peripheral_,
                                                          Zephly::hosts::Error::of(text));
}

void StrapHost::failToConnect() {
  delegate_.lock()->centralManagerDidFailToConnectPeripheral(central_, peripheral_, error_);
}

void StrapHost::discoverServices() {
  peripheral_->delegate()->peripheralDidDiscoverServices(peripheral_, nullptr);
}

void StrapHost::discoverCharacteristics() {
  peripheral_->delegate()->peripheralDidDiscoverCharacteristicsForService(peripheral_, service_,
                                                                          error_);
}

void StrapHost::refuseSubscription() {
  peripheral_->delegate()->peripheralDidUpdateNotificationStateForCharacteristic(
      peripheral_, characteristics_.front(), error_);
}

void StrapHost::deliver(Zephly::Stream stream, const std::shared_ptr<const NSData>& value) {
  const auto& characteristic = characteristics_.at(static_cast<std::size_t>(stream));
  characteristic->setValue(value);
  peripheral_->delegate()->peripheralDidUpdateValueForCharacteristic(peripheral_, characteristic,
                                                                     nullptr);
}

void StrapHost::deliverError(Zephly::Stream stream) {
  peripheral_->delegate()->peripheralDidUpdateValueForCharacteristic(
      peripheral_, characteristics_.at(static_cast<std::size_t>(stream)), error_);
}

}  // namespace fake
