// Whatever is done to the radio, its devices and its centrals, in whatever order: what delegates
// are told keeps the contract of the host boundary.

#include <platforms/simulated/radio.h>
#include <zephly/platform/core_bluetooth.h>

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <random>
#include <set>

namespace {

using namespace std::chrono_literals;
using namespace Zephly::simulated;

const CBUUID serviceUUID = CBUUID::UUIDWithString("180D");
const std::vector<CBUUID> uuids = {CBUUID::UUIDWithString("2A01"), CBUUID::UUIDWithString("2A02"),
                                   CBUUID::UUIDWithString("2A03")};

// Believes nothing: checks each call against what it asked for and what it was told before.
class Auditor : public CBCentralManagerDelegate, public CBPeripheralDelegate {
 public:
  struct Seen {
    bool requested = false;
    bool connected = false;
    int servicesAsked = 0;
    int characteristicsAsked = 0;
    int subscriptionsAsked = 0;
    bool subscribedEver = false;
    std::set<std::shared_ptr<CBCharacteristic>> characteristics;
    std::shared_ptr<CBService> service;
  };

  // Counts as inside a call of the auditor's own for as long as it lives.
  class Calling {
   public:
    explicit Calling(Auditor& auditor) : auditor_(auditor) { ++auditor_.depth; }
    Calling(const Calling&) = delete;
    Calling& operator=(const Calling&) = delete;
    ~Calling() { --auditor_.depth; }

   private:
    Auditor& auditor_;
  };

  void centralManagerDidUpdateState(const std::shared_ptr<CBCentralManager>& central) override {
    const Calling calling = enter();
    EXPECT_NE(central->state(), told) << "a change is told once";
    told = central->state();
    central->scanForPeripheralsWithServices(std::nullopt, std::nullopt);
  }
  void centralManagerDidDiscoverPeripheral(const std::shared_ptr<CBCentralManager>& central,
                                           const std::shared_ptr<CBPeripheral>& peripheral,
                                           const CBAdvertisementData& /*advertisementData*/,
                                           int /*RSSI*/) override {
    const Calling calling = enter();
    EXPECT_EQ(told, CBManagerState::poweredOn);
    seen[peripheral];
    if (chance(2)) request(*central, peripheral);
  }
  void centralManagerDidConnectPeripheral(
      const std::shared_ptr<CBCentralManager>& /*central*/,
      const std::shared_ptr<CBPeripheral>& peripheral) override {
    const Calling calling = enter();
    Seen& state = seen.at(peripheral);
    EXPECT_TRUE(state.requested && !state.connected);
    state = Seen{};
    state.connected = true;
    peripheral->setDelegate(self);
    state.servicesAsked = 1;
    peripheral->discoverServices(std::nullopt);
    ++connections;
  }
  void centralManagerDidFailToConnectPeripheral(
      const std::shared_ptr<CBCentralManager>& /*central*/,
      const std::shared_ptr<CBPeripheral>& peripheral,
      const std::shared_ptr<const NSError>& error) override {
    const Calling calling = enter();
    Seen& state = seen.at(peripheral);
    EXPECT_TRUE(state.requested && !state.connected);
    EXPECT_NE(error, nullptr);
    state.requested = false;
  }
  void centralManagerDidDisconnectPeripheral(
      const std::shared_ptr<CBCentralManager>& central,
      const std::shared_ptr<CBPeripheral>& peripheral,
      const std::shared_ptr<const NSError>& /*error*/) override {
    const Calling calling = enter();
    Seen& state = seen.at(peripheral);
    EXPECT_TRUE(state.connected) << "an end is told once";
    state = Seen{};
    if (chance(2)) request(*central, peripheral);
  }

