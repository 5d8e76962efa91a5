// SPDX-License-Identifier: MIT
// The strap as a peripheral of a fake bluetoothd on a private bus.

#include <hosts/bluez/bus.h>
#include <hosts/main_queue/main_queue.h>
#include <tests/support/fake_bluez/private_bus.h>
#include <tests/support/silent_bus.h>
#include <tests/support/turn_until.h>
#include <tests/tools/strap/bus_client.h>
#include <tests/tools/strap/fake_bluetoothd.h>
#include <tools/strap/presence.h>
#include <zephly/protocol/streams.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

using namespace std::chrono_literals;
using fake_bluez::Answer;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;
using Zephly::Stream;
using Zephly::bluez::Arguments;
using Zephly::bluez::Bus;
using Zephly::bluez::Bytes;
using Zephly::bluez::Dictionary;
using Zephly::bluez::Reply;
using Zephly::bluez::Signal;
using Zephly::bluez::Strings;
using Zephly::peripheral::Presence;
using Zephly::peripheral::PresenceListener;
using Zephly::peripheral::PresenceOptions;

constexpr const char* registerApplication = "hci0 RegisterApplication /org/zephly/strap {}";
constexpr const char* unregisterApplication = "hci0 UnregisterApplication /org/zephly/strap";
constexpr const char* advertise = "hci0 RegisterAdvertisement /org/zephly/advertisement {}";
constexpr const char* stopAdvertising = "hci0 UnregisterAdvertisement /org/zephly/advertisement";
constexpr const char* disconnectCentral = "dev_AA_BB_CC_DD_EE_FF Disconnect";
constexpr const char* ecgPath = "/org/zephly/strap/service0/ecg";
constexpr const char* characteristicInterface = "org.bluez.GattCharacteristic1";

class StrapPresenceTest : public testing::Test, public PresenceListener {
 protected:
  StrapPresenceTest() {
    options.name = "Zephly";
    options.bluetooth.busAddress = bus.address();
    options.bluetooth.timing.firstPause = 2ms;
    options.bluetooth.timing.longestPause = 20ms;
    options.bluetooth.timing.reportDelay = 20ms;
    bus.start();
    client = openBus(queue, {.address = bus.address(),
                             .rules = {"type='signal',member='PropertiesChanged',path='" +
                                       std::string(ecgPath) + "'"}});
  }

  void onMessage(std::string_view line) override { lines.emplace_back(line); }
  void onSubscription(Stream stream, bool subscribed) override {
    lines.push_back((subscribed ? "subscribed " : "unsubscribed ") +
                    std::string(Zephly::streamInfo(stream).name));
  }
  void onCentral(const std::string& name, bool connected) override {
    lines.push_back((connected ? "connected " : "disconnected ") + name);
  }
  void onFatal(const std::string& reason) override { lines.push_back("fatal: " + reason); }

  void open() { presence = std::make_unique<Presence>(queue, options, *this); }

  /// With an adapter that is switched on, advertising.
  void bringUp() {
    bluetoothd.addAdapter();
    bluetoothd.start();
    open();
    until([this] { return hasLine("advertising as \"Zephly\" on hci0"); });
    lines.clear();
    bluetoothd.forget();
  }

  bool hasLine(const std::string& line) const {
    return std::find(lines.begin(), lines.end(), line) != lines.end();
  }
  void untilLine(const std::string& line) {
    until([&] { return hasLine(line); });
  }
  void untilCall(const std::string& call) {
    until([&] { return bluetoothd.wasCalled(call); });
  }
  void until(const std::function<bool()>& condition) {
    ASSERT_TRUE(turnUntil(queue, condition))
        << "lines: " << testing::PrintToString(lines)
        << ", calls: " << testing::PrintToString(bluetoothd.recordedCalls());
  }

  Reply call(const std::string& path, const std::string& interface, const std::string& method,
             const Arguments& arguments = {}) {
    Reply got;
    bool answered = false;
    client->call({bluetoothd.applicant(), path, interface, method}, arguments, 10s,
                 [&](const Reply& reply) {
                   got = reply;
                   answered = true;
                 });
    until([&] { return answered; });
    return got;
  }
  Reply subscribe(const std::string& path = ecgPath) {
    return call(path, characteristicInterface, "StartNotify");
  }

