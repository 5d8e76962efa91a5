// SPDX-License-Identifier: MIT
// How connections are made, and what is requested from the device.
//
// Observations of BlueZ 5.66, by topic, with their tests as patterns for `ctest -R`:
//
//   order of signals and reply; services are not added again   BluezConnecting.*(Order|Reconnect)
//   Connected=true may be missing                              BluezConnecting.*ReplyAlone
//   failed attempts while the device advertises                BluezConnectingUnreachable
//   a silent device fails after 42 s, or connects late         BluezConnecting.*(GivesUp|Silent)
//   already connected; adapter off                             BluezConnecting.*(Immediately|Off)
//   the device stops answering: no services, then the end      BluezConnecting.*StopsAnswering
//   a drop during discovery                                    BluezConnecting.*DuringDiscovery
//   a drop in one signal; our Disconnect in any order          BluezDisconnecting
//   subscriptions that bluetoothd retains                      BluezSubscribing
//   adapter off; SIGTERM, SIGKILL; restart; removal            BluezDaemon
//   names from the cache and from GAP; objects that expire     BluezNames
//   repeated advertisements                                    BluezNames.*EveryAdvertisement
//   faults that were reported from the field                   BluezFieldFaults
//   differences of BlueZ 5.82                                  BluezVersions

#include <tests/hosts/bluez/world.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

