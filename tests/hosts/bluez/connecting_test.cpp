// How connections come about, and what is asked of the device then.
//
// What was observed with BlueZ 5.66, by theme, and where it is tested:
//
//   order of signals and reply; services are not added again   BluezConnecting.*Order*, *Reconnect*
//   Connected=true may be missing                              BluezConnecting.*WithoutItsSignal
//   attempts that lead nowhere while the device is heard       BluezHeardInVain
//   a silent device fails after 42 s, or connects late         BluezConnecting.*Silent*
//   connected already; adapter off                             BluezConnecting.*Already*, *Off*
//   the device stops answering: no services, then the end      BluezConnecting.*StopsAnswering*
//   a drop during discovery                                    BluezConnecting.*DuringDiscovery
//   one signal tells a drop; our own Disconnect in any order   BluezDisconnecting
//   subscriptions that bluetoothd keeps by itself              BluezSubscribing
//   adapter off; SIGTERM, SIGKILL; restart; removal            BluezDaemon
//   names from the cache and from GAP; objects that expire     BluezNames
//   repeated advertisements                                    BluezNames.*Repeated*
//   faults that have been met in the field                     BluezFieldFaults
//   what BlueZ 5.82 does otherwise                             Bluez582

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

class BluezConnecting : public BluezTest {
 protected:
  // Heard, with a request to connect under way.
  void request() {
    openSession();
    told();
    bluez.advertise(strap);
  }
};

TEST_F(BluezConnecting, LeadsToServicesCharacteristicsAndSubscriptions) {
  request();
  EXPECT_EQ(told(), everything);
  EXPECT_TRUE(subscribedToAll());
}

TEST_F(BluezConnecting, NothingIsAskedOfTheDeviceBeforeItsServicesAreResolved) {
  strap.onConnect = {ConnectStep::connected, ConnectStep::reply, ConnectStep::objects,
                     ConnectStep::hold, ConnectStep::resolved};
  request();
  EXPECT_THAT(told(), ElementsAre("connected"));
  bluez.proceed(strap);
  EXPECT_EQ(told().size(), everything.size() - 1);
}

