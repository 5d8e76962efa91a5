// What a device is called, and when it is heard.

#include <tests/hosts/bluez/world.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace bluez_test;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

class BluezNames : public BluezTest {
 protected:
  void listen() {
    openSession({.connect = false, .logDiscoveries = true});
    told();
  }
};

TEST_F(BluezNames, TheAdvertisedNameIsTheDevicesName) {
  listen();
  bluez.advertise(strap);
  EXPECT_THAT(told(), Contains("discovered Zephly -60"));
  EXPECT_EQ(recorder().lastAdvertisement.localName, "Zephly");
  EXPECT_EQ(recorder().peripheral_->name(), "Zephly");
}

TEST_F(BluezNames, TheAliasIsNoName) {
  strap.traits.name = std::nullopt;
  listen();
  bluez.advertise(strap);
  EXPECT_THAT(told(), Contains("discovered (none) -60"));
  EXPECT_EQ(recorder().lastAdvertisement.localName, std::nullopt);
}

TEST_F(BluezNames, ANameThatComesLaterIsTold) {
  strap.traits.name = std::nullopt;
  listen();
  bluez.advertise(strap);
  told();
  bluez.gapName(strap, "Zephly");  // from a scan response: nobody is connected
  EXPECT_THAT(told(), Contains("discovered Zephly -60"));
}

TEST_F(BluezNames, ANameFromTheCacheFindsTheStrapAlthoughItAdvertisesNone) {
  listen();
  bluez.show(strap);
  bluez.advertise(strap);
  EXPECT_THAT(told(), Contains("discovered Zephly -60"));
}

TEST_F(BluezNames, TheNameInsideTheDeviceDoesNotReplaceTheAdvertisedOne) {
  bringUp({.reconnect = false});
  bluez.gapName(strap, "Strap 0815");
  settle();
  EXPECT_EQ(recorder().peripheral_->name(), "Zephly");
  bluez.dropLink(strap);
  settle();
  recorder().script = {.connect = false, .logDiscoveries = true};
  recorder().take();
  bluez.advertise(strap);
  EXPECT_THAT(told(), ElementsAre("discovered Zephly -60"));
}

TEST_F(BluezNames, TheNameInsideAStrangerDoesNotMakeItTheStrap) {
  FakeDevice& stranger = bluez.addDevice({.address = "AA:BB:CC:DD:EE:99", .name = std::nullopt});
  listen();
  bluez.advertise(stranger);
  bluez.connectByItself(stranger);
  bluez.gapName(stranger, "Zephly");
  bluez.dropLink(stranger);
  settle();
  recorder().take();
  bluez.advertise(stranger);
  EXPECT_THAT(told(), ElementsAre("discovered (none) -60"));
}

TEST_F(BluezNames, ARenamedStrangerIsHeardUnderItsNewName) {
  listen();
  bluez.advertise(strap);
  bluez.gapName(strap, "Other");
  told();
  bluez.advertise(strap);
  EXPECT_THAT(told(), ElementsAre("discovered Other -60"));
}

TEST_F(BluezNames, RepeatedAdvertisementsAreAllReported) {
  listen();
  for (int i = 0; i < 5; ++i) bluez.advertise(strap);
  told();
  const int before = recorder().discoveries;
  for (int i = 0; i < 5; ++i) bluez.advertise(strap);
  EXPECT_THAT(told(), testing::SizeIs(5));
  EXPECT_EQ(recorder().discoveries, before + 5);
}

TEST_F(BluezNames, TheStrengthIsTheOneOfTheAdvertisement) {
  listen();
  bluez.advertise(strap);
  told();
  strap.rssi = -42;
  bluez.advertise(strap);
  EXPECT_THAT(told(), ElementsAre("discovered Zephly -42"));
}

TEST_F(BluezNames, AnUnknownStrengthIs127) {
  listen();
  bluez.tamper = [](const std::string&, const std::string&, fake_bluez::Properties& all) {
    if (all.contains("RSSI")) all["RSSI"] = "loud";
  };
  bluez.advertise(strap);
  EXPECT_THAT(told(), Contains("discovered Zephly 127"));
}

TEST_F(BluezNames, AnObjectThatWasForgottenComesBackAsTheSamePeripheral) {
  listen();
  bluez.advertise(strap);
  told();
  const auto before = recorder().peripheral_;
  bluez.forget(strap);
  settle();
  bluez.advertise(strap);
  EXPECT_THAT(told(), Contains("discovered Zephly -60"));
  EXPECT_EQ(recorder().peripheral_, before);
}

TEST_F(BluezNames, AnObjectThatWasForgottenMayBeConnectedWhenItIsBack) {
  listen();
  bluez.advertise(strap);
  told();
  bluez.forget(strap);
  settle();
  session->central->connectPeripheral(recorder().peripheral_, std::nullopt);
  EXPECT_THAT(told(), IsEmpty());
  bluez.advertise(strap);
  runUntil([this] { return subscribedToAll(); });
}

TEST_F(BluezNames, WhatIsShownWithoutHavingBeenHeardIsNotDiscovered) {
  listen();
  bluez.tamper = [](const std::string&, const std::string&, fake_bluez::Properties& all) {
    all.erase("RSSI");
  };
  bluez.show(strap);
  EXPECT_THAT(told(), IsEmpty());
}

}  // namespace