  Zephly::main_queue::MainQueue queue;
  fake_bluez::PrivateBus bus;
  FakeBluetoothd bluetoothd{queue, bus.address()};
  PresenceOptions options;
  std::vector<std::string> lines;
  std::unique_ptr<Bus> client;
  std::unique_ptr<Presence> presence;
};

TEST_F(StrapPresenceTest, RegistersTheApplicationBeforeItAdvertises) {
  bluetoothd.addAdapter();
  bluetoothd.start();
  open();
  untilLine("advertising as \"Zephly\" on hci0");
  EXPECT_THAT(bluetoothd.recordedCalls(), ElementsAre(registerApplication, advertise));
  EXPECT_THAT(lines, ElementsAre("adapter hci0 (00:00:00:00:00:0A)", "registered on hci0",
                                 "advertising as \"Zephly\" on hci0"));
}

TEST_F(StrapPresenceTest, ExportsItsServiceAndFiveNotifyingCharacteristics) {
  bringUp();
  const Reply reply =
      call("/org/zephly/strap", "org.freedesktop.DBus.ObjectManager", "GetManagedObjects");
  const auto* objects = Zephly::bluez::at<Dictionary>(reply.values, 0);
  ASSERT_NE(objects, nullptr) << reply.errorText();
  const auto* service = Zephly::bluez::find<Dictionary>(*objects, "/org/zephly/strap/service0");
  ASSERT_NE(service, nullptr);
  const auto* serviceProperties =
      Zephly::bluez::find<Dictionary>(*service, "org.bluez.GattService1");
  ASSERT_NE(serviceProperties, nullptr);
  EXPECT_EQ(serviceProperties->at("UUID"),
            Zephly::bluez::Value("44366E80-CF3A-11E1-9AB4-0002A5D5C51B"));
  EXPECT_EQ(serviceProperties->at("Primary"), Zephly::bluez::Value(true));
  std::vector<std::string> identifiers;
  for (const auto& [path, interfaces] : *objects) {
    const auto* all = Zephly::bluez::as<Dictionary>(interfaces);
    ASSERT_NE(all, nullptr);
    const auto* properties = Zephly::bluez::find<Dictionary>(*all, characteristicInterface);
    if (properties == nullptr) continue;
    EXPECT_EQ(properties->at("Service"), Zephly::bluez::Value("/org/zephly/strap/service0"));
    EXPECT_EQ(properties->at("Flags"), Zephly::bluez::Value(Strings{"notify"}));
    EXPECT_EQ(properties->at("Notifying"), Zephly::bluez::Value(false));
    identifiers.push_back(*Zephly::bluez::find<std::string>(*properties, "UUID"));
  }
  EXPECT_THAT(identifiers, testing::UnorderedElementsAre("45366E80-CF3A-11E1-9AB4-0002A5D5C51B",
                                                         "46366E80-CF3A-11E1-9AB4-0002A5D5C51B",
                                                         "47366E80-CF3A-11E1-9AB4-0002A5D5C51B",
                                                         "48366E80-CF3A-11E1-9AB4-0002A5D5C51B",
                                                         "49366E80-CF3A-11E1-9AB4-0002A5D5C51B"));
}

TEST_F(StrapPresenceTest, AdvertisesItsNameAndService) {
  bringUp();
  const Reply reply = call("/org/zephly/advertisement", "org.freedesktop.DBus.Properties", "GetAll",
                           {"org.bluez.LEAdvertisement1"});
  const auto* all = Zephly::bluez::at<Dictionary>(reply.values, 0);
  ASSERT_NE(all, nullptr) << reply.errorText();
  EXPECT_EQ(*all, (Dictionary{{"Type", "peripheral"},
                              {"LocalName", "Zephly"},
                              {"ServiceUUIDs", Strings{"44366E80-CF3A-11E1-9AB4-0002A5D5C51B"}}}));
}

TEST_F(StrapPresenceTest, ReportsASubscriptionOnceUntilItEnds) {
  bringUp();
  EXPECT_FALSE(presence->isSubscribed(Stream::ecg));
  EXPECT_TRUE(subscribe());
  EXPECT_TRUE(subscribe());
  EXPECT_TRUE(presence->isSubscribed(Stream::ecg));
  EXPECT_FALSE(presence->isSubscribed(Stream::motion));
  EXPECT_TRUE(call(ecgPath, characteristicInterface, "StopNotify"));
  EXPECT_TRUE(call(ecgPath, characteristicInterface, "StopNotify"));
  EXPECT_FALSE(presence->isSubscribed(Stream::ecg));
  EXPECT_THAT(lines, ElementsAre("subscribed ecg", "unsubscribed ecg"));
}

