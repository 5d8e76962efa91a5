#pragma once
/// @file
/// A bus, a fake daemon on it and, when a test wants them, the host under test with a session on
/// it: all on one main queue, turned by hand.

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

/// Pauses that a test can see the end of; limits as they are.
Zephly::bluez::Timing shortPauses();

// As bluetoothd writes them.
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

  /// The host under test; its lines for people are kept in `lines`. `chosen.busAddress` is the
  /// private bus.
  void openHost(Zephly::bluez::Options chosen = options());
  static Zephly::bluez::Options options();

  /// Turns the queue until the condition holds. A test that waits 20 s for it has failed.
  [[nodiscard]] bool turnUntil(const std::function<bool()>& condition);
  /// Turns the queue until everybody on the bus has handled what was sent, and has nothing to
  /// answer to it. Does not wait for timers.
  void settle();
  /// Turns the queue for a while.
  void turnFor(std::chrono::milliseconds duration);

  void startBus();
  void stopBus();

  Zephly::main_queue::MainQueue queue;
  fake_bluez::PrivateBus bus;
  FakeBluez bluez{queue, bus.address()};
  std::vector<std::string> lines;
  std::unique_ptr<Zephly::bluez::Bluetooth> host;

 private:
  void pingEverybody();
  bool observe(sd_bus_message& message);
  void drain();

  std::unique_ptr<fake_bluez::BusConnection> observer_;
  std::set<std::string> peers_;
  int pings_ = 0;
};

/// With a fake daemon that runs, one strap and a host; no session yet.
class BluezTest : public testing::Test {
 protected:
  BluezTest() {
    world.bluez.start();
    world.openHost();
  }

  /// Turns until the condition holds, and then until everything is quiet.
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
  /// A session that wants everything from whatever it hears.
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
  /// The same without the subscriptions.
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
