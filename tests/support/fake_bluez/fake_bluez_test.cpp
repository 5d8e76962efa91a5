// SPDX-License-Identifier: MIT
// Tests the fake org.bluez through a minimal client.

#include <tests/support/fake_bluez/bus_connection.h>
#include <tests/support/fake_bluez/fake_bluez.h>
#include <tests/support/fake_bluez/private_bus.h>
#include <tests/support/turn_until.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace {

using namespace fake_bluez;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

constexpr const char* ecg = "46366e80-cf3a-11e1-9ab4-0002a5d5c51b";

class FakeBluezTest : public testing::Test {
 protected:
  FakeBluezTest() {
    bus.start();
    bluez.start();
    connect();
  }

  void connect() {
    client = std::make_unique<BusConnection>(queue, bus.address(), [this](sd_bus_message& message) {
      if (sd_bus_message_is_signal(&message, nullptr, nullptr) <= 0) return false;
      const std::string path = sd_bus_message_get_path(&message);
      if (path != "/org/freedesktop/DBus") {
        received.push_back(std::string(sd_bus_message_get_member(&message)) + " " +
                           textOf(message));
      }
      return true;
    });
    client->match("type='signal',sender='org.bluez'");
  }
  // The answer, with the signals that came before it in `received`.
  std::string ask(const std::string& path, const char* interface, const char* method) {
    std::string answer = "none";
    client->call("org.bluez", path.c_str(), interface, method, [&](sd_bus_message& message) {
      const sd_bus_error* error = sd_bus_message_get_error(&message);
      answer =
          error == nullptr ? textOf(message) : std::string(error->name) + ": " + error->message;
      received.emplace_back("reply");
    });
    turnUntil([&] { return answer != "none"; });
    return answer;
  }
  void turnUntil(const std::function<bool()>& condition) {
    ASSERT_TRUE(::turnUntil(queue, condition));
  }
  // The signals received up to now.
  std::vector<std::string> signals() {
    ask("/", "org.freedesktop.DBus.Peer", "Ping");
    received.pop_back();
    return std::exchange(received, {});
  }
  std::string discover() { return ask("/org/bluez/hci0", "org.bluez.Adapter1", "StartDiscovery"); }
  std::string connectStrap() { return ask(strap.path(), "org.bluez.Device1", "Connect"); }
  void bringUp() {
    discover();
    bluez.advertise(strap);
    connectStrap();
    signals();
  }

  Zephly::main_queue::MainQueue queue;
  PrivateBus bus;
  FakeBluez bluez{queue, bus.address()};
  FakeDevice& strap = bluez.addDevice();
  std::unique_ptr<BusConnection> client;
  std::vector<std::string> received;
};

TEST_F(FakeBluezTest, ListsItsObjects) {
  const std::string objects = ask("/", "org.freedesktop.DBus.ObjectManager", "GetManagedObjects");
  EXPECT_THAT(objects, HasSubstr("/org/bluez/hci0={"));
  EXPECT_THAT(objects, HasSubstr("Powered=true"));
}

TEST_F(FakeBluezTest, ReportsADeviceOnlyDuringADiscovery) {
  EXPECT_FALSE(bluez.advertise(strap));
  EXPECT_EQ(discover(), "");
  EXPECT_EQ(discover(), "org.bluez.Error.InProgress: Operation already in progress");
  signals();
  EXPECT_TRUE(bluez.advertise(strap));
  EXPECT_THAT(signals(), ElementsAre(StartsWith("InterfacesAdded " + strap.path()),
                                     "PropertiesChanged org.bluez.Device1 {RSSI=-60} {}"));
  EXPECT_TRUE(bluez.advertise(strap));
  EXPECT_THAT(signals(), ElementsAre("PropertiesChanged org.bluez.Device1 {RSSI=-60} {}"));
}

TEST_F(FakeBluezTest, DiscoveryEndsWithTheClient) {
  discover();
  client.reset();
  turnUntil([&] { return !bluez.discovering(); });
}

TEST_F(FakeBluezTest, AConnectionHasTheOrderOfTheRealBlueZ) {
  discover();
  bluez.advertise(strap);
  signals();
  EXPECT_EQ(connectStrap(), "");
  const auto all = signals();
  ASSERT_EQ(all.size(), 11U);
  EXPECT_EQ(all[0], "PropertiesChanged org.bluez.Device1 {Connected=true} {}");
  EXPECT_EQ(all[1], "reply");
  EXPECT_THAT(all[2], HasSubstr("org.bluez.GattService1"));
  EXPECT_THAT(all[10], HasSubstr("ServicesResolved=true"));
}

