// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Checks that a host keeps the contract of the boundary. The auditor is a delegate that requests
/// everything, and compares each call with its requests and with the calls before it. Texts must be
/// one line.
///
///   const auto auditor = std::make_shared<HostAuditor>();
///   auditor->self = auditor;
///   const auto central = CBCentralManager::init(auditor, nullptr, std::nullopt);
///   {
///     const HostAuditor::Calling calling(*auditor);
///     radio.setState(CBManagerState::poweredOff);  // may not call back from inside
///   }

#include <zephly/platform/core_bluetooth.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string_view>
#include <vector>

/// Whether `text` (UTF-8) is what the kit may print as one line: without line breaks and control
/// characters.
inline bool isOneLine(std::string_view text) {
  for (std::size_t index = 0; index < text.size(); ++index) {
    const std::string_view rest = text.substr(index);
    const auto byte = static_cast<unsigned char>(rest.front());
    if (byte < 0x20 || byte == 0x7F) return false;
    if (rest >= "\u0080" && rest < "\u00A0") return false;
    if (rest.starts_with("\u2028") || rest.starts_with("\u2029")) return false;
  }
  return true;
}

class HostAuditor : public CBCentralManagerDelegate, public CBPeripheralDelegate {
 public:
  /// During its lifetime the auditor must not be called.
  class Calling {
   public:
    explicit Calling(HostAuditor& auditor) : auditor_(auditor) { ++auditor_.depth_; }
    Calling(const Calling&) = delete;
    Calling& operator=(const Calling&) = delete;
    ~Calling() { --auditor_.depth_; }

   private:
    HostAuditor& auditor_;
  };

  void centralManagerDidUpdateState(const std::shared_ptr<CBCentralManager>& central) override {
    const Calling calling = enter();
    EXPECT_NE(central->state(), state_) << "a change is reported once";
    state_ = central->state();
    central->scanForPeripheralsWithServices(std::nullopt, std::nullopt);
  }
  void centralManagerDidDiscoverPeripheral(const std::shared_ptr<CBCentralManager>& central,
                                           const std::shared_ptr<CBPeripheral>& peripheral,
                                           const CBAdvertisementData& /*advertisementData*/,
                                           int /*RSSI*/) override {
    const Calling calling = enter();
    EXPECT_EQ(state_, CBManagerState::poweredOn);
    seen_[peripheral];
    if (wantsConnection()) request(*central, peripheral);
  }
  void centralManagerDidConnectPeripheral(
      const std::shared_ptr<CBCentralManager>& /*central*/,
      const std::shared_ptr<CBPeripheral>& peripheral) override {
    const Calling calling = enter();
    Seen& seen = seen_.at(peripheral);
    EXPECT_TRUE(seen.requested && !seen.connected);
    seen = Seen();
    seen.connected = true;
    ++connections;
    peripheral->setDelegate(self);
    discoverServices(peripheral);
  }
  void centralManagerDidFailToConnectPeripheral(
      const std::shared_ptr<CBCentralManager>& /*central*/,
      const std::shared_ptr<CBPeripheral>& peripheral,
      const std::shared_ptr<const NSError>& error) override {
    const Calling calling = enter();
    Seen& seen = seen_.at(peripheral);
    EXPECT_TRUE(seen.requested && !seen.connected);
    EXPECT_NE(error, nullptr);
    checkText(error);
    seen.requested = false;
  }
  void centralManagerDidDisconnectPeripheral(const std::shared_ptr<CBCentralManager>& central,
                                             const std::shared_ptr<CBPeripheral>& peripheral,
                                             const std::shared_ptr<const NSError>& error) override {
    const Calling calling = enter();
    Seen& seen = seen_.at(peripheral);
    EXPECT_TRUE(seen.connected) << "an end is reported once";
    checkText(error);
    didEnd(error);
    seen = Seen();
    if (wantsConnection()) request(*central, peripheral);
  }

