// SPDX-License-Identifier: MIT
// Random operations on the radio, its devices and its centrals: the calls of the delegates keep the
// contract of the host boundary.

#include <hosts/simulated/radio.h>
#include <tests/support/host_auditor.h>

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <random>
#include <vector>

namespace {

using namespace std::chrono_literals;
using namespace Zephly::simulated;

const CBUUID serviceUUID = CBUUID::UUIDWithString("180D");
const std::vector<CBUUID> uuids = {CBUUID::UUIDWithString("2A01"), CBUUID::UUIDWithString("2A02"),
                                   CBUUID::UUIDWithString("2A03")};

// Requests some of the possible connections, and sometimes makes requests from within a callback.
class Auditor final : public HostAuditor {
 public:
  explicit Auditor(std::mt19937& random) : random_(random) {}

  std::vector<std::uint32_t> received;

 protected:
  bool wantsConnection() override { return chance(2); }
  void didFind(std::size_t services, std::size_t characteristics) override {
    EXPECT_LE(services, 1U) << "one object for one service";
    EXPECT_LE(characteristics, uuids.size()) << "one object for one characteristic";
  }
  void didReceive(const std::shared_ptr<CBPeripheral>& peripheral,
                  const std::shared_ptr<CBCharacteristic>& characteristic) override {
    std::uint32_t number = 0;
    characteristic->value()->getBytes(&number, sizeof number);
    received.push_back(number);
    // The auditor must not be called from within these.
    if (chance(8)) discoverServices(peripheral);
    if (chance(8)) subscribe(peripheral, characteristic);
  }

 private:
  bool chance(unsigned oneIn) { return random_() % oneIn == 0; }

  std::mt19937& random_;
};

class World {
 public:
  explicit World(unsigned seed) : random_(seed) {
    for (const char* name : {"Zephly", "other"}) {
      ServiceOptions service{serviceUUID};
      for (const auto& uuid : uuids) service.characteristics.push_back({uuid});
      devices_.push_back(&radio_.addDevice({.name = name, .services = {service}}));
    }
    auditor_->self = auditor_;
    central_ = CBCentralManager::init(auditor_, nullptr, std::nullopt);
  }

  // One random operation, outside of callbacks.
  void step() {
    const Auditor::Calling calling(*auditor_);
    Device& device = *devices_.at(random_() % devices_.size());
    switch (random_() % 16) {
      case 0:
        radio_.setState(random_() % 3 == 0 ? CBManagerState::poweredOff
                                           : CBManagerState::poweredOn);
        break;
      case 1:
        device.loseLink(random_() % 2 == 0 ? std::nullopt : std::optional<std::string>("Lost.\n"));
        break;
      case 2:
        device.setInRange(random_() % 4 != 0);
        break;
      case 3:
        device.nextConnects(1, connectBehaviour());
        break;
      case 4:
        device.setServiceDiscovery({.latency = latency(), .times = someTimes()});
        device.setCharacteristicDiscovery({.latency = latency(), .times = someTimes()});
        break;
      case 5:
        device.setSubscription(subscription());
        break;
      case 6:
        device.setAdvertisesWhileConnected(random_() % 2 == 0);
        break;
      case 7:
        for (const auto& peripheral : auditor_->apart()) {
          if (random_() % 2 == 0) auditor_->request(*central_, peripheral);
        }
        break;
      default:
        for (unsigned i = random_() % 4; i > 0; --i) notify(device);
        break;
    }
  }
  void advance() { scheduler_.advance(std::chrono::milliseconds(random_() % 60)); }

  void check() const {
    EXPECT_EQ(auditor_->received, accepted_) << "each accepted value once, in order, none else";
  }
  std::size_t values() const { return accepted_.size(); }
  int connections() const { return auditor_->connections; }
  void settle() { scheduler_.advance(0s); }

 private:
  void notify(Device& device) {
    const std::uint32_t number = ++lastNumber_;
    std::vector<std::uint8_t> bytes(sizeof number);
    std::memcpy(bytes.data(), &number, sizeof number);
    if (device.notify(uuids.at(random_() % uuids.size()), bytes)) accepted_.push_back(number);
  }
  Duration latency() { return std::chrono::milliseconds(random_() % 4 * 20); }
  int someTimes() { return random_() % 8 == 0 ? 0 : 1; }
  ConnectBehaviour connectBehaviour() {
    switch (random_() % 4) {
      case 0:
        return ConnectBehaviour::fails("Busy:\ttry\nagain.", latency());
      case 1:
        return ConnectBehaviour::never();
      default:
        return ConnectBehaviour::succeeds(latency());
    }
  }
  SubscriptionAnswer subscription() {
    switch (random_() % 5) {
      case 0:
        return SubscriptionAnswer::refuses("No\u0085.");
      case 1:
        return SubscriptionAnswer::silent();
      case 2:
        return SubscriptionAnswer::lateConfirmation(latency());
      default:
        return {.latency = latency()};
    }
  }

  std::mt19937 random_;
  Scheduler scheduler_;
  Radio radio_{scheduler_};
  std::vector<Device*> devices_;
  std::shared_ptr<Auditor> auditor_ = std::make_shared<Auditor>(random_);
  std::shared_ptr<CBCentralManager> central_;
  std::uint32_t lastNumber_ = 0;
  std::vector<std::uint32_t> accepted_;
};

TEST(ContractTest, HoldsForRandomSequences) {
  std::size_t values = 0;
  int connections = 0;
  for (unsigned seed = 1; seed <= 200 && !testing::Test::HasFailure(); ++seed) {
    SCOPED_TRACE(seed);
    World world(seed);
    for (int i = 0; i < 1000; ++i) {
      world.step();
      if (i % 3 == 0) world.advance();
    }
    world.settle();
    world.check();
    values += world.values();
    connections += world.connections();
  }
  EXPECT_GT(connections, 500) << "the sequences must lead somewhere";
  EXPECT_GT(values, 5000U);
}

}  // namespace
