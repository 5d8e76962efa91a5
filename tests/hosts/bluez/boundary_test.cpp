// SPDX-License-Identifier: MIT
// The contract of the host boundary, tested on this host.

#include <tests/hosts/bluez/world.h>
#include <zephly/ble/gatt_profile.h>
#include <zephly/platform/core_bluetooth.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace {

using namespace bluez_test;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

class BluezBoundaryTest : public BluezTest {
 protected:
  std::shared_ptr<CBService> firstService() { return recorder().lastServices.front(); }
};

// Central.

TEST_F(BluezBoundaryTest, ReportsTheStateToEachCentralAfterItsCreation) {
  openSession();
  EXPECT_THAT(takeEvents(), ElementsAre("state 5"));
  const Session second;
  EXPECT_THAT(second.recorder->log, IsEmpty()) << "not from inside init";
  settle();
  EXPECT_EQ(second.recorder->log.front(), "state 5");
}

TEST_F(BluezBoundaryTest, DoesNotReportAnUnchangedState) {
  openSession();
  takeEvents();
  bluez.emitChanged("/org/bluez/hci0", "org.bluez.Adapter1", {{"Powered", true}});
  EXPECT_THAT(takeEvents(), IsEmpty());
}

TEST_F(BluezBoundaryTest, IsTheCurrentHostDuringItsLifetime) {
  EXPECT_EQ(Zephly::Host::current(), world.host.get());
  world.host.reset();
  EXPECT_EQ(Zephly::Host::current(), nullptr);
}

TEST_F(BluezBoundaryTest, ACentralThatOutlivesTheHostHasNoRadio) {
  bringUp();
  const auto central = session->central;
  const auto peripheral = recorder().peripheral_;
  world.host.reset();
  EXPECT_EQ(central->state(), CBManagerState::unsupported);
  central->scanForPeripheralsWithServices(std::nullopt, std::nullopt);
  central->connectPeripheral(peripheral, std::nullopt);
  peripheral->discoverServices(std::nullopt);
  peripheral->setNotifyValue(true, recorder().lastCharacteristics.front());
  bluez.emitValue(strap, ecg, {1});
  EXPECT_THAT(takeEvents(), IsEmpty());
}

TEST_F(BluezBoundaryTest, AFilterReportsOnlyDevicesThatAdvertiseOneOfTheServices) {
  const CBUUID heartRate = CBUUID::UUIDWithString("180D");
  openSession({.connect = false, .logDiscoveries = true});
  recorder().script.scan = false;
  session->central->scanForPeripheralsWithServices(std::vector<CBUUID>{heartRate}, std::nullopt);
  takeEvents();
  bluez.advertise(strap);
  EXPECT_THAT(takeEvents(), IsEmpty());
  bluez.tamper = [&](const std::string&, const std::string&, fake_bluez::Properties& all) {
    if (all.contains("RSSI")) {
      all["UUIDs"] = std::vector<std::string>{"0000180d-0000-1000-8000-00805f9b34fb"};
    }
  };
  bluez.advertise(strap);
  EXPECT_THAT(takeEvents(), ElementsAre("discovered Zephly -60"));
  EXPECT_THAT(recorder().lastAdvertisement.serviceUUIDs, ElementsAre(heartRate));
}

TEST_F(BluezBoundaryTest, NeverCallsBackFromWithinACall) {
  openSession({.connect = false});
  bluez.advertise(strap);
  takeEvents();
  session->central->connectPeripheral(recorder().peripheral_, std::nullopt);
  EXPECT_THAT(recorder().log, IsEmpty());
  EXPECT_THAT(takeEvents(), Contains("connected"));
  recorder().peripheral_->discoverServices(std::nullopt);
  recorder().peripheral_->discoverCharacteristics(std::nullopt, firstService());
  recorder().peripheral_->setNotifyValue(true, recorder().lastCharacteristics.front());
  EXPECT_THAT(recorder().log, IsEmpty());
}

TEST_F(BluezBoundaryTest, ASecondRequestChangesNothing) {
  openSession({.connect = false});
  bluez.advertise(strap);
  takeEvents();
  for (int i = 0; i < 3; ++i) {
    session->central->connectPeripheral(recorder().peripheral_, std::nullopt);
  }
  auto log = takeEvents();
  EXPECT_EQ(std::count(log.begin(), log.end(), "connected"), 1);
  session->central->connectPeripheral(recorder().peripheral_, std::nullopt);
  EXPECT_THAT(takeEvents(), IsEmpty());
  EXPECT_EQ(bluez.calls("Connect"), 1);
}

