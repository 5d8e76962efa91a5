// SPDX-License-Identifier: MIT
// A daemon that sends random answers and signals in random order. The host must not crash, must
// keep its contract, and must recover when the daemon does.

#include <tests/hosts/bluez/nonsense.h>
#include <tests/hosts/bluez/world.h>
#include <tests/support/fake_bluez/auditor.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <memory>
#include <string>

namespace {

using namespace std::chrono_literals;
using namespace bluez_test;
using Zephly::bluez::Notifications;

constexpr std::array methods = {
    "GetManagedObjects", "GetAll",     "SetDiscoveryFilter", "StartDiscovery", "StopDiscovery",
    "Connect",           "Disconnect", "StartNotify",        "StopNotify",     "AcquireNotify"};
constexpr auto shortestLimit = 40ms;
constexpr std::array uuids = {temperature, ecg, battery, respiration, motion};

class Storm {
 public:
  explicit Storm(unsigned seed) : random_(seed) {
    world_.bluez.start();
    options_ = World::options();
    options_.notifications = seed % 2 == 0 ? Notifications::signals : Notifications::descriptors;
    options_.timing.callLimit = shortestLimit;
    options_.timing.connectLimit = 60ms;
    options_.timing.subscribeLimit = shortestLimit;
    options_.timing.discoveryLimit = 50ms;
    options_.timing.discoveryCheck = 10ms;
    world_.openHost(options_);
    openSession();
  }

  void step() {
    {
      const auto auditor = auditor_;  // may be replaced
      const Auditor::Calling calling(*auditor);
      act();
    }
    for (unsigned turns = roll(8); turns > 0; --turns) world_.queue.poll();
    if (roll(20) == 0) world_.turnFor(std::chrono::milliseconds(roll(30)));
  }

  // The daemon behaves correctly from now on. It restarts first, which invalidates its wrong
  // messages.
  testing::AssertionResult recovers() {
    bluez_.clearScript();
    bluez_.tamper = nullptr;
    bluez_.fate = nullptr;
    bluez_.kill();
    bluez_.start();
    strap_.inRange = true;
    strap_.onConnect = DeviceDefaults().onConnect;
    for (int attempt = 1;; ++attempt) {
      const auto begin = std::chrono::steady_clock::now();
      const int values = auditor_->values;
      if (!comesUp()) return testing::AssertionFailure() << "it does not come up";
      world_.settle();
      const bool listened = bluez_.notify(strap_, ecg, {1});
      world_.settle();
      if (auditor_->values > values) return testing::AssertionSuccess();
      // On a stalled machine a short time limit may have expired, for example that of a
      // subscription. The host repeats the subscription on the next link.
      const bool stoodStill = std::chrono::steady_clock::now() - begin >= shortestLimit;
      if (!stoodStill || attempt == 20) {
        return testing::AssertionFailure() << (listened ? "no value arrives" : "no subscriber");
      }
      bluez_.dropLink(strap_);
    }
  }

  int connections() const { return connections_ + auditor_->connections; }

 private:
  using DeviceDefaults = FakeDevice;

  bool comesUp() {
    return world_.turnUntil([this] {
      if (!strap_.connected) bluez_.advertise(strap_);
      return std::all_of(uuids.begin(), uuids.end(),
                         [this](auto uuid) { return FakeBluez::subscribed(strap_, uuid); });
    });
  }

  unsigned roll(unsigned sides) { return static_cast<unsigned>(random_() % sides); }

  void openSession() {
    if (auditor_) connections_ += auditor_->connections;
    central_.reset();
    auditor_ = std::make_shared<Auditor>();
    auditor_->self = auditor_;
    central_ = CBCentralManager::init(auditor_, nullptr, std::nullopt);
  }

  void act() {
    switch (roll(8)) {
      case 0:
        return lie();
      case 1:
        return misbehave();
      case 2:
        return comeOrGo();
      case 3:
        return breakSignals();
      case 4:
        if (bluez_.exists(strap_.path())) bluez_.dropLink(strap_);
        return;
      default:
        bluez_.advertise(roll(3) == 0 ? stranger_ : strap_);
        for (const char* uuid : uuids) bluez_.notify(strap_, uuid, Bytes(roll(25), 1));
        return;
    }
  }

  std::string anyPath() {
    std::vector<std::string> paths = {
        "/",           "/org/bluez",     "/org/bluez/hci0", "/nonsense",
        strap_.path(), stranger_.path(), "/dev_AA/char",    strap_.path() + "/service000a"};
    for (const auto& one : strap_.characteristics) {
      if (!one.path.empty()) paths.push_back(one.path);
    }
    return paths[roll(static_cast<unsigned>(paths.size()))];
  }

