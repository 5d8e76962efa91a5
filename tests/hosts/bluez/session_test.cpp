// SPDX-License-Identifier: MIT
// The whole kit on the BlueZ host: the strap's notifications reach the application's delegate.

#include <tests/hosts/bluez/world.h>
#include <tests/support/captured_output.h>
#include <tests/support/recorded_events.h>
#include <tests/support/session_test_access.h>
#include <tests/whole_path/counted_frames.h>
#include <zephly/zephly.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

namespace {

using namespace bluez_test;
using testing::ElementsAre;
using Zephly::bluez::Notifications;

class BluezSessionTest : public BluezTest, public testing::WithParamInterface<Notifications> {
 protected:
  BluezSessionTest() {
    auto options = World::options();
    options.notifications = GetParam();
    world.openHost(std::move(options));
    kit = ::Zephly::Zephly::init(application);
  }
  void TearDown() override { SessionTestAccess::release(*kit); }

  void connect() {
    runUntil([this] { return bluez.discovering(strap.traits.adapter); });
    bluez.advertise(strap);
    runUntil([this] { return strap.connected && subscribedToAll(); });
  }
  void send(std::uint32_t frames) {
    for (; frames > 0; --frames, next += 6) {
      ASSERT_TRUE(bluez.notify(strap, ecg, counted::frame(next)));
    }
  }
  void expectAll() {
    settle();
    ASSERT_EQ(application->ecg.size(), next);
    for (std::uint32_t i = 0; i < next; ++i) {
      ASSERT_EQ(counted::count(application->ecg[i]), i);
    }
  }

  CapturedOutput output;
  recorded::Log log;
  std::shared_ptr<recorded::Application> application = std::make_shared<recorded::Application>(log);
  std::shared_ptr<::Zephly::Zephly> kit;
  std::uint32_t next = 0;
};

INSTANTIATE_TEST_SUITE_P(Ways, BluezSessionTest,
                         testing::Values(Notifications::signals, Notifications::descriptors),
                         [](const auto& way) {
                           return way.param == Notifications::signals ? "Signals" : "Descriptors";
                         });

TEST_P(BluezSessionTest, FindsConnectsAndSubscribes) {
  connect();
  EXPECT_THAT(log, ElementsAre("didConnectPeripheral"));
}

TEST_P(BluezSessionTest, AllSamplesArriveOnceAndInOrderOverTwentyLinkLosses) {
  connect();
  for (int loss = 0; loss < 20; ++loss) {
    send(50);
    if (loss % 2 == 0) {
      bluez.dropLink(strap);
    } else {
      bluez.dropLink(strap, "org.bluez.Reason.Timeout");
    }
    runUntil([this] { return strap.connected && subscribedToAll(); });
  }
  send(10);
  expectAll();
  EXPECT_EQ(std::count(log.begin(), log.end(), "didConnectPeripheral"), 21);
  EXPECT_EQ(std::count(log.begin(), log.end(), "didDisconnectPeripheral"), 20);
}

TEST_P(BluezSessionTest, RecoversFromAllFaultsOfBluetoothd) {
  connect();
  send(5);
  settle();
  bluez.kill();
  bluez.start();
  connect();
  send(5);
  settle();
  bluez.terminate();
  bluez.start(false);
  settle();
  bluez.power("hci0", true);
  connect();
  send(5);
  settle();
  bluez.removeAdapter("hci0");
  bluez.addAdapter("hci1", "00:AA:01:00:00:42");
  connect();
  send(5);
  bluez.power("hci1", false);
  settle();
  bluez.power("hci1", true);
  connect();
  send(5);
  expectAll();
  EXPECT_EQ(std::count(log.begin(), log.end(), "didConnectPeripheral"), 5);
  EXPECT_EQ(std::count(log.begin(), log.end(), "didDisconnectPeripheral"), 4);
}

TEST_P(BluezSessionTest, NeverConnectsToForeignDevices) {
  FakeDevice& otherName = bluez.addDevice({.address = "AA:BB:CC:DD:EE:02", .name = "Zephl"});
  FakeDevice& otherCase = bluez.addDevice({.address = "AA:BB:CC:DD:EE:03", .name = "ZEPHLY"});
  FakeDevice& nameless = bluez.addDevice({.address = "AA:BB:CC:DD:EE:04", .name = std::nullopt});
  connect();
  for (FakeDevice* device : {&otherName, &otherCase, &nameless}) bluez.advertise(*device);
  settle();
  EXPECT_EQ(bluez.calls("Connect"), 1);
}

TEST_P(BluezSessionTest, TheStrapIsFoundAgainUnderAnotherNameOfItsOwn) {
  connect();
  bluez.gapName(strap, "Strap of Ann");
  bluez.dropLink(strap);
  runUntil([this] { return strap.connected && subscribedToAll(); });
  send(3);
  expectAll();
}

}  // namespace