TEST_F(BluezBoundaryTest, APeripheralOfAnotherCentralIsNotConnected) {
  openSession({.connect = false});
  bluez.advertise(strap);
  takeEvents();
  const Session other({.scan = false});
  settle();
  other.central->connectPeripheral(recorder().peripheral_, std::nullopt);
  settle();
  EXPECT_EQ(bluez.calls("Connect"), 0);
}

TEST_F(BluezBoundaryTest, DropsEventsOfADestroyedDelegate) {
  bringUp();
  recorder().peripheralDelegate.reset();
  const auto keeper = recorder().peripheral_;
  session->recorder.reset();
  bluez.notify(strap, ecg, {1});
  bluez.dropLink(strap);
  settle();
  EXPECT_FALSE(strap.connected) << "the connection was not requested again";
}

TEST_F(BluezBoundaryTest, TwoDevicesOfOneNameAreTwoPeripherals) {
  FakeDevice& second = bluez.addDevice({.address = "AA:BB:CC:DD:EE:02"});
  openSession();
  bluez.advertise(strap);
  bluez.advertise(second);
  settle();
  EXPECT_TRUE(strap.connected && second.connected);
  const auto log = takeEvents();
  EXPECT_EQ(std::count(log.begin(), log.end(), "connected"), 2);
}

// Peripheral.

TEST_F(BluezBoundaryTest, OneDeviceIsOnePeripheralOverReconnects) {
  bringUp();
  const auto before = recorder().peripheral_;
  bluez.dropLink(strap);
  runUntil([this] { return subscribedToAll(); });
  EXPECT_EQ(recorder().peripheral_, before);
}

TEST_F(BluezBoundaryTest, ADiscoveryIsAnsweredOncePerCallWithTheSameObjects) {
  bringUp({.discover = true});
  const auto services = recorder().lastServices;
  const auto list = services[1]->characteristics();
  recorder().script.subscribe = false;
  recorder().peripheral_->discoverServices(std::nullopt);
  recorder().peripheral_->discoverServices(std::nullopt);
  // Each discovery is a call to the daemon, and the answers may arrive together or one by one.
  EXPECT_THAT(takeEvents(), testing::UnorderedElementsAre(
                                "services 2", "services 2", "characteristics 3",
                                "characteristics 3", "characteristics 3", "characteristics 3"));
  EXPECT_EQ(recorder().lastServices, services);
  EXPECT_EQ(services[1]->characteristics(), list);
}

TEST_F(BluezBoundaryTest, ALinkLostDuringACallbackGivesNoFurtherAnswers) {
  strap.onConnect = {ConnectStep::connected, ConnectStep::reply, ConnectStep::hold,
                     ConnectStep::objects, ConnectStep::resolved};
  openSession({.discover = false});
  bluez.advertise(strap);
  ASSERT_THAT(takeEvents(), Contains("connected"));
  recorder().peripheral_->discoverServices(std::nullopt);
  recorder().peripheral_->discoverServices(std::nullopt);
  recorder().onServices = [this] { session->central.reset(); };
  bluez.proceed(strap);
  EXPECT_THAT(takeEvents(), ElementsAre("services 2"));
  EXPECT_FALSE(strap.connected);
}

TEST_F(BluezBoundaryTest, ServicesAndCharacteristicsAreInTheOrderOfTheDevice) {
  bringUp();
  EXPECT_EQ(recorder().lastServices[0]->UUID(),
            CBUUID::UUIDWithString("45366e70-cf3a-11e1-9ab4-0002a5d5c51b"));
  std::vector<std::string> names;
  for (const auto& service : recorder().lastServices) {
    const auto list = service->characteristics();
    for (const auto& one : *list) names.push_back(Recorder::shortName(*one));
  }
  EXPECT_THAT(names, ElementsAre("45", "46", "47", "48", "49", "00"));
}