TEST_F(StrapPresenceTest, EveryFrameIsOneSignalInOrder) {
  bringUp();
  std::vector<Bytes> values;
  std::vector<bool> notifying;
  client->onSignal([&](const Signal& signal) {
    const auto* changed = Zephly::bluez::at<Dictionary>(signal.arguments, 1);
    ASSERT_NE(changed, nullptr);
    if (const auto* value = Zephly::bluez::find<Bytes>(*changed, "Value")) {
      values.push_back(*value);
    }
    if (const auto* flag = Zephly::bluez::find<bool>(*changed, "Notifying")) {
      notifying.push_back(*flag);
    }
  });
  EXPECT_TRUE(subscribe());
  EXPECT_TRUE(presence->carry({0s, Stream::ecg, {1}}));
  EXPECT_TRUE(presence->carry({0s, Stream::ecg, {1}}));
  EXPECT_TRUE(presence->carry({0s, Stream::ecg, {2, 3}}));
  until([&] { return values.size() >= 3 && !notifying.empty(); });
  EXPECT_THAT(values, ElementsAre(Bytes{1}, Bytes{1}, Bytes{2, 3}));
  EXPECT_THAT(notifying, ElementsAre(true));
}

TEST_F(StrapPresenceTest, SendsNothingWithoutAnApplication) {
  open();
  EXPECT_FALSE(presence->isSubscribed(Stream::ecg));
  EXPECT_FALSE(presence->carry({0s, Stream::ecg, {1}}));
}

TEST_F(StrapPresenceTest, RetriesAfterARefusalAndReportsItOnce) {
  for (int i = 0; i < 3; ++i) {
    bluetoothd.script("RegisterApplication",
                      Answer::refuse("org.bluez.Error.NotReady", "Resource Not Ready"));
  }
  bluetoothd.script("RegisterAdvertisement",
                    Answer::refuse("org.bluez.Error.Failed", "Failed to advertise"));
  bluetoothd.addAdapter();
  bluetoothd.start();
  open();
  untilLine("advertising as \"Zephly\" on hci0");
  EXPECT_THAT(lines,
              ElementsAre("adapter hci0 (00:00:00:00:00:0A)",
                          "cannot register the GATT application on hci0: Resource Not Ready; "
                          "trying again",
                          "registered on hci0",
                          "cannot advertise on hci0: Failed to advertise; trying again",
                          "advertising as \"Zephly\" on hci0"));
}

TEST_F(StrapPresenceTest, UnregistersEarlierRegistrationsFirst) {
  bluetoothd.script("RegisterAdvertisement",
                    Answer::refuse("org.bluez.Error.AlreadyExists", "Already Exists"));
  bluetoothd.addAdapter();
  bluetoothd.start();
  open();
  untilLine("advertising as \"Zephly\" on hci0");
  EXPECT_THAT(bluetoothd.recordedCalls(),
              ElementsAre(registerApplication, advertise, stopAdvertising, advertise));
}

TEST_F(StrapPresenceTest, IgnoresRepliesOfTheWrongType) {
  for (const char* method : {"RegisterApplication", "RegisterAdvertisement"}) {
    bluetoothd.script(method, Answer::wrong([](sd_bus_message& message) {
                        fake_bluez::append(message, std::string("odd"));
                      }));
  }
  bluetoothd.add(
      "/org/bluez/hci9",
      {{"org.bluez.Adapter1", {{"Powered", "yes"}, {"Address", true}, {"Alias", std::uint16_t{3}}}},
       {"org.bluez.GattManager1", {}},
       {"org.bluez.LEAdvertisingManager1", {}}});
  bluetoothd.start();
  open();
  untilLine(
      "Bluetooth: adapter hci9 is switched off. To switch it on: rfkill unblock bluetooth; "
      "bluetoothctl "
      "power on");
  bluetoothd.addAdapter();
  untilLine("advertising as \"Zephly\" on hci0");
}

TEST_F(StrapPresenceTest, AdvertisesAgainWithTheSameApplicationAfterAPowerCycle) {
  bringUp();
  bluetoothd.power(false);
  untilLine("adapter hci0 was switched off");
  untilCall(stopAdvertising);
  bluetoothd.power(true);
  untilLine("advertising as \"Zephly\" on hci0");
  EXPECT_THAT(bluetoothd.recordedCalls(), ElementsAre(stopAdvertising, advertise));
}