TEST_F(FakeBluezTest, ATestControlsTheStepsOfAConnection) {
  strap.onConnect = {ConnectStep::reply, ConnectStep::hold, ConnectStep::resolved,
                     ConnectStep::connected};
  discover();
  bluez.advertise(strap);
  signals();
  connectStrap();
  EXPECT_THAT(signals(), ElementsAre("reply"));
  bluez.proceed(strap);
  EXPECT_THAT(signals(),
              ElementsAre(HasSubstr("ServicesResolved=true"), HasSubstr("Connected=true")));
}

TEST_F(FakeBluezTest, ASilentDeviceConnectsWhenItAdvertises) {
  discover();
  bluez.advertise(strap);
  strap.inRange = false;
  bool connected = false;
  client->call("org.bluez", strap.path().c_str(), "org.bluez.Device1", "Connect",
               [&](sd_bus_message&) { connected = true; });
  signals();
  EXPECT_FALSE(connected);
  bluez.advertise(strap);
  turnUntil([&] { return connected; });
}

TEST_F(FakeBluezTest, SendsValuesToSubscribers) {
  bringUp();
  EXPECT_FALSE(bluez.notify(strap, ecg, {1, 2}));
  const std::string path = FakeBluez::characteristic(strap, ecg)->path;
  EXPECT_EQ(ask(path, "org.bluez.GattCharacteristic1", "StartNotify"), "");
  signals();
  EXPECT_TRUE(bluez.notify(strap, ecg, {1, 2}));
  EXPECT_THAT(signals(),
              ElementsAre("PropertiesChanged org.bluez.GattCharacteristic1 {Value={1 2}} {}"));
}

TEST_F(FakeBluezTest, ADropIsOneSignal) {
  bringUp();
  bluez.dropLink(strap);
  EXPECT_THAT(signals(), ElementsAre("PropertiesChanged org.bluez.Device1 {Connected=false "
                                     "ServicesResolved=false} {}"));
  EXPECT_EQ(connectStrap(), "");
  const auto all = signals();
  EXPECT_EQ(all.size(), 3U) << "objects are not added again";
}

TEST_F(FakeBluezTest, EndsLikeTheRealBlueZ) {
  bringUp();
  bluez.terminate();
  turnUntil([&] { return received.size() == 13; });  // the last is the root of the tree
  EXPECT_THAT(received.front(), HasSubstr("Connected=false"));
  EXPECT_THAT(received.back(), StartsWith("InterfacesRemoved /org/bluez "));
  received.clear();
  bluez.start(false);
  EXPECT_THAT(signals(), ElementsAre(HasSubstr("/org/bluez "), HasSubstr("Powered=false")));
  EXPECT_EQ(discover(), "org.bluez.Error.NotReady: Resource Not Ready");
  signals();
  bluez.kill();
  EXPECT_THAT(signals(), IsEmpty());
}

TEST_F(FakeBluezTest, AScriptControlsAnswersAndSignals) {
  bluez.script("StartDiscovery", Answer::refuse("org.bluez.Error.Failed", "No."));
  EXPECT_EQ(discover(), "org.bluez.Error.Failed: No.");
  bluez.script("StartDiscovery", Answer::wrong([](sd_bus_message& message) {
                 append(message, std::string("surprise"));
               }));
  EXPECT_EQ(discover(), "surprise");
  signals();
  bluez.fate = [](const std::string&, const std::string&) { return Fate::twice; };
  bluez.advertise(strap);
  EXPECT_EQ(signals().size(), 4U) << "appeared and received";
  bluez.fate = [](const std::string&, const std::string&) { return Fate::held; };
  bluez.advertise(strap);
  EXPECT_THAT(signals(), IsEmpty());
  bluez.fate = nullptr;
  bluez.release();
  EXPECT_EQ(signals().size(), 1U);
  bluez.tamper = [](const std::string&, const std::string&, Properties& all) {
    if (all.contains("RSSI")) all["RSSI"] = "loud";
  };
  bluez.advertise(strap);
  EXPECT_THAT(signals(), ElementsAre(HasSubstr("RSSI=loud")));
}

TEST_F(FakeBluezTest, TheBusMayDenyAccess) {
  bus.allow(false);
  bus.reload();
  EXPECT_THAT(discover(), StartsWith("org.freedesktop.DBus.Error.AccessDenied"));
  bus.allow(true);
  bus.reload();
  EXPECT_EQ(discover(), "");
}

TEST_F(FakeBluezTest, TheBusMayDieAndReturnAtTheSameAddress) {
  bluez.kill();
  bus.stop();
  turnUntil([&] { return !client->open(); });
  bus.start();
  bluez.start();
  connect();
  EXPECT_EQ(discover(), "");
}

}  // namespace
