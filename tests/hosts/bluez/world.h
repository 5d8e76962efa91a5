// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A bus, a fake daemon on it and, optionally, the host under test with a session: all on one main
/// queue, which the test runs step by step.

#include <hosts/bluez/bluetooth.h>
#include <hosts/main_queue/main_queue.h>
#include <tests/support/boundary_recorder.h>
#include <tests/support/fake_bluez/bus_connection.h>
#include <tests/support/fake_bluez/fake_bluez.h>
#include <tests/support/fake_bluez/private_bus.h>

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace bluez_test {

using boundary::Recorder;
using boundary::Session;
using fake_bluez::Answer;
using fake_bluez::append;
using fake_bluez::Bytes;
using fake_bluez::ConnectStep;
using fake_bluez::DeviceTraits;
using fake_bluez::DisconnectStep;
using fake_bluez::FakeBluez;
using fake_bluez::FakeDevice;
using fake_bluez::Fate;

/// Short pauses between attempts, and the default time limits.
Zephly::bluez::Timing shortPauses();

// In bluetoothd's notation.
inline constexpr const char* temperature = "45366e80-cf3a-11e1-9ab4-0002a5d5c51b";
inline constexpr const char* ecg = "46366e80-cf3a-11e1-9ab4-0002a5d5c51b";
inline constexpr const char* battery = "47366e80-cf3a-11e1-9ab4-0002a5d5c51b";
inline constexpr const char* respiration = "48366e80-cf3a-11e1-9ab4-0002a5d5c51b";
inline constexpr const char* motion = "49366e80-cf3a-11e1-9ab4-0002a5d5c51b";

class World {
 public:
  World();
  World(const World&) = delete;
  World& operator=(const World&) = delete;
  ~World();

  /// The host under test; its status lines are kept in `lines`. `chosen.busAddress` is the private
  /// bus.
  void openHost(Zephly::bluez::Options chosen = options());
  static Zephly::bluez::Options options();

  /// Runs the queue until the condition holds. The test fails after 20 s.
  [[nodiscard]] bool turnUntil(const std::function<bool()>& condition);
  /// Runs the queue until all messages on the bus have been handled and answered. Does not wait for
  /// timers.
  void settle();
  /// Runs the queue for this time.
  void turnFor(std::chrono::milliseconds duration);

  void startBus();
  void stopBus();

  Zephly::main_queue::MainQueue queue;
  fake_bluez::PrivateBus bus;
  FakeBluez bluez{queue, bus.address()};
  std::vector<std::string> lines;
  std::unique_ptr<Zephly::bluez::Bluetooth> host;

 private:
  void awaitOpening();
  void pingEverybody();
  bool observe(sd_bus_message& message);
  void drain();

  std::unique_ptr<fake_bluez::BusConnection> observer_;
  std::set<std::string> peers_;
  int pings_ = 0;
};

/// With a running fake daemon, one strap and a host; without a session.
class BluezTest : public testing::Test {
 protected:
  BluezTest() {
    world.bluez.start();
    world.openHost();
  }

  /// Runs the queue until the condition holds, and then until all messages are handled.
  void runUntil(const std::function<bool()>& condition) {
    ASSERT_TRUE(world.turnUntil(condition));
    world.settle();
  }
  void settle() { world.settle(); }
  /// The session's events since the last call, after everything has settled.
  std::vector<std::string> takeEvents() {
    world.settle();
    return session->recorder->take();
  }
  /// A session that connects to every device and subscribes to everything.
  void openSession(Recorder::Script script = {}) {
    session = std::make_unique<Session>(script);
    runUntil([this] { return bluez.discovering(); });
  }
  /// Connected, discovered and subscribed, with nothing in the log.
  void bringUp(Recorder::Script script = {}) {
    openSession(script);
    bluez.advertise(strap);
    runUntil([this] { return subscribedToAll(); });
    session->recorder->take();
  }
  /// The same without subscriptions.
  void bringUpUnsubscribed() {
    openSession({.subscribe = false});
    bluez.advertise(strap);
    runUntil([this] { return !recorder().lastCharacteristics.empty(); });
    session->recorder->take();
  }
  bool subscribedToAll() {
    for (const char* uuid : {temperature, ecg, battery, respiration, motion}) {
      if (!FakeBluez::subscribed(strap, uuid)) return false;
    }
    return true;
  }
  Recorder& recorder() { return *session->recorder; }

  World world;
  FakeBluez& bluez = world.bluez;
  FakeDevice& strap = bluez.addDevice();
  std::unique_ptr<Session> session;
};

}  // namespace bluez_test
