// Faults that Bluetooth libraries have been seen to have in the field.

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

class BluezFieldFaults : public BluezTest {
 protected:
  std::size_t values(const std::vector<std::string>& log) {
    return static_cast<std::size_t>(std::count_if(
        log.begin(), log.end(), [](const auto& line) { return line.rfind("value", 0) == 0; }));
  }
};

TEST_F(BluezFieldFaults, NotificationsBeforeTheSubscriptionIsAnsweredAreDelivered) {
  openSession();
  told();
  bluez.script("StartNotify", Answer::hold(), -1);
  bluez.advertise(strap);
  settle();
  bluez.emitValue(strap, ecg, {1});
  EXPECT_THAT(told(), Contains("value 46 01"));
  bluez.release();
  EXPECT_EQ(values(told()), 0U) << "once";
}

TEST_F(BluezFieldFaults, TheFirstNotificationsAfterTheSubscriptionAreNotMissed) {
  openSession();
  told();
  bluez.script("StartNotify", Answer::hold(), -1);
  bluez.advertise(strap);
  settle();
  recorder().take();
  bluez.release();
  // Right behind the confirmations, before anybody has read them.
  for (const char* uuid : {temperature, ecg, battery, respiration, motion}) {
    ASSERT_TRUE(bluez.notify(strap, uuid, {1}));
  }
  EXPECT_EQ(values(told()), 5U);
}

TEST_F(BluezFieldFaults, NothingIsDeliveredTwiceAfterReconnects) {
  bringUp();
  for (int i = 0; i < 20; ++i) {
    bluez.dropLink(strap);
    runUntil([this] { return subscribedToAll(); });
    told();
    bluez.notify(strap, ecg, {1});
    ASSERT_THAT(told(), ElementsAre("value 46 01")) << "reconnect " << i;
  }
}

TEST_F(BluezFieldFaults, EverySubscriptionIsAliveAfterALinkLoss) {
  bringUp();
  bluez.dropLink(strap);
  runUntil([this] { return subscribedToAll(); });
  told();
  for (const char* uuid : {temperature, ecg, battery, respiration, motion}) {
    bluez.notify(strap, uuid, {1});
  }
  EXPECT_THAT(told(), ElementsAre("value 45 01", "value 46 01", "value 47 01", "value 48 01",
                                  "value 49 01"));
}

TEST_F(BluezFieldFaults, CleaningUpDoesNotWaitForADeadLink) {
  bringUp();
  for (const char* method : {"Disconnect", "StopDiscovery", "StopNotify"}) {
    bluez.script(method, Answer::never(), -1);
  }
  // A wait would be for ever: nobody answers, and nobody turns the queue.
  session.reset();
  world.host.reset();
  settle();
  EXPECT_EQ(bluez.calls("Disconnect"), 1);
  EXPECT_EQ(bluez.calls("StopDiscovery"), 1);
}

TEST_F(BluezFieldFaults, CleaningUpDoesNotWaitForABusThatIsStuck) {
  bringUp();
  world.bus.freeze(true);
  session.reset();
  world.host.reset();
  world.bus.freeze(false);
  runUntil([this] { return !strap.connected && !bluez.discovering(); });
}

TEST_F(BluezFieldFaults, TheScanIsOnAgainAfterADaemonRestart) {
  openSession();
  told();
  bluez.kill();
  bluez.start(false);
  settle();
  bluez.power("hci0", true);
  runUntil([this] { return bluez.discovering(); });
  bluez.advertise(strap);
  runUntil([this] { return subscribedToAll(); });
}

TEST_F(BluezFieldFaults, ObjectsOfTheDaemonBeforeAreNotUsed) {
  bringUp();
  bluez.kill();
  bluez.start();
  runUntil([this] { return bluez.discovering(); });
  EXPECT_EQ(bluez.calls("Connect"), 1) << "the new daemon does not know the device yet";
  bluez.advertise(strap);
  runUntil([this] { return subscribedToAll(); });
  EXPECT_EQ(bluez.calls("Connect"), 2);
  told();
  bluez.notify(strap, ecg, {1});
  EXPECT_THAT(told(), ElementsAre("value 46 01"));
}

TEST_F(BluezFieldFaults, AnAdapterThatReturnsUnderAnotherNameIsUsed) {
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

TEST_F(BluezFieldFaults, ASessionThatBeginsWhileTheRadioIsOffScansWhenItIsOn) {
  bluez.power("hci0", false);
  session = std::make_unique<Session>();
  settle();
  EXPECT_EQ(bluez.calls("StartDiscovery"), 0);
  bluez.power("hci0", true);
  runUntil([this] { return bluez.discovering(); });
}

TEST_F(BluezFieldFaults, ALateReplyOfAnEarlierAttemptIsNotTakenForOneOfTheNext) {
  openSession();
  told();
  strap.inRange = false;
  bluez.script("Connect", Answer::hold(), 1);
  bluez.advertise(strap);
  runUntil([this] { return bluez.heldCalls() == 1; });
  bluez.power("hci0", false);
  settle();
  bluez.power("hci0", true);
  runUntil([this] { return strap.waiting.size() == 1; });
  told();
  bluez.release();  // the first fails, because the second is under way
  settle();
  world.turnFor(100ms);
  EXPECT_EQ(bluez.calls("Connect"), 2) << "the second goes on undisturbed";
  bluez.advertise(strap);
  runUntil([this] { return subscribedToAll(); });
}

TEST_F(BluezFieldFaults, AReplyToASubscriptionOfTheConnectionBeforeIsDropped) {
  openSession();
  told();
  bluez.script("StartNotify", Answer::hold(), 6);
  bluez.advertise(strap);
  settle();
  bluez.dropLink(strap);
  runUntil([this] { return subscribedToAll(); });
  told();
  bluez.release();
  EXPECT_THAT(told(), IsEmpty());
}

TEST_F(BluezFieldFaults, AReplyOfADiscoveryOfTheConnectionBeforeIsDropped) {
  openSession({.subscribe = false});
  told();
  strap.onConnect = {ConnectStep::connected, ConnectStep::reply, ConnectStep::hold,
                     ConnectStep::objects, ConnectStep::resolved};
  bluez.advertise(strap);
  settle();
  bluez.script("GetManagedObjects", Answer::hold(), 1);
  bluez.proceed(strap);
  EXPECT_THAT(told(), ElementsAre("connected"));
  strap.onConnect = fake_bluez::usualConnection;
  bluez.dropLink(strap);
  runUntil([this] { return recorder().lastCharacteristics.size() == 3; });
  told();
  bluez.release();
  EXPECT_THAT(told(), IsEmpty());
}

}  // namespace