  void peripheralDidDiscoverServices(const std::shared_ptr<CBPeripheral>& peripheral,
                                     const std::shared_ptr<const NSError>& /*error*/) override {
    const Calling calling = enter();
    Seen& state = seen.at(peripheral);
    EXPECT_TRUE(state.connected);
    EXPECT_GT(state.servicesAsked--, 0) << "one answer per question";
    const auto services = peripheral->services();
    ASSERT_TRUE(services.has_value());
    for (const auto& service : *services) {
      EXPECT_TRUE(!state.service || state.service == service) << "one object for one service";
      state.service = service;
      ++state.characteristicsAsked;
      peripheral->discoverCharacteristics(std::nullopt, service);
    }
  }
  void peripheralDidDiscoverCharacteristicsForService(
      const std::shared_ptr<CBPeripheral>& peripheral, const std::shared_ptr<CBService>& service,
      const std::shared_ptr<const NSError>& /*error*/) override {
    const Calling calling = enter();
    Seen& state = seen.at(peripheral);
    EXPECT_TRUE(state.connected);
    EXPECT_GT(state.characteristicsAsked--, 0);
    const auto list = service->characteristics();
    ASSERT_TRUE(list.has_value());
    for (const auto& characteristic : *list) {
      state.characteristics.insert(characteristic);
      subscribe(peripheral, characteristic);
    }
    EXPECT_LE(state.characteristics.size(), uuids.size()) << "one object for one characteristic";
  }
  void peripheralDidUpdateNotificationStateForCharacteristic(
      const std::shared_ptr<CBPeripheral>& peripheral,
      const std::shared_ptr<CBCharacteristic>& characteristic,
      const std::shared_ptr<const NSError>& /*error*/) override {
    const Calling calling = enter();
    Seen& state = seen.at(peripheral);
    EXPECT_TRUE(state.connected);
    EXPECT_GT(state.subscriptionsAsked--, 0);
    EXPECT_TRUE(state.characteristics.contains(characteristic));
  }
  void peripheralDidUpdateValueForCharacteristic(
      const std::shared_ptr<CBPeripheral>& peripheral,
      const std::shared_ptr<CBCharacteristic>& characteristic,
      const std::shared_ptr<const NSError>& error) override {
    const Calling calling = enter();
    Seen& state = seen.at(peripheral);
    EXPECT_TRUE(state.connected && state.subscribedEver);
    EXPECT_TRUE(state.characteristics.contains(characteristic));
    EXPECT_EQ(error, nullptr);
    ASSERT_NE(characteristic->value(), nullptr);
    std::uint32_t number = 0;
    characteristic->value()->getBytes(&number, sizeof number);
    received.push_back(number);
    // Something that the delegate does from inside: it must not be called back from it.
    if (chance(8)) {
      ++state.servicesAsked;
      peripheral->discoverServices(std::nullopt);
    }
    if (chance(8)) subscribe(peripheral, characteristic);
  }

  void request(CBCentralManager& central, const std::shared_ptr<CBPeripheral>& peripheral) {
    seen[peripheral].requested = true;
    central.connectPeripheral(peripheral, std::nullopt);
  }
  bool chance(unsigned oneIn) { return (*random)() % oneIn == 0; }

  std::weak_ptr<Auditor> self;
  std::mt19937* random = nullptr;
  CBManagerState told = CBManagerState::unknown;
  int depth = 0;
  int connections = 0;
  std::map<std::shared_ptr<CBPeripheral>, Seen> seen;
  std::vector<std::uint32_t> received;

 private:
  Calling enter() {
    EXPECT_EQ(depth, 0) << "called from inside a call";
    return Calling(*this);
  }
  void subscribe(const std::shared_ptr<CBPeripheral>& peripheral,
                 const std::shared_ptr<CBCharacteristic>& characteristic) {
    Seen& state = seen.at(peripheral);
    ++state.subscriptionsAsked;
    state.subscribedEver = true;
    peripheral->setNotifyValue(true, characteristic);
  }
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
    auditor_->random = &random_;
    central_ = CBCentralManager::init(auditor_, nullptr, std::nullopt);
  }

  // One thing that may happen, from outside every callback.
  void step() {
    const Auditor::Calling calling(*auditor_);
    Device& device = *devices_.at(random_() % devices_.size());
    switch (random_() % 16) {
      case 0:
        radio_.setState(random_() % 3 == 0 ? CBManagerState::poweredOff
                                           : CBManagerState::poweredOn);
        break;
      case 1:
        device.loseLink(random_() % 2 == 0 ? std::nullopt : std::optional<std::string>("Lost."));
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
        for (auto& [peripheral, state] : auditor_->seen) {
          if (!state.connected && random_() % 2 == 0) auditor_->request(*central_, peripheral);
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
        return ConnectBehaviour::fails("Busy.", latency());
      case 1:
        return ConnectBehaviour::never();
      default:
        return ConnectBehaviour::succeeds(latency());
    }
  }
  SubscriptionAnswer subscription() {
    switch (random_() % 5) {
      case 0:
        return SubscriptionAnswer::refuses("No.");
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
  std::shared_ptr<Auditor> auditor_ = std::make_shared<Auditor>();
  std::shared_ptr<CBCentralManager> central_;
  std::uint32_t lastNumber_ = 0;
  std::vector<std::uint32_t> accepted_;
};

TEST(Contract, HoldsForRandomSequences) {
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
