#pragma once
/// @file
/// A delegate that wants everything, believes nothing, and checks each call against what it asked
/// for and was told before.

#include <zephly/platform/core_bluetooth.h>

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <set>

namespace bluez_test {

class Auditor final : public CBCentralManagerDelegate, public CBPeripheralDelegate {
 public:
  /// While it lives, nobody may call the auditor.
  class Calling {
   public:
    explicit Calling(Auditor& auditor) : auditor_(auditor) { ++auditor_.depth_; }
    Calling(const Calling&) = delete;
    Calling& operator=(const Calling&) = delete;
    ~Calling() { --auditor_.depth_; }

   private:
    Auditor& auditor_;
  };

  void centralManagerDidUpdateState(const std::shared_ptr<CBCentralManager>& central) override {
    const Calling calling = enter();
    EXPECT_NE(central->state(), state_) << "a change is told once";
    state_ = central->state();
    central->scanForPeripheralsWithServices(std::nullopt, std::nullopt);
  }
  void centralManagerDidDiscoverPeripheral(const std::shared_ptr<CBCentralManager>& central,
                                           const std::shared_ptr<CBPeripheral>& peripheral,
                                           const CBAdvertisementData& /*advertisementData*/,
                                           int /*RSSI*/) override {
    const Calling calling = enter();
    EXPECT_EQ(state_, CBManagerState::poweredOn);
    request(*central, peripheral);
  }
  void centralManagerDidConnectPeripheral(
      const std::shared_ptr<CBCentralManager>& /*central*/,
      const std::shared_ptr<CBPeripheral>& peripheral) override {
    const Calling calling = enter();
    Seen& seen = seen_.at(peripheral);
    EXPECT_TRUE(seen.requested && !seen.connected);
    seen = Seen();
    seen.connected = true;
    seen.servicesAsked = 1;
    ++connections;
    peripheral->setDelegate(self);
    peripheral->discoverServices(std::nullopt);
  }
  void centralManagerDidFailToConnectPeripheral(
      const std::shared_ptr<CBCentralManager>& /*central*/,
      const std::shared_ptr<CBPeripheral>& peripheral,
      const std::shared_ptr<const NSError>& error) override {
    const Calling calling = enter();
    EXPECT_TRUE(seen_.at(peripheral).requested && error);
    seen_.at(peripheral).requested = false;
  }
  void centralManagerDidDisconnectPeripheral(const std::shared_ptr<CBCentralManager>& central,
                                             const std::shared_ptr<CBPeripheral>& peripheral,
                                             const std::shared_ptr<const NSError>& error) override {
    const Calling calling = enter();
    EXPECT_TRUE(seen_.at(peripheral).connected) << "an end is told once";
    EXPECT_TRUE(error && !error->localizedDescription().empty());
    seen_.at(peripheral) = Seen();
    request(*central, peripheral);
  }

  void peripheralDidDiscoverServices(const std::shared_ptr<CBPeripheral>& peripheral,
                                     const std::shared_ptr<const NSError>& /*error*/) override {
    const Calling calling = enter();
    Seen& seen = seen_.at(peripheral);
    EXPECT_TRUE(seen.connected);
    EXPECT_GT(seen.servicesAsked--, 0) << "one answer per question";
    const auto services = peripheral->services();
    ASSERT_TRUE(services.has_value());
    for (const auto& service : *services) {
      ++seen.characteristicsAsked[service];
      peripheral->discoverCharacteristics(std::nullopt, service);
    }
  }
  void peripheralDidDiscoverCharacteristicsForService(
      const std::shared_ptr<CBPeripheral>& peripheral, const std::shared_ptr<CBService>& service,
      const std::shared_ptr<const NSError>& /*error*/) override {
    const Calling calling = enter();
    Seen& seen = seen_.at(peripheral);
    EXPECT_TRUE(seen.connected);
    EXPECT_GT(seen.characteristicsAsked[service]--, 0) << "one answer per question";
    const auto list = service->characteristics();
    ASSERT_TRUE(list.has_value());
    for (const auto& one : *list) {
      ++seen.subscriptionsAsked[one];
      seen.subscribed.insert(one);
      peripheral->setNotifyValue(true, one);
    }
  }
  void peripheralDidUpdateNotificationStateForCharacteristic(
      const std::shared_ptr<CBPeripheral>& peripheral,
      const std::shared_ptr<CBCharacteristic>& characteristic,
      const std::shared_ptr<const NSError>& /*error*/) override {
    const Calling calling = enter();
    EXPECT_TRUE(seen_.at(peripheral).connected);
    EXPECT_GT(seen_.at(peripheral).subscriptionsAsked[characteristic]--, 0)
        << "one answer per question";
  }
  void peripheralDidUpdateValueForCharacteristic(
      const std::shared_ptr<CBPeripheral>& peripheral,
      const std::shared_ptr<CBCharacteristic>& characteristic,
      const std::shared_ptr<const NSError>& error) override {
    const Calling calling = enter();
    EXPECT_TRUE(seen_.at(peripheral).connected);
    EXPECT_TRUE(seen_.at(peripheral).subscribed.contains(characteristic));
    EXPECT_EQ(error, nullptr);
    EXPECT_NE(characteristic->value(), nullptr);
    ++values;
  }

  std::weak_ptr<Auditor> self;
  int connections = 0;
  int values = 0;

 private:
  struct Seen {
    bool requested = false;
    bool connected = false;
    int servicesAsked = 0;
    std::map<std::shared_ptr<CBService>, int> characteristicsAsked;
    std::map<std::shared_ptr<CBCharacteristic>, int> subscriptionsAsked;
    std::set<std::shared_ptr<CBCharacteristic>> subscribed;
  };

  Calling enter() {
    EXPECT_EQ(depth_, 0) << "called from inside a call";
    return Calling(*this);
  }
  void request(CBCentralManager& central, const std::shared_ptr<CBPeripheral>& peripheral) {
    seen_[peripheral].requested = true;
    central.connectPeripheral(peripheral, std::nullopt);
  }

  int depth_ = 0;
  CBManagerState state_ = CBManagerState::unknown;
  std::map<std::shared_ptr<CBPeripheral>, Seen> seen_;
};

}  // namespace bluez_test