TEST_F(StrapPresenceTest, RegistersEverythingAgainAfterARestartOfTheService) {
  bringUp();
  subscribe();
  untilLine("subscribed ecg");
  bluetoothd.kill();
  untilLine("unsubscribed ecg");
  EXPECT_TRUE(hasLine("bluetoothd has gone"));
  EXPECT_FALSE(presence->isSubscribed(Stream::ecg));
  bluetoothd.addAdapter("hci0", false);
  bluetoothd.start();
  untilLine("adapter hci0 (00:00:00:00:00:0A)");
  EXPECT_THAT(bluetoothd.recordedCalls(), IsEmpty());
  bluetoothd.power(true);
  untilLine("advertising as \"Zephly\" on hci0");
  EXPECT_THAT(bluetoothd.recordedCalls(), ElementsAre(registerApplication, advertise));
}

TEST_F(StrapPresenceTest, UsesAnAdapterThatReturnsAtAnotherIndex) {
  options.bluetooth.adapter = "hci0";
  bringUp();
  bluetoothd.remove("/org/bluez/hci0");
  untilLine("adapter hci0 has gone");
  untilLine(
      "Bluetooth: no adapter hci0. Plug it in. To list adapters: bluetoothctl list; kernel "
      "messages: dmesg");
  bluetoothd.addAdapter("hci0", true, true, "00:00:00:00:00:0C");
  bluetoothd.addAdapter("hci1");
  untilLine("advertising as \"Zephly\" on hci1");
  EXPECT_THAT(bluetoothd.recordedCalls(), Not(Contains(StartsWith("hci0"))));
}

TEST_F(StrapPresenceTest, RestartsAnAdvertisementThatTheServiceEnded) {
  bringUp();
  EXPECT_TRUE(call("/org/zephly/advertisement", "org.bluez.LEAdvertisement1", "Release"));
  untilLine("advertising as \"Zephly\" on hci0");
  EXPECT_THAT(bluetoothd.recordedCalls(), ElementsAre(advertise));
}

TEST_F(StrapPresenceTest, ReportsConnectedDevices) {
  bringUp();
  bluetoothd.connect();
  untilLine("connected AA:BB:CC:DD:EE:FF");
  bluetoothd.disconnect();
  untilLine("disconnected AA:BB:CC:DD:EE:FF");
}

TEST_F(StrapPresenceTest, DisconnectsForALinkLossAndAdvertisesAfterwards) {
  bringUp();
  bluetoothd.connect();
  untilLine("connected AA:BB:CC:DD:EE:FF");
  subscribe();
  bluetoothd.script("Disconnect", Answer::hold());
  presence->loseLink(1ms);
  EXPECT_FALSE(presence->carry({0s, Stream::ecg, {1}}));
  untilCall(disconnectCentral);
  untilCall(stopAdvertising);
  // Long after the absence: it has not begun, because the link still exists.
  bool later = false;
  const auto timer = queue.after(50ms, [&] { later = true; });
  until([&] { return later; });
  EXPECT_FALSE(bluetoothd.wasCalled(advertise));
  bluetoothd.disconnect();
  bluetoothd.release();
  untilLine("advertising as \"Zephly\" on hci0");
  EXPECT_TRUE(presence->carry({0s, Stream::ecg, {1}}));
}

TEST_F(StrapPresenceTest, WithoutALinkOnlyStopsAdvertising) {
  bringUp();
  presence->loseLink(1ms);
  untilLine("advertising as \"Zephly\" on hci0");
  EXPECT_THAT(bluetoothd.recordedCalls(), ElementsAre(stopAdvertising, advertise));
}

TEST_F(StrapPresenceTest, ReportsAFailedDisconnectionAndAdvertisesAgain) {
  bringUp();
  bluetoothd.connect();
  untilLine("connected AA:BB:CC:DD:EE:FF");
  bluetoothd.script("Disconnect", Answer::refuse("org.bluez.Error.Failed", "Not today"));
  presence->loseLink(1ms);
  untilLine("advertising as \"Zephly\" on hci0");
  EXPECT_TRUE(hasLine("cannot disconnect dev_AA_BB_CC_DD_EE_FF: Not today"));
}

TEST_F(StrapPresenceTest, ALossDuringAnAbsenceRestartsIt) {
  bringUp();
  presence->loseLink(1h);
  presence->loseLink(1ms);
  untilLine("advertising as \"Zephly\" on hci0");
}