namespace {

using namespace std::chrono_literals;
using namespace bluez_test;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

const std::vector<std::string> everything = {
    "connected",         "services 2",
    "characteristics 3", "characteristics 3",
    "subscribed 45",     "subscribed 46",
    "subscribed 47",     "subscribed 48",
    "subscribed 49",     "subscribed 00: Operation is not supported"};

const std::string lost = "disconnected: The device has disconnected (BlueZ gives no reason).";

std::vector<std::string> everythingAfter(const std::string& first) {
  auto all = everything;
  all.insert(all.begin(), first);
  return all;
}

class BluezConnectingTest : public BluezTest {
 protected:
  // Advertised, with a pending connection request.
  void request() {
    openSession();
    takeEvents();
    bluez.advertise(strap);
  }
};

TEST_F(BluezConnectingTest, LeadsToServicesCharacteristicsAndSubscriptions) {
  request();
  EXPECT_EQ(takeEvents(), everything);
  EXPECT_TRUE(subscribedToAll());
}

TEST_F(BluezConnectingTest, SendsNothingToTheDeviceBeforeItsServicesAreResolved) {
  strap.onConnect = {ConnectStep::connected, ConnectStep::reply, ConnectStep::objects,
                     ConnectStep::hold, ConnectStep::resolved};
  request();
  EXPECT_THAT(takeEvents(), ElementsAre("connected"));
  bluez.proceed(strap);
  EXPECT_EQ(takeEvents().size(), everything.size() - 1);
}

TEST_F(BluezConnectingTest, EveryOrderOfSignalsReplyAndObjectsGivesTheSameEvents) {
  using enum ConnectStep;
  std::vector<ConnectStep> order = {connected, reply, objects, resolved};
  std::sort(order.begin(), order.end());
  do {
    World another;
    FakeDevice& device = another.bluez.addDevice();
    device.onConnect = order;
    another.bluez.start();
    another.openHost();
    const Session own;
    ASSERT_TRUE(another.turnUntil([&] { return another.bluez.discovering(); }));
    another.settle();
    own.recorder->take();
    another.bluez.advertise(device);
    EXPECT_TRUE(another.turnUntil([&] { return FakeBluez::subscribed(device, motion); }));
    another.settle();
    EXPECT_EQ(own.recorder->take(), everything);
  } while (std::next_permutation(order.begin(), order.end()));
}

TEST_F(BluezConnectingTest, DetectsAConnectionByItsReplyAlone) {
  strap.onConnect = {ConnectStep::reply, ConnectStep::objects, ConnectStep::resolved};
  request();
  EXPECT_EQ(takeEvents(), everything);
}

TEST_F(BluezConnectingTest, DetectsAConnectionByItsSignalsAlone) {
  strap.onConnect = {ConnectStep::connected, ConnectStep::objects, ConnectStep::resolved};
  request();
  runUntil([this] { return subscribedToAll(); });
  EXPECT_EQ(takeEvents(), everything);
}

TEST_F(BluezConnectingTest, IgnoresRepeatedSignals) {
  bluez.fate = [](const std::string&, const std::string&) { return Fate::twice; };
  request();
  EXPECT_EQ(takeEvents(), everything);
}

TEST_F(BluezConnectingTest, FindsServicesWithoutTheirSignal) {
  bluez.fate = [](const std::string& path, const std::string& member) {
    const bool resolving = path.find("/dev_") != std::string::npos && member != "InterfacesAdded";
    return resolving ? Fate::lost : Fate::once;
  };
  auto options = World::options();
  options.timing.discoveryCheck = 5ms;
  world.openHost(std::move(options));
  request();
  runUntil([this] { return subscribedToAll(); });
  EXPECT_EQ(takeEvents(), everything);
}

TEST_F(BluezConnectingTest, FindsServiceObjectsWithoutTheirSignals) {
  request();
  bluez.fate = [](const std::string&, const std::string& member) {
    return member == "InterfacesAdded" ? Fate::lost : Fate::once;
  };
  EXPECT_EQ(takeEvents(), everything);
}

TEST_F(BluezConnectingTest, FindsRetainedServicesAfterAReconnect) {
  request();
  takeEvents();
  bluez.dropLink(strap);
  runUntil([this] { return bluez.calls("Connect") == 2 && subscribedToAll(); });
  EXPECT_EQ(takeEvents(), everythingAfter(lost));
}

TEST_F(BluezConnectingTest, RetriesAnAttemptThatMissesAPresentDevice) {
  auto options = World::options();
  options.timing.stalledAttemptLimit = 5ms;
  world.openHost(std::move(options));
  bringUp();
  strap.onConnect = {ConnectStep::hold};
  bluez.dropLink(strap);
  runUntil([this] { return !strap.waiting.empty(); });
  // Earlier calls do not count: on a slow machine the short limit may have expired before.
  const int attempts = bluez.calls("Connect");
  const int ends = bluez.calls("Disconnect");
  world.turnFor(50ms);
  EXPECT_EQ(bluez.calls("Disconnect"), ends) << "a device that does not advertise is waited for";
  EXPECT_EQ(bluez.calls("Connect"), attempts);
  bluez.advertise(strap);
  runUntil([&] { return bluez.calls("Connect") > attempts; });
  EXPECT_EQ(bluez.calls("Disconnect"), ends + 1);
}

// As when the kernel lost track of an attempt that the controller refused: all attempts fail.
class BluezConnectingUnreachableTest : public BluezConnectingTest {
 protected:
  BluezConnectingUnreachableTest() {
    auto options = World::options();
    options.timing.stalledAttemptLimit = 5ms;
    world.openHost(std::move(options));
    request();
    runUntil([this] { return subscribedToAll(); });
    world.lines.clear();
    strap.onConnect = {ConnectStep::hold};
    bluez.dropLink(strap);
  }

  void advertiseUntil(const std::function<bool()>& condition) {
    runUntil([&] {
      bluez.advertise(strap);
      return condition();
    });
  }
  void advertiseUntilReported() {
    advertiseUntil([this] { return !world.lines.empty(); });
  }

