#include <tests/torture/steady_host.h>

#include <zephly/ble/gatt_profile.h>

#include <cstddef>
#include <utility>

namespace torture {

namespace simulator = Zephly::simulator;

class SteadyHost::Characteristic : public CBCharacteristic {
 public:
  explicit Characteristic(const CBUUID& uuid) : uuid_(uuid) {}

  CBUUID UUID() const override { return uuid_; }
  std::shared_ptr<const NSData> value() const override { return current; }
  std::string description() const override { return "characteristic " + uuid_.UUIDString(); }

  std::shared_ptr<const NSData> current;

 private:
  CBUUID uuid_;
};

class SteadyHost::Service : public CBService {
 public:
  CBUUID UUID() const override { return simulator::serviceUUID(); }
  std::optional<std::vector<std::shared_ptr<CBCharacteristic>>> characteristics() const override {
    return list;
  }

  std::optional<std::vector<std::shared_ptr<CBCharacteristic>>> list;
};

class SteadyHost::Peripheral : public CBPeripheral {
 public:
  explicit Peripheral(Requests& requests) : requests_(requests) {}

  std::optional<std::string> name() const override { return std::string(peripheralName); }
  void setDelegate(std::weak_ptr<CBPeripheralDelegate> newDelegate) override {
    delegate = std::move(newDelegate);
  }
  void discoverServices(const std::optional<std::vector<CBUUID>>& /*uuids*/) override {
    ++requests_.serviceDiscoveries;
  }
  std::optional<std::vector<std::shared_ptr<CBService>>> services() const override { return list; }
  void discoverCharacteristics(const std::optional<std::vector<CBUUID>>& /*uuids*/,
                               const std::shared_ptr<CBService>& /*service*/) override {
    ++requests_.characteristicDiscoveries;
  }
  void setNotifyValue(bool /*enabled*/,
                      const std::shared_ptr<CBCharacteristic>& /*characteristic*/) override {
    ++requests_.subscriptions;
  }

  std::weak_ptr<CBPeripheralDelegate> delegate;
  std::optional<std::vector<std::shared_ptr<CBService>>> list;

 private:
  Requests& requests_;
};

class SteadyHost::Central : public CBCentralManager {
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

SteadyHost::SteadyHost()
    : peripheral_(std::make_shared<Peripheral>(requests_)),
      service_(std::make_shared<Service>()),
      advertisement_{std::string(peripheralName), {}} {
  service_->list.emplace();
  for (const simulator::Stream stream : simulator::allStreams) {
    auto& characteristic = characteristics_.at(static_cast<std::size_t>(stream));
    characteristic = std::make_shared<Characteristic>(simulator::characteristicUUID(stream));
    service_->list->push_back(characteristic);
  }
  peripheral_->list.emplace().push_back(service_);
  Zephly::Host::use(this);
}

SteadyHost::~SteadyHost() { Zephly::Host::leave(this); }

std::shared_ptr<CBCentralManager> SteadyHost::createCentralManager(
    std::weak_ptr<CBCentralManagerDelegate> delegate, DispatchQueue* /*queue*/,
    const std::optional<CBOptions>& /*options*/) {
  delegate_ = std::move(delegate);
  central_ = std::make_shared<Central>(requests_);
  return central_;
}

void SteadyHost::turnOn() { delegate_.lock()->centralManagerDidUpdateState(central_); }

void SteadyHost::discover() {
  constexpr int rssi = -60;
  delegate_.lock()->centralManagerDidDiscoverPeripheral(central_, peripheral_, advertisement_,
                                                        rssi);
}

void SteadyHost::connect() {
  delegate_.lock()->centralManagerDidConnectPeripheral(central_, peripheral_);
}

void SteadyHost::disconnect(const std::string& text) {
  delegate_.lock()->centralManagerDidDisconnectPeripheral(central_, peripheral_,
                                                          Zephly::hosts::Error::of(text));
}

void SteadyHost::failToConnect() {
  delegate_.lock()->centralManagerDidFailToConnectPeripheral(central_, peripheral_, error_);
}

void SteadyHost::discoverServices() {
  handler()->peripheralDidDiscoverServices(peripheral_, nullptr);
}

void SteadyHost::discoverCharacteristics() {
  handler()->peripheralDidDiscoverCharacteristicsForService(peripheral_, service_, error_);
}

void SteadyHost::refuseSubscription() {
  handler()->peripheralDidUpdateNotificationStateForCharacteristic(
      peripheral_, characteristics_.front(), error_);
}

void SteadyHost::deliver(simulator::Stream stream, const std::shared_ptr<const NSData>& value) {
  const auto& characteristic = characteristics_.at(static_cast<std::size_t>(stream));
  characteristic->current = value;
  handler()->peripheralDidUpdateValueForCharacteristic(peripheral_, characteristic, nullptr);
}

void SteadyHost::deliverError(simulator::Stream stream) {
  handler()->peripheralDidUpdateValueForCharacteristic(
      peripheral_, characteristics_.at(static_cast<std::size_t>(stream)), error_);
}

std::shared_ptr<CBPeripheralDelegate> SteadyHost::handler() const {
  return peripheral_->delegate.lock();
}

}  // namespace torture
