// SPDX-License-Identifier: MIT
// The names of devices, and when advertisements are reported.

#include <tests/hosts/bluez/world.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace bluez_test;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

class BluezNamesTest : public BluezTest {
 protected:
  void listen() {
    openSession({.connect = false, .logDiscoveries = true});
    takeEvents();
  }
};

TEST_F(BluezNamesTest, TheAdvertisedNameIsTheDevicesName) {
  listen();
  bluez.advertise(strap);
  EXPECT_THAT(takeEvents(), Contains("discovered Zephly -60"));
  EXPECT_EQ(recorder().lastAdvertisement.localName, "Zephly");
  EXPECT_EQ(recorder().peripheral_->name(), "Zephly");
}

TEST_F(BluezNamesTest, DoesNotUseTheAliasAsTheName) {
  strap.traits.name = std::nullopt;
  listen();
  bluez.advertise(strap);
  EXPECT_THAT(takeEvents(), Contains("discovered (none) -60"));
  EXPECT_EQ(recorder().lastAdvertisement.localName, std::nullopt);
}

TEST_F(BluezNamesTest, ReportsANameThatArrivesLater) {
  strap.traits.name = std::nullopt;
  listen();
  bluez.advertise(strap);
  takeEvents();
  bluez.gapName(strap, "Zephly");  // from a scan response, without a connection
  EXPECT_THAT(takeEvents(), Contains("discovered Zephly -60"));
}

TEST_F(BluezNamesTest, FindsTheStrapByACachedName) {
  listen();
  bluez.show(strap);
  bluez.advertise(strap);
  EXPECT_THAT(takeEvents(), Contains("discovered Zephly -60"));
}

TEST_F(BluezNamesTest, TheGapNameDoesNotReplaceTheAdvertisedName) {
  bringUp({.reconnect = false});
  bluez.gapName(strap, "Strap 0815");
  settle();
  EXPECT_EQ(recorder().peripheral_->name(), "Zephly");
  bluez.dropLink(strap);
  settle();
  recorder().script = {.connect = false, .logDiscoveries = true};
  recorder().take();
  bluez.advertise(strap);
  EXPECT_THAT(takeEvents(), ElementsAre("discovered Zephly -60"));
}

TEST_F(BluezNamesTest, TheGapNameOfAForeignDeviceIsNotItsName) {
  FakeDevice& stranger = bluez.addDevice({.address = "AA:BB:CC:DD:EE:99", .name = std::nullopt});
  listen();
  bluez.advertise(stranger);
  bluez.connectByItself(stranger);
  bluez.gapName(stranger, "Zephly");
  bluez.dropLink(stranger);
  settle();
  recorder().take();
  bluez.advertise(stranger);
  EXPECT_THAT(takeEvents(), ElementsAre("discovered (none) -60"));
}

TEST_F(BluezNamesTest, ReportsARenamedDeviceUnderItsNewName) {
  listen();
  bluez.advertise(strap);
  bluez.gapName(strap, "Other");
  takeEvents();
  bluez.advertise(strap);
  EXPECT_THAT(takeEvents(), ElementsAre("discovered Other -60"));
}

TEST_F(BluezNamesTest, ReportsEveryAdvertisement) {
  listen();
  for (int i = 0; i < 5; ++i) bluez.advertise(strap);
  takeEvents();
  const int before = recorder().discoveries;
  for (int i = 0; i < 5; ++i) bluez.advertise(strap);
  EXPECT_THAT(takeEvents(), testing::SizeIs(5));
  EXPECT_EQ(recorder().discoveries, before + 5);
}

TEST_F(BluezNamesTest, ReportsTheSignalStrengthOfTheAdvertisement) {
  listen();
  bluez.advertise(strap);
  takeEvents();
  strap.rssi = -42;
  bluez.advertise(strap);
  EXPECT_THAT(takeEvents(), ElementsAre("discovered Zephly -42"));
}

TEST_F(BluezNamesTest, ReportsAnUnknownSignalStrengthAs127) {
  listen();
  bluez.tamper = [](const std::string&, const std::string&, fake_bluez::Properties& all) {
    if (all.contains("RSSI")) all["RSSI"] = "loud";
  };
  bluez.advertise(strap);
  EXPECT_THAT(takeEvents(), Contains("discovered Zephly 127"));
}

TEST_F(BluezNamesTest, ARemovedObjectReturnsAsTheSamePeripheral) {
  listen();
  bluez.advertise(strap);
  takeEvents();
  const auto before = recorder().peripheral_;
  bluez.forget(strap);
  settle();
  bluez.advertise(strap);
  EXPECT_THAT(takeEvents(), Contains("discovered Zephly -60"));
  EXPECT_EQ(recorder().peripheral_, before);
}

TEST_F(BluezNamesTest, ARemovedObjectCanBeConnectedWhenItReturns) {
  listen();
  bluez.advertise(strap);
  takeEvents();
  bluez.forget(strap);
  settle();
  session->central->connectPeripheral(recorder().peripheral_, std::nullopt);
  EXPECT_THAT(takeEvents(), IsEmpty());
  bluez.advertise(strap);
  runUntil([this] { return subscribedToAll(); });
}

TEST_F(BluezNamesTest, DoesNotReportCachedDevicesWithoutAnAdvertisement) {
  listen();
  bluez.tamper = [](const std::string&, const std::string&, fake_bluez::Properties& all) {
    all.erase("RSSI");
  };
  bluez.show(strap);
  EXPECT_THAT(takeEvents(), IsEmpty());
}

}  // namespace