  void peripheralDidDiscoverServices(const std::shared_ptr<CBPeripheral>& peripheral,
                                     const std::shared_ptr<const NSError>& error) override {
    const Calling calling = enter();
    checkText(error);
    Seen& seen = seen_.at(peripheral);
    EXPECT_TRUE(seen.connected);
    EXPECT_GT(seen.servicesAsked--, 0) << "one answer per question";
    const auto services = peripheral->services();
    ASSERT_TRUE(services.has_value());
    for (const auto& service : *services) {
      seen.services.insert(service);
      ++seen.characteristicsAsked[service];
      peripheral->discoverCharacteristics(std::nullopt, service);
    }
    didFind(seen.services.size(), seen.characteristics.size());
  }
  void peripheralDidDiscoverCharacteristicsForService(
      const std::shared_ptr<CBPeripheral>& peripheral, const std::shared_ptr<CBService>& service,
      const std::shared_ptr<const NSError>& error) override {
    const Calling calling = enter();
    checkText(error);
    Seen& seen = seen_.at(peripheral);
    EXPECT_TRUE(seen.connected);
    EXPECT_GT(seen.characteristicsAsked[service]--, 0) << "one answer per question";
    const auto list = service->characteristics();
    ASSERT_TRUE(list.has_value());
    for (const auto& characteristic : *list) {
      seen.characteristics.insert(characteristic);
      EXPECT_TRUE(isOneLine(characteristic->description())) << characteristic->description();
      subscribe(peripheral, characteristic);
    }
    didFind(seen.services.size(), seen.characteristics.size());
  }
  void peripheralDidUpdateNotificationStateForCharacteristic(
      const std::shared_ptr<CBPeripheral>& peripheral,
      const std::shared_ptr<CBCharacteristic>& characteristic,
      const std::shared_ptr<const NSError>& error) override {
    const Calling calling = enter();
    checkText(error);
    Seen& seen = seen_.at(peripheral);
    EXPECT_TRUE(seen.connected);
    EXPECT_GT(seen.subscriptionsAsked[characteristic]--, 0) << "one answer per question";
  }
  void peripheralDidUpdateValueForCharacteristic(
      const std::shared_ptr<CBPeripheral>& peripheral,
      const std::shared_ptr<CBCharacteristic>& characteristic,
      const std::shared_ptr<const NSError>& error) override {
    const Calling calling = enter();
    const Seen& seen = seen_.at(peripheral);
    EXPECT_TRUE(seen.connected);
    EXPECT_TRUE(seen.subscriptionsAsked.contains(characteristic)) << "not asked for on this link";
    EXPECT_EQ(error, nullptr);
    ASSERT_NE(characteristic->value(), nullptr);
    ++values;
    didReceive(peripheral, characteristic);
  }

  void request(CBCentralManager& central, const std::shared_ptr<CBPeripheral>& peripheral) {
    seen_[peripheral].requested = true;
    central.connectPeripheral(peripheral, std::nullopt);
  }
  /// The discovered peripherals that are not connected.
  std::vector<std::shared_ptr<CBPeripheral>> apart() const {
    std::vector<std::shared_ptr<CBPeripheral>> list;
    for (const auto& [peripheral, seen] : seen_) {
      if (!seen.connected) list.push_back(peripheral);
    }
    return list;
  }

  std::weak_ptr<HostAuditor> self;
  int connections = 0;
  int values = 0;

 protected:
  // The part that differs between tests. Called with arguments that have passed the checks.
  virtual bool wantsConnection() { return true; }
  virtual void didEnd(const std::shared_ptr<const NSError>& /*error*/) {}
  /// The number of different services and characteristics on this link.
  virtual void didFind(std::size_t /*services*/, std::size_t /*characteristics*/) {}
  virtual void didReceive(const std::shared_ptr<CBPeripheral>& /*peripheral*/,
                          const std::shared_ptr<CBCharacteristic>& /*characteristic*/) {}

  void discoverServices(const std::shared_ptr<CBPeripheral>& peripheral) {
    ++seen_.at(peripheral).servicesAsked;
    peripheral->discoverServices(std::nullopt);
  }
  void subscribe(const std::shared_ptr<CBPeripheral>& peripheral,
                 const std::shared_ptr<CBCharacteristic>& characteristic) {
    ++seen_.at(peripheral).subscriptionsAsked[characteristic];
    peripheral->setNotifyValue(true, characteristic);
  }

 private:
  struct Seen {
    bool requested = false;
    bool connected = false;
    int servicesAsked = 0;
    std::set<std::shared_ptr<CBService>> services;
    std::map<std::shared_ptr<CBService>, int> characteristicsAsked;
    std::set<std::shared_ptr<CBCharacteristic>> characteristics;
    std::map<std::shared_ptr<CBCharacteristic>, int> subscriptionsAsked;
  };

  // The kit prints the text as part of one line.
  static void checkText(const std::shared_ptr<const NSError>& error) {
    if (error) {
      EXPECT_TRUE(isOneLine(error->localizedDescription())) << error->localizedDescription();
    }
  }

  Calling enter() {
    EXPECT_EQ(depth_, 0) << "called from inside a call";
    return Calling(*this);
  }

  int depth_ = 0;
  CBManagerState state_ = CBManagerState::unknown;
  std::map<std::shared_ptr<CBPeripheral>, Seen> seen_;
};