  // A signal with wrong content.
  void lie() {
    const std::string path = anyPath();
    constexpr const char* objects = "org.freedesktop.DBus.ObjectManager";
    constexpr const char* properties = "org.freedesktop.DBus.Properties";
    switch (roll(7)) {
      case 0:
        return bluez_.emit(path, properties, "PropertiesChanged", nonsense(random_));
      case 1:
        return bluez_.emit("/", objects, "InterfacesAdded", nonsense(random_));
      case 2:
        return bluez_.emit("/", objects, "InterfacesRemoved", nonsense(random_));
      case 3:
        return bluez_.emit(path, "org.bluez.Device1", "Disconnected", nonsense(random_));
      case 4:
        return bluez_.emit("/", objects, "InterfacesAdded", plausibleAdded(random_, path));
      case 5:
        return bluez_.emit("/", objects, "InterfacesRemoved", plausibleRemoved(random_, path));
      default:
        return bluez_.emit(path, properties, "PropertiesChanged", plausibleChange(random_));
    }
  }

  Answer anyAnswer() {
    switch (roll(6)) {
      case 0:
        return Answer::refuse("org.bluez.Error.Failed", "No,\nnever.");
      case 1:
        return Answer::refuse("org.bluez.Error.InProgress", "");
      case 2:
        return Answer::never();
      case 3:
        return Answer::hold();
      case 4:
        return Answer::delay(std::chrono::milliseconds(roll(60)));
      default:
        return Answer::wrong(nonsense(random_));
    }
  }

  // Answers and properties that are temporarily wrong.
  void misbehave() {
    switch (roll(5)) {
      case 0:
        bluez_.tamper = [this](const std::string&, const std::string&,
                               fake_bluez::Properties& all) {
          for (auto& [name, value] : all) {
            if (roll(4) == 0) value = oddValue(random_);
          }
          if (!all.empty() && roll(4) == 0) all.erase(all.begin());
        };
        return;
      case 1:
        bluez_.tamper = nullptr;
        return;
      case 2:
        bluez_.clearScript();
        return;
      case 3:
        bluez_.release();
        return;
      default:
        bluez_.script(methods[roll(methods.size())], anyAnswer(), 1 + static_cast<int>(roll(3)));
        return;
    }
  }

  void breakSignals() {
    if (roll(2) == 0) {
      bluez_.fate = nullptr;
      return;
    }
    bluez_.fate = [this](const std::string&, const std::string&) {
      constexpr std::array fates = {Fate::once, Fate::once, Fate::twice, Fate::lost, Fate::held};
      return fates[roll(fates.size())];
    };
  }

  void comeOrGo() {
    switch (roll(12)) {
      case 0:
        if (bluez_.running()) bluez_.kill();
        return;
      case 1:
        if (bluez_.running()) bluez_.terminate();
        return;
      case 2:
      case 3:
      case 4:
        if (!bluez_.running()) bluez_.start(roll(4) != 0);
        return;
      case 5:
        return bluez_.power("hci0", false);
      case 6:
      case 7:
        return bluez_.power("hci0", true);
      case 8:
        return bluez_.forget(strap_);
      case 9:
        return bluez_.gapName(stranger_, roll(2) == 0 ? "Zephly" : "");
      case 10:
        if (roll(3) == 0) openSession();
        return;
      default:
        if (roll(3) != 0) return;
        world_.openHost(options_);
        return openSession();
    }
  }

  Random random_;
  World world_;
  FakeBluez& bluez_ = world_.bluez;
  FakeDevice& strap_ = bluez_.addDevice();
  FakeDevice& stranger_ = bluez_.addDevice({.address = "AA:BB:CC:DD:EE:99", .name = {}});
  Zephly::bluez::Options options_;
  std::shared_ptr<Auditor> auditor_;
  std::shared_ptr<CBCentralManager> central_;
  int connections_ = 0;
};

class BluezHostileTest : public testing::TestWithParam<unsigned> {};

INSTANTIATE_TEST_SUITE_P(Seeds, BluezHostileTest, testing::Range(1U, 25U));

TEST_P(BluezHostileTest, KeepsTheContractAndTheSessionRecovers) {
  Storm storm(GetParam());
  int connections = 0;
  for (int round = 0; round < 4 && !HasFailure(); ++round) {
    for (int i = 0; i < 150; ++i) storm.step();
    EXPECT_TRUE(storm.recovers());
    EXPECT_GT(storm.connections(), connections) << "every round has led somewhere";
    connections = storm.connections();
  }
}

}  // namespace