TEST_F(BluezConnecting, EveryOrderOfSignalsReplyAndObjectsLeadsToTheSame) {
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

TEST_F(BluezConnecting, AConnectionWithoutItsSignalIsFoundByTheReply) {
  strap.onConnect = {ConnectStep::reply, ConnectStep::objects, ConnectStep::resolved};
  request();
  EXPECT_EQ(told(), everything);
}

TEST_F(BluezConnecting, AConnectionWithoutItsReplyIsFoundByTheSignals) {
  strap.onConnect = {ConnectStep::connected, ConnectStep::objects, ConnectStep::resolved};
  request();
  runUntil([this] { return subscribedToAll(); });
  EXPECT_EQ(told(), everything);
}

TEST_F(BluezConnecting, SignalsThatComeTwiceChangeNothing) {
  bluez.fate = [](const std::string&, const std::string&) { return Fate::twice; };
  request();
  EXPECT_EQ(told(), everything);
}

TEST_F(BluezConnecting, ServicesAppearWithoutTheirSignal) {
  bluez.fate = [](const std::string& path, const std::string& member) {
    const bool resolving = path.find("/dev_") != std::string::npos && member != "InterfacesAdded";
    return resolving ? Fate::lost : Fate::once;
  };
  auto options = World::options();
  options.timing.discoveryCheck = 5ms;
  world.openHost(std::move(options));
  request();
  runUntil([this] { return subscribedToAll(); });
  EXPECT_EQ(told(), everything);
}

TEST_F(BluezConnecting, ServiceObjectsAreFoundWithoutTheirSignals) {
  request();
  bluez.fate = [](const std::string&, const std::string& member) {
    return member == "InterfacesAdded" ? Fate::lost : Fate::once;
  };
  EXPECT_EQ(told(), everything);
}

TEST_F(BluezConnecting, OnReconnectTheServicesThatStayedAreFoundAgain) {
  request();
  told();
  bluez.dropLink(strap);
  runUntil([this] { return bluez.calls("Connect") == 2 && subscribedToAll(); });
  EXPECT_EQ(told(), everythingAfter(lost));
}

TEST_F(BluezConnecting, AnAttemptThatMissesADeviceThatIsThereIsMadeAnew) {
  auto options = World::options();
  options.timing.heardLimit = 5ms;
  world.openHost(std::move(options));
  bringUp();
  strap.onConnect = {ConnectStep::hold};
  bluez.dropLink(strap);
  runUntil([this] { return !strap.waiting.empty(); });
  // Counted from here: a slow machine may have met the short limit before.
  const int attempts = bluez.calls("Connect");
  const int ends = bluez.calls("Disconnect");
  world.turnFor(50ms);
  EXPECT_EQ(bluez.calls("Disconnect"), ends) << "what is not heard is waited for";
  EXPECT_EQ(bluez.calls("Connect"), attempts);
  bluez.advertise(strap);
  runUntil([&] { return bluez.calls("Connect") > attempts; });
  EXPECT_EQ(bluez.calls("Disconnect"), ends + 1);
}

// As when the kernel has lost an attempt that the controller refused: none gets through any more.
class BluezHeardInVain : public BluezConnecting {
 protected:
  BluezHeardInVain() {
    auto options = World::options();
    options.timing.heardLimit = 5ms;
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
  void advertiseUntilTold() {
    advertiseUntil([this] { return !world.lines.empty(); });
  }

  const std::string ready = "Bluetooth: adapter hci0 is ready.";
  const std::string inVain =
      "Bluetooth: adapter hci0 hears AA:BB:CC:DD:EE:01 but does not get through to it. "
      "To start the adapter anew: bluetoothctl power off; bluetoothctl power on";
};

TEST_F(BluezHeardInVain, IsToldOnceAfterTheThirdAttemptInARow) {
  const int before = bluez.calls("Disconnect");
  advertiseUntilTold();
  settle();
  EXPECT_GE(bluez.calls("Disconnect"), before + 3);
  advertiseUntil([&] { return bluez.calls("Disconnect") >= before + 8; });
  EXPECT_THAT(world.lines, ElementsAre(inVain));
}

TEST_F(BluezHeardInVain, IsOverWithAConnection) {
  advertiseUntilTold();
  strap.onConnect = fake_bluez::usualConnection;
  // Heard once more at the most: a slow machine could end a good attempt by the short limit.
  runUntil([this] { return !strap.waiting.empty() || subscribedToAll(); });
  bluez.advertise(strap);
  runUntil([this] { return world.lines.size() > 1 && subscribedToAll(); });
  EXPECT_THAT(world.lines, ElementsAre(inVain, ready));
}

TEST_F(BluezHeardInVain, IsCountedAnewWhenTheAdapterHasBeenOff) {
  advertiseUntilTold();
  bluez.power("hci0", false);
  settle();
  bluez.power("hci0", true);
  runUntil([this] { return world.lines.back() == ready; });
  world.lines.clear();
  const int before = bluez.calls("Disconnect");
  advertiseUntilTold();
  settle();
  EXPECT_GE(bluez.calls("Disconnect"), before + 3);
  EXPECT_THAT(world.lines, ElementsAre(inVain));
}

TEST_F(BluezConnecting, AnAttemptOfBeforeThatIsStuckIsEndedBeforeTheNext) {
  bluez.script("Connect",
               Answer::refuse("org.bluez.Error.Failed", "Operation already in progress"));
  request();
  runUntil([this] { return subscribedToAll(); });
  EXPECT_EQ(bluez.calls("Disconnect"), 1);
  EXPECT_EQ(bluez.calls("Connect"), 2);
}

TEST_F(BluezConnecting, ASilentDeviceIsAskedAgainWhenBlueZGivesUp) {
  strap.inRange = false;
  request();
  for (int attempt = 1; attempt <= 3; ++attempt) {
    runUntil([&] { return bluez.calls("Connect") == attempt; });
    EXPECT_THAT(told(), IsEmpty()) << "a request does not time out";
    bluez.failConnect(strap, "le-connection-abort-by-local");
  }
  runUntil([this] { return bluez.calls("Connect") == 4; });
  bluez.advertise(strap);
  EXPECT_EQ(told(), everything);
}

TEST_F(BluezConnecting, ASilentDeviceThatAdvertisesMeanwhileConnects) {
  strap.inRange = false;
  request();
  told();
  bluez.advertise(strap);
  EXPECT_EQ(told(), everything);
  EXPECT_EQ(bluez.calls("Connect"), 1);
}

TEST_F(BluezConnecting, TheLimitOfAnAttemptIsLongerThanThatOfBlueZ) {
  EXPECT_GT(Zephly::bluez::Timing().connectLimit, 42s);
  EXPECT_GT(Zephly::bluez::Timing().discoveryLimit, 32s);
  EXPECT_GT(Zephly::bluez::Timing().subscribeLimit, 30s);
}

TEST_F(BluezConnecting, AnAttemptThatIsNeverAnsweredIsMadeAnewAfterItsLimit) {
  auto options = World::options();
  options.timing.connectLimit = 10ms;
  world.openHost(std::move(options));
  bluez.script("Connect", Answer::never());
  request();
  runUntil([this] { return subscribedToAll(); });
  EXPECT_EQ(told(), everything);
  EXPECT_EQ(bluez.calls("Connect"), 2);
}

TEST_F(BluezConnecting, PausesBetweenAttemptsGrow) {
  auto options = World::options();
  options.timing.firstPause = 1ms;
  options.timing.longestPause = 60s;
  world.openHost(std::move(options));
  bluez.script("Connect", Answer::refuse("org.bluez.Error.Failed", "Busy"), -1);
  request();
  // 1, 2, 4 ... 2^15 ms: more attempts than that within the guard's 20 s are a busy loop.
  runUntil([this] { return bluez.calls("Connect") >= 3; });
  world.turnFor(300ms);
  EXPECT_LE(bluez.calls("Connect"), 12);
  EXPECT_THAT(told(), IsEmpty());
}

TEST_F(BluezConnecting, ADeviceThatIsConnectedAlreadyIsConnectedWithoutWaiting) {
  request();
  told();
  session.reset();
  settle();
  bluez.connectByItself(strap);
  settle();
  const int before = bluez.calls("Connect");
  openSession();
  EXPECT_EQ(told(), everythingAfter("state 5"));
  EXPECT_EQ(bluez.calls("Connect"), before);
}

TEST_F(BluezConnecting, AConnectionThatOnlyAppearsToStandIsAskedFor) {
  strap.onConnect = {ConnectStep::connected};
  bluez.connectByItself(strap);
  strap.onConnect = {ConnectStep::reply, ConnectStep::objects, ConnectStep::resolved};
  openSession();
  runUntil([this] { return bluez.calls("Connect") == 1; });
  EXPECT_THAT(told(), Contains("connected")) << "Connect while connected succeeds at once";
}

TEST_F(BluezConnecting, WithTheAdapterOffNothingIsAskedAndTheRequestStands) {
  strap.inRange = false;
  request();
  told();
  bluez.power("hci0", false);
  EXPECT_THAT(told(), ElementsAre("state 4"));
  EXPECT_EQ(bluez.calls("Connect"), 1);
  strap.inRange = true;
  bluez.power("hci0", true);
  runUntil([this] { return subscribedToAll(); });
  EXPECT_EQ(told(), everythingAfter("state 5"));
}

TEST_F(BluezConnecting, AnInputOutputErrorIsTriedAgain) {
  bluez.script("Connect", Answer::refuse("org.bluez.Error.Failed", "Input/output error"), 2);
  request();
  runUntil([this] { return subscribedToAll(); });
  EXPECT_EQ(told(), everything);
}

TEST_F(BluezConnecting, ADeviceThatStopsAnsweringHasNoServicesAndIsLostOnce) {
  strap.onConnect = {ConnectStep::connected, ConnectStep::reply, ConnectStep::hold,
                     ConnectStep::resolvedEmpty};
  request();
  EXPECT_THAT(told(), ElementsAre("connected"));
  bluez.proceed(strap);
  EXPECT_THAT(told(), ElementsAre("services 0"));
  strap.onConnect = fake_bluez::usualConnection;
  bluez.dropLink(strap);
  runUntil([this] { return subscribedToAll(); });
  EXPECT_EQ(told(), everythingAfter(lost));
}

TEST_F(BluezConnecting, ADropDuringDiscoveryIsToldOnceAndTheLinkIsMadeAnew) {
  strap.onConnect = {ConnectStep::connected, ConnectStep::reply, ConnectStep::objects,
                     ConnectStep::hold};
  request();
  EXPECT_THAT(told(), ElementsAre("connected"));
  strap.onConnect = fake_bluez::usualConnection;
  bluez.dropLink(strap);
  runUntil([this] { return subscribedToAll(); });
  EXPECT_EQ(told(), everythingAfter(lost));
}

TEST_F(BluezConnecting, ServicesThatAreNeverResolvedEndTheConnection) {
  auto options = World::options();
  options.timing.discoveryLimit = 10ms;
  options.timing.discoveryCheck = 3ms;
  world.openHost(std::move(options));
  strap.onConnect = {ConnectStep::connected, ConnectStep::reply};
  request();
  runUntil([this] { return bluez.calls("Disconnect") > 0; });
  strap.onConnect = fake_bluez::usualConnection;
  runUntil([this] { return subscribedToAll(); });
  const auto log = told();
  EXPECT_THAT(log, Contains("disconnected: The services of the device could not be discovered in "
                            "time."));
  EXPECT_EQ(
      std::count(log.begin(), log.end(), "connected"),
      std::count(log.begin(), log.end(),
                 "disconnected: The services of the device could not be discovered in time.") +
          1);
}

TEST_F(BluezConnecting, RequestsForADeviceThatHasGoneAreMadeWhenItIsBack) {
  strap.inRange = false;
  request();
  told();
  bluez.forget(strap);
  settle();
  strap.inRange = true;
  EXPECT_THAT(told(), IsEmpty());
  bluez.advertise(strap);
  runUntil([this] { return subscribedToAll(); });
  EXPECT_EQ(told(), everything);
}

}  // namespace