TEST_F(StrapPresenceTest, LeavingUnregistersEverythingAndDisconnects) {
  bringUp();
  bluetoothd.connect();
  untilLine("connected AA:BB:CC:DD:EE:FF");
  presence->leave();
  presence.reset();
  untilCall(disconnectCentral);
  untilCall(unregisterApplication);
  EXPECT_THAT(
      bluetoothd.recordedCalls(),
      testing::UnorderedElementsAre(stopAdvertising, disconnectCentral, unregisterApplication));
}

TEST_F(StrapPresenceTest, DoesNothingAfterLeaving) {
  bringUp();
  presence->leave();
  untilCall(unregisterApplication);
  bluetoothd.forget();
  bluetoothd.power(false);
  bluetoothd.power(true);
  presence->loseLink(0s);
  EXPECT_FALSE(presence->carry({0s, Stream::ecg, {1}}));
  call(ecgPath, "org.freedesktop.DBus.Peer", "Ping");
  EXPECT_THAT(bluetoothd.recordedCalls(), IsEmpty());
}

TEST_F(StrapPresenceTest, SetsTheAliasOnRequestAndRestoresIt) {
  options.setAlias = true;
  options.name = "Zephly 2";
  bluetoothd.addAdapter();
  bluetoothd.start();
  open();
  untilLine("advertising as \"Zephly 2\" on hci0");
  EXPECT_THAT(bluetoothd.recordedCalls(), Contains("hci0 Set org.bluez.Adapter1 Alias Zephly 2"));
  bluetoothd.forget();
  presence->leave();
  untilCall("hci0 Set org.bluez.Adapter1 Alias workstation");
}

TEST_F(StrapPresenceTest, AMissingBusIsFatal) {
  options.bluetooth.busAddress = "unix:path=/nonexistent/bus";
  open();
  until([this] { return !lines.empty(); });
  EXPECT_THAT(lines, ElementsAre(StartsWith("fatal: ")));
}

TEST_F(StrapPresenceTest, ReportsASilentBusAndRetries) {
  client.reset();
  bus.stop();
  options.bluetooth.timing.busLimit = 500ms;
  {
    const SilentBus silent(bus.address().substr(std::string("unix:path=").size()));
    open();
    untilLine("Bluetooth: the system bus does not answer. To look at it: systemctl status dbus");
  }
  bus.start();
  bluetoothd.addAdapter();
  bluetoothd.start();
  untilLine("advertising as \"Zephly\" on hci0");
}

TEST_F(StrapPresenceTest, ReconnectsToARestartedBus) {
  bringUp();
  subscribe();
  untilLine("subscribed ecg");
  bluetoothd.kill();
  client.reset();
  bus.stop();
  untilLine("unsubscribed ecg");
  until([this] { return !presence->isSubscribed(Stream::ecg); });
  bus.start();
  bluetoothd.addAdapter();
  bluetoothd.start();
  untilLine("advertising as \"Zephly\" on hci0");
}

TEST_F(StrapPresenceTest, ReportsAMissingServiceWithInstructions) {
  open();
  until([this] { return !lines.empty(); });
  EXPECT_THAT(lines, ElementsAre(testing::AllOf(
                         StartsWith("Bluetooth: the service org.bluez is not there ("),
                         HasSubstr("sudo apt install bluez; sudo systemctl "
                                   "enable --now bluetooth"))));
}

TEST_F(StrapPresenceTest, ReportsMissingPermissionWithInstructions) {
  bus.stop();
  bus.allow(false);
  client.reset();
  bus.start();
  bluetoothd.addAdapter();
  bluetoothd.start();
  open();
  until([this] { return !lines.empty(); });
  EXPECT_THAT(lines, ElementsAre(testing::AllOf(
                         StartsWith("Bluetooth: this user may not use the service org.bluez ("),
                         HasSubstr("sudo adduser $USER bluetooth"))));
}

TEST_F(StrapPresenceTest, ReportsAnAdapterWithoutThePeripheralRole) {
  bluetoothd.addAdapter("hci0", true, false);
  bluetoothd.start();
  open();
  untilLine(
      "Bluetooth: no adapter that can be a Bluetooth LE peripheral. Plug it in. To list "
      "adapters: bluetoothctl list; kernel messages: dmesg");
}

}  // namespace