TEST_F(BluezBoundaryTest, AFilteredDiscoveryFindsTheRequestedServices) {
  bringUp();
  recorder().script.discover = false;
  recorder().script.subscribe = false;
  recorder().peripheral_->discoverServices(
      std::vector<CBUUID>{CBUUID::UUIDWithString("48366e70-cf3a-11e1-9ab4-0002a5d5c51b")});
  EXPECT_THAT(takeEvents(), ElementsAre("services 1"));
  recorder().peripheral_->discoverCharacteristics(std::vector<CBUUID>{motionCharacteristicUUID()},
                                                  firstService());
  EXPECT_THAT(takeEvents(), ElementsAre("characteristics 1"));
  recorder().peripheral_->discoverCharacteristics(std::vector<CBUUID>{ecgCharacteristicUUID()},
                                                  firstService());
  EXPECT_THAT(takeEvents(), ElementsAre("characteristics 0"));
}

TEST_F(BluezBoundaryTest, ListsAreAbsentUntilADiscoveryHasEnded) {
  openSession({.discover = false});
  bluez.advertise(strap);
  takeEvents();
  EXPECT_FALSE(recorder().peripheral_->services().has_value());
  recorder().peripheral_->discoverServices(std::nullopt);
  settle();
  ASSERT_TRUE(recorder().peripheral_->services().has_value());
  EXPECT_FALSE(recorder().peripheral_->services()->front()->characteristics().has_value());
}

TEST_F(BluezBoundaryTest, AnswersNothingWithoutAConnection) {
  bringUp({.reconnect = false});
  const auto service = firstService();
  const auto characteristic = recorder().lastCharacteristics.front();
  bluez.dropLink(strap);
  takeEvents();
  const int calls = bluez.calls("StartNotify");
  recorder().peripheral_->discoverServices(std::nullopt);
  recorder().peripheral_->discoverCharacteristics(std::nullopt, service);
  recorder().peripheral_->setNotifyValue(true, characteristic);
  EXPECT_THAT(takeEvents(), IsEmpty());
  EXPECT_EQ(bluez.calls("StartNotify"), calls);
}

TEST_F(BluezBoundaryTest, ObjectsOfAnEarlierConnectionAreHarmless) {
  bringUp();
  const auto service = firstService();
  const auto characteristic = (*service->characteristics())[1];
  bluez.dropLink(strap);
  runUntil([this] { return subscribedToAll(); });
  takeEvents();
  recorder().peripheral_->discoverCharacteristics(std::nullopt, service);
  recorder().peripheral_->setNotifyValue(false, characteristic);
  EXPECT_THAT(takeEvents(), IsEmpty());
  bluez.notify(strap, ecg, {1});
  EXPECT_THAT(takeEvents(), ElementsAre("value 46 01"));
}

TEST_F(BluezBoundaryTest, TheValueDuringACallbackIsTheNotifiedOne) {
  bringUp();
  const auto characteristic = (*firstService()->characteristics())[1];
  std::vector<std::string> seen;
  recorder().onValue = [&] { seen.push_back(boundary::hex(characteristic->value())); };
  EXPECT_EQ(characteristic->value(), nullptr);
  bluez.notify(strap, ecg, {1});
  bluez.notify(strap, ecg, {2});
  settle();
  EXPECT_THAT(seen, ElementsAre("01", "02"));
}

TEST_F(BluezBoundaryTest, ANewDelegateReplacesThePreviousOneImmediately) {
  bringUp();
  const auto other = std::make_shared<Recorder>();
  other->script.subscribe = false;
  bluez.notify(strap, ecg, {1});
  recorder().peripheral_->setDelegate(other);
  settle();
  EXPECT_THAT(recorder().log, IsEmpty());
  EXPECT_THAT(other->log, ElementsAre("value 46 01"));
}

TEST_F(BluezBoundaryTest, ADescriptionIdentifiesTheCharacteristic) {
  bringUp();
  EXPECT_EQ(recorder().lastCharacteristics.front()->description(),
            "<CBCharacteristic: 48366E80-CF3A-11E1-9AB4-0002A5D5C51B, properties = notify>");
}

TEST_F(BluezBoundaryTest, ADelegateMayReleaseEverythingDuringItsCalls) {
  bringUp();
  recorder().onValue = [this] {
    world.host.reset();
    session->central.reset();
  };
  bluez.notify(strap, ecg, {1});
  bluez.notify(strap, ecg, {2});
  EXPECT_THAT(takeEvents(), ElementsAre("value 46 01"));
  EXPECT_FALSE(strap.connected) << "released";
}

}  // namespace
