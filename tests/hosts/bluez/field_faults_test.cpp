// SPDX-License-Identifier: MIT
// Faults of other Bluetooth libraries, reported from the field.

#include <tests/hosts/bluez/world.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using namespace std::chrono_literals;
using namespace bluez_test;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

class BluezFieldFaultsTest : public BluezTest {
 protected:
  std::size_t values(const std::vector<std::string>& log) {
    return static_cast<std::size_t>(std::count_if(
        log.begin(), log.end(), [](const auto& line) { return line.rfind("value", 0) == 0; }));
  }
};

TEST_F(BluezFieldFaultsTest, DeliversNotificationsBeforeTheAnswerToTheSubscription) {
  openSession();
  takeEvents();
  bluez.script("StartNotify", Answer::hold(), -1);
  bluez.advertise(strap);
  settle();
  bluez.emitValue(strap, ecg, {1});
  EXPECT_THAT(takeEvents(), Contains("value 46 01"));
  bluez.release();
  EXPECT_EQ(values(takeEvents()), 0U) << "once";
}

TEST_F(BluezFieldFaultsTest, DeliversTheFirstNotificationsAfterTheSubscription) {
  openSession();
  takeEvents();
  bluez.script("StartNotify", Answer::hold(), -1);
  bluez.advertise(strap);
  settle();
  recorder().take();
  bluez.release();
  // Directly after the confirmations, before they are read.
  for (const char* uuid : {temperature, ecg, battery, respiration, motion}) {
    ASSERT_TRUE(bluez.notify(strap, uuid, {1}));
  }
  EXPECT_EQ(values(takeEvents()), 5U);
}

TEST_F(BluezFieldFaultsTest, DeliversNoDuplicatesAfterReconnects) {
  bringUp();
  for (int i = 0; i < 20; ++i) {
    bluez.dropLink(strap);
    runUntil([this] { return subscribedToAll(); });
    takeEvents();
    bluez.notify(strap, ecg, {1});
    ASSERT_THAT(takeEvents(), ElementsAre("value 46 01")) << "reconnect " << i;
  }
}

TEST_F(BluezFieldFaultsTest, RestoresEverySubscriptionAfterALinkLoss) {
  bringUp();
  bluez.dropLink(strap);
  runUntil([this] { return subscribedToAll(); });
  takeEvents();
  for (const char* uuid : {temperature, ecg, battery, respiration, motion}) {
    bluez.notify(strap, uuid, {1});
  }
  EXPECT_THAT(takeEvents(), ElementsAre("value 45 01", "value 46 01", "value 47 01", "value 48 01",
                                        "value 49 01"));
}

TEST_F(BluezFieldFaultsTest, CleaningUpDoesNotWaitForADeadLink) {
  bringUp();
  for (const char* method : {"Disconnect", "StopDiscovery", "StopNotify"}) {
    bluez.script(method, Answer::never(), -1);
  }
  // A wait would never end: there is no answer, and the queue does not run.
  session.reset();
  world.host.reset();
  settle();
  EXPECT_EQ(bluez.calls("Disconnect"), 1);
  EXPECT_EQ(bluez.calls("StopDiscovery"), 1);
}

TEST_F(BluezFieldFaultsTest, CleaningUpDoesNotWaitForAStuckBus) {
  bringUp();
  world.bus.freeze(true);
  session.reset();
  world.host.reset();
  world.bus.freeze(false);
  runUntil([this] { return !strap.connected && !bluez.discovering(); });
}

TEST_F(BluezFieldFaultsTest, RestartsTheScanAfterADaemonRestart) {
  openSession();
  takeEvents();
  bluez.kill();
  bluez.start(false);
  settle();
  bluez.power("hci0", true);
  runUntil([this] { return bluez.discovering(); });
  bluez.advertise(strap);
  runUntil([this] { return subscribedToAll(); });
}

TEST_F(BluezFieldFaultsTest, DoesNotUseObjectsOfThePreviousDaemon) {
  bringUp();
  bluez.kill();
  bluez.start();
  runUntil([this] { return bluez.discovering(); });
  EXPECT_EQ(bluez.calls("Connect"), 1) << "the new daemon does not know the device yet";
  bluez.advertise(strap);
  runUntil([this] { return subscribedToAll(); });
  EXPECT_EQ(bluez.calls("Connect"), 2);
  takeEvents();
  bluez.notify(strap, ecg, {1});
  EXPECT_THAT(takeEvents(), ElementsAre("value 46 01"));
}

TEST_F(BluezFieldFaultsTest, UsesAnAdapterThatReturnsUnderAnotherName) {
  bringUp();
  const auto before = recorder().peripheral_;
  bluez.removeAdapter("hci0");
  settle();
  bluez.addAdapter("hci1", "00:AA:01:00:00:42");
  runUntil([this] { return bluez.discovering("hci1"); });
  bluez.advertise(strap);
  runUntil([this] { return subscribedToAll(); });
  EXPECT_EQ(recorder().peripheral_, before);
}

TEST_F(BluezFieldFaultsTest, ASessionStartedWhileTheRadioIsOffScansWhenItIsOn) {
  bluez.power("hci0", false);
  session = std::make_unique<Session>();
  settle();
  EXPECT_EQ(bluez.calls("StartDiscovery"), 0);
  bluez.power("hci0", true);
  runUntil([this] { return bluez.discovering(); });
}

TEST_F(BluezFieldFaultsTest, IgnoresALateReplyOfAnEarlierAttempt) {
  openSession();
  takeEvents();
  strap.inRange = false;
  bluez.script("Connect", Answer::hold(), 1);
  bluez.advertise(strap);
  runUntil([this] { return bluez.heldCalls() == 1; });
  bluez.power("hci0", false);
  settle();
  bluez.power("hci0", true);
  runUntil([this] { return strap.waiting.size() == 1; });
  takeEvents();
  bluez.release();  // the first fails, because the second is pending
  settle();
  world.turnFor(100ms);
  EXPECT_EQ(bluez.calls("Connect"), 2) << "the second goes on undisturbed";
  bluez.advertise(strap);
  runUntil([this] { return subscribedToAll(); });
}

TEST_F(BluezFieldFaultsTest, DropsASubscriptionReplyOfThePreviousConnection) {
  openSession();
  takeEvents();
  bluez.script("StartNotify", Answer::hold(), 6);
  bluez.advertise(strap);
  settle();
  bluez.dropLink(strap);
  runUntil([this] { return subscribedToAll(); });
  takeEvents();
  bluez.release();
  EXPECT_THAT(takeEvents(), IsEmpty());
}

TEST_F(BluezFieldFaultsTest, DropsADiscoveryReplyOfThePreviousConnection) {
  openSession({.subscribe = false});
  takeEvents();
  strap.onConnect = {ConnectStep::connected, ConnectStep::reply, ConnectStep::hold,
                     ConnectStep::objects, ConnectStep::resolved};
  bluez.advertise(strap);
  settle();
  bluez.script("GetManagedObjects", Answer::hold(), 1);
  bluez.proceed(strap);
  EXPECT_THAT(takeEvents(), ElementsAre("connected"));
  strap.onConnect = fake_bluez::usualConnection;
  bluez.dropLink(strap);
  runUntil([this] { return recorder().lastCharacteristics.size() == 3; });
  takeEvents();
  bluez.release();
  EXPECT_THAT(takeEvents(), IsEmpty());
}

}  // namespace