  const std::string ready = "Bluetooth: adapter hci0 is ready.";
  const std::string unreachable =
      "Bluetooth: adapter hci0 receives advertisements of AA:BB:CC:DD:EE:01 but cannot connect to "
      "it. "
      "To restart the adapter: bluetoothctl power off; bluetoothctl power on";
};

TEST_F(BluezConnectingUnreachableTest, IsReportedOnceAfterThreeConsecutiveAttempts) {
  const int before = bluez.calls("Disconnect");
  advertiseUntilReported();
  settle();
  EXPECT_GE(bluez.calls("Disconnect"), before + 3);
  advertiseUntil([&] { return bluez.calls("Disconnect") >= before + 8; });
  EXPECT_THAT(world.lines, ElementsAre(unreachable));
}

TEST_F(BluezConnectingUnreachableTest, EndsWithAConnection) {
  advertiseUntilReported();
  strap.onConnect = fake_bluez::usualConnection;
  // At most one more advertisement, because on a slow machine the short limit could end a
  // successful attempt.
  runUntil([this] { return !strap.waiting.empty() || subscribedToAll(); });
  bluez.advertise(strap);
  runUntil([this] { return world.lines.size() > 1 && subscribedToAll(); });
  EXPECT_THAT(world.lines, ElementsAre(unreachable, ready));
}

TEST_F(BluezConnectingUnreachableTest, RestartsCountingWhenTheAdapterHasBeenOff) {
  advertiseUntilReported();
  bluez.power("hci0", false);
  settle();
  bluez.power("hci0", true);
  runUntil([this] { return world.lines.back() == ready; });
  world.lines.clear();
  const int before = bluez.calls("Disconnect");
  advertiseUntilReported();
  settle();
  EXPECT_GE(bluez.calls("Disconnect"), before + 3);
  EXPECT_THAT(world.lines, ElementsAre(unreachable));
}

TEST_F(BluezConnectingTest, EndsAStuckAttemptBeforeTheNext) {
  bluez.script("Connect",
               Answer::refuse("org.bluez.Error.Failed", "Operation already in progress"));
  request();
  runUntil([this] { return subscribedToAll(); });
  EXPECT_EQ(bluez.calls("Disconnect"), 1);
  EXPECT_EQ(bluez.calls("Connect"), 2);
}

TEST_F(BluezConnectingTest, RetriesWhenBlueZGivesUp) {
  strap.inRange = false;
  request();
  for (int attempt = 1; attempt <= 3; ++attempt) {
    runUntil([&] { return bluez.calls("Connect") == attempt; });
    EXPECT_THAT(takeEvents(), IsEmpty()) << "a request does not time out";
    bluez.failConnect(strap, "le-connection-abort-by-local");
  }
  runUntil([this] { return bluez.calls("Connect") == 4; });
  bluez.advertise(strap);
  EXPECT_EQ(takeEvents(), everything);
}

TEST_F(BluezConnectingTest, ConnectsToASilentDeviceThatStartsToAdvertise) {
  strap.inRange = false;
  request();
  takeEvents();
  bluez.advertise(strap);
  EXPECT_EQ(takeEvents(), everything);
  EXPECT_EQ(bluez.calls("Connect"), 1);
}

TEST_F(BluezConnectingTest, TheTimeLimitOfAnAttemptIsLongerThanBlueZs) {
  EXPECT_GT(Zephly::bluez::Timing().connectLimit, 42s);
  EXPECT_GT(Zephly::bluez::Timing().discoveryLimit, 32s);
  EXPECT_GT(Zephly::bluez::Timing().subscribeLimit, 30s);
}

TEST_F(BluezConnectingTest, RetriesAnUnansweredAttemptAfterItsTimeLimit) {
  auto options = World::options();
  options.timing.connectLimit = 10ms;
  world.openHost(std::move(options));
  bluez.script("Connect", Answer::never());
  request();
  runUntil([this] { return subscribedToAll(); });
  EXPECT_EQ(takeEvents(), everything);
  EXPECT_EQ(bluez.calls("Connect"), 2);
}

TEST_F(BluezConnectingTest, PausesBetweenAttemptsGrow) {
  auto options = World::options();
  options.timing.firstPause = 1ms;
  options.timing.longestPause = 60s;
  world.openHost(std::move(options));
  bluez.script("Connect", Answer::refuse("org.bluez.Error.Failed", "Busy"), -1);
  request();
  // 1, 2, 4 ... 2^15 ms: more attempts within the time limit of 20 s would be a busy loop.
  runUntil([this] { return bluez.calls("Connect") >= 3; });
  world.turnFor(300ms);
  EXPECT_LE(bluez.calls("Connect"), 12);
  EXPECT_THAT(takeEvents(), IsEmpty());
}

TEST_F(BluezConnectingTest, ReportsAConnectedDeviceImmediately) {
  request();
  takeEvents();
  session.reset();
  settle();
  bluez.connectByItself(strap);
  settle();
  const int before = bluez.calls("Connect");
  openSession();
  EXPECT_EQ(takeEvents(), everythingAfter("state 5"));
  EXPECT_EQ(bluez.calls("Connect"), before);
}

TEST_F(BluezConnectingTest, RequestsAConnectionThatOnlyAppearsToExist) {
  strap.onConnect = {ConnectStep::connected};
  bluez.connectByItself(strap);
  strap.onConnect = {ConnectStep::reply, ConnectStep::objects, ConnectStep::resolved};
  openSession();
  runUntil([this] { return bluez.calls("Connect") == 1; });
  EXPECT_THAT(takeEvents(), Contains("connected")) << "Connect while connected succeeds at once";
}

TEST_F(BluezConnectingTest, KeepsTheRequestPendingWhileTheAdapterIsOff) {
  strap.inRange = false;
  request();
  takeEvents();
  bluez.power("hci0", false);
  EXPECT_THAT(takeEvents(), ElementsAre("state 4"));
  EXPECT_EQ(bluez.calls("Connect"), 1);
  strap.inRange = true;
  bluez.power("hci0", true);
  runUntil([this] { return subscribedToAll(); });
  EXPECT_EQ(takeEvents(), everythingAfter("state 5"));
}

TEST_F(BluezConnectingTest, RetriesAfterAnInputOutputError) {
  bluez.script("Connect", Answer::refuse("org.bluez.Error.Failed", "Input/output error"), 2);
  request();
  runUntil([this] { return subscribedToAll(); });
  EXPECT_EQ(takeEvents(), everything);
}

TEST_F(BluezConnectingTest, ReportsOneLossOfADeviceThatStopsAnswering) {
  strap.onConnect = {ConnectStep::connected, ConnectStep::reply, ConnectStep::hold,
                     ConnectStep::resolvedEmpty};
  request();
  EXPECT_THAT(takeEvents(), ElementsAre("connected"));
  bluez.proceed(strap);
  EXPECT_THAT(takeEvents(), ElementsAre("services 0"));
  strap.onConnect = fake_bluez::usualConnection;
  bluez.dropLink(strap);
  runUntil([this] { return subscribedToAll(); });
  EXPECT_EQ(takeEvents(), everythingAfter(lost));
}

TEST_F(BluezConnectingTest, ReportsADropDuringDiscoveryOnceAndReconnects) {
  strap.onConnect = {ConnectStep::connected, ConnectStep::reply, ConnectStep::objects,
                     ConnectStep::hold};
  request();
  EXPECT_THAT(takeEvents(), ElementsAre("connected"));
  strap.onConnect = fake_bluez::usualConnection;
  bluez.dropLink(strap);
  runUntil([this] { return subscribedToAll(); });
  EXPECT_EQ(takeEvents(), everythingAfter(lost));
}

TEST_F(BluezConnectingTest, EndsAConnectionWhoseServicesAreNeverResolved) {
  auto options = World::options();
  options.timing.discoveryLimit = 10ms;
  options.timing.discoveryCheck = 3ms;
  world.openHost(std::move(options));
  strap.onConnect = {ConnectStep::connected, ConnectStep::reply};
  request();
  runUntil([this] { return bluez.calls("Disconnect") > 0; });
  strap.onConnect = fake_bluez::usualConnection;
  runUntil([this] { return subscribedToAll(); });
  const auto log = takeEvents();
  EXPECT_THAT(log, Contains("disconnected: The services of the device could not be discovered in "
                            "time."));
  EXPECT_EQ(
      std::count(log.begin(), log.end(), "connected"),
      std::count(log.begin(), log.end(),
                 "disconnected: The services of the device could not be discovered in time.") +
          1);
}

TEST_F(BluezConnectingTest, ConnectsToARemovedDeviceWhenItReturns) {
  strap.inRange = false;
  request();
  takeEvents();
  bluez.forget(strap);
  settle();
  strap.inRange = true;
  EXPECT_THAT(takeEvents(), IsEmpty());
  bluez.advertise(strap);
  runUntil([this] { return subscribedToAll(); });
  EXPECT_EQ(takeEvents(), everything);
}

}  // namespace
