// SPDX-License-Identifier: MIT
#include <hosts/simulated/radio.h>

#include <tests/support/boundary_recorder.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;
using namespace Zephly::simulated;
using boundary::Recorder;
using boundary::Session;
using testing::ElementsAre;
using testing::IsEmpty;

const CBUUID battery = CBUUID::UUIDWithString("47366E80-CF3A-11E1-9AB4-0002A5D5C51B");
const CBUUID serviceA = CBUUID::UUIDWithString("180D");
const CBUUID serviceB = CBUUID::UUIDWithString("180F");

constexpr const char* radioOff = "disconnected: The Bluetooth radio is not powered on.";

class RadioTest : public testing::Test {
 protected:
  Device& addDeviceWithBattery() {
    return radio.addDevice({.name = "Zephly", .services = {{serviceA, {{battery}}}}});
  }

  Scheduler scheduler;
  Radio radio{scheduler};
};

TEST(RadioLifetimeTest, IsTheCurrentHostDuringItsLifetime) {
  Scheduler scheduler;
  EXPECT_EQ(Zephly::Host::current(), nullptr);
  {
    Radio radio(scheduler);
    EXPECT_EQ(Zephly::Host::current(), &radio);
  }
  EXPECT_EQ(Zephly::Host::current(), nullptr);
}

TEST_F(RadioTest, ReportsTheStateOnceAfterTheCreation) {
  Session session({.scan = false});
  EXPECT_THAT(session.recorder->log, IsEmpty());
  EXPECT_EQ(session.central->state(), CBManagerState::unknown);
  scheduler.advance(1h);
  EXPECT_THAT(session.recorder->log, ElementsAre("state 5"));
  EXPECT_EQ(session.central->state(), CBManagerState::poweredOn);
}

TEST(RadioLifetimeTest, StartsInAnyState) {
  for (const auto state : {CBManagerState::unsupported, CBManagerState::unauthorized,
                           CBManagerState::poweredOff, CBManagerState::resetting}) {
    Scheduler scheduler;
    Radio radio(scheduler, state);
    Session session;
    scheduler.advance(0s);
    EXPECT_EQ(session.central->state(), state);
    EXPECT_EQ(session.recorder->log.size(), 1U);
  }
}

TEST_F(RadioTest, ReportsEveryChangeInOrderWithItsState) {
  Session session({.scan = false});
  radio.setState(CBManagerState::poweredOff);
  radio.setState(CBManagerState::resetting);
  radio.setState(CBManagerState::poweredOn);
  radio.setState(CBManagerState::poweredOn);
  scheduler.advance(0s);
  EXPECT_THAT(session.recorder->log, ElementsAre("state 5", "state 4", "state 1", "state 5"));
}

TEST_F(RadioTest, ReportsADeviceAtEachAdvertisement) {
  radio.addDevice({.name = "Zephly", .rssi = -71});
  Session session({.connect = false, .logDiscoveries = true});
  scheduler.advance(0s);
  EXPECT_THAT(session.recorder->take(), ElementsAre("state 5", "discovered Zephly -71"));
  scheduler.advance(99ms);
  EXPECT_THAT(session.recorder->take(), IsEmpty());
  scheduler.advance(1ms);
  EXPECT_THAT(session.recorder->take(), ElementsAre("discovered Zephly -71"));
  scheduler.advance(1s);
  EXPECT_EQ(session.recorder->take().size(), 10U);
}

TEST_F(RadioTest, ReportsNothingWithoutAScan) {
  radio.addDevice({.name = "Zephly"});
  const Session session({.scan = false});
  scheduler.advance(1s);
  EXPECT_EQ(session.recorder->discoveries, 0);
  EXPECT_LE(scheduler.pending(), 0U) << "without a scan advertising schedules nothing";
}

TEST_F(RadioTest, AScanBeforeTheRadioIsOnDoesNothing) {
  radio.addDevice({.name = "Zephly"});
  const Session session({.scan = false});
  session.central->scanForPeripheralsWithServices(std::nullopt, std::nullopt);
  scheduler.advance(1s);
  EXPECT_EQ(session.recorder->discoveries, 0);
}

TEST_F(RadioTest, FiltersByAdvertisedServicesAndAcceptsANewFilter) {
  radio.addDevice({.name = "a", .advertisedServices = {serviceA}});
  radio.addDevice({.name = "b", .advertisedServices = {serviceB}});
  const Session session({.scan = false, .connect = false, .logDiscoveries = true});
  scheduler.advance(0s);
  session.recorder->take();
  session.central->scanForPeripheralsWithServices(std::vector{serviceB}, std::nullopt);
  scheduler.advance(50ms);
  EXPECT_THAT(session.recorder->take(), ElementsAre("discovered b -60"));
  EXPECT_THAT(session.recorder->lastAdvertisement.serviceUUIDs, ElementsAre(serviceB));
  session.central->scanForPeripheralsWithServices(std::vector{serviceA}, std::nullopt);
  scheduler.advance(100ms);
  EXPECT_THAT(session.recorder->take(), ElementsAre("discovered a -60"));
  session.central->scanForPeripheralsWithServices(std::nullopt, std::nullopt);
  scheduler.advance(100ms);
  EXPECT_THAT(session.recorder->take(), ElementsAre("discovered a -60", "discovered b -60"));
}

TEST_F(RadioTest, SwitchingOffEndsTheScanUntilTheNextRequest) {
  radio.addDevice({.name = "Zephly"});
  Session session({.connect = false});
  scheduler.advance(1s);
  session.recorder->script.scan = false;
  radio.setState(CBManagerState::poweredOff);
  const int before = session.recorder->discoveries;
  scheduler.advance(1s);
  radio.setState(CBManagerState::poweredOn);
  scheduler.advance(1s);
  EXPECT_EQ(session.recorder->discoveries, before);
  session.central->scanForPeripheralsWithServices(std::nullopt, std::nullopt);
  scheduler.advance(1s);
  EXPECT_GT(session.recorder->discoveries, before);
}

TEST_F(RadioTest, SwitchingOffReportsTheStateThenOneLoss) {
  Device& device = addDeviceWithBattery();
  Session session;
  scheduler.advance(1s);
  ASSERT_TRUE(device.isSubscribed(battery));
  session.recorder->take();
  device.notify(battery, {0x01});
  radio.setState(CBManagerState::poweredOff);
  EXPECT_FALSE(device.connected());
  EXPECT_FALSE(device.notify(battery, {0x02}));
  scheduler.advance(1min);
  EXPECT_THAT(session.recorder->take(), ElementsAre("value 47 01", "state 4", radioOff));
}

TEST_F(RadioTest, RequestsWhileOffArePendingUntilItIsOn) {
  Device& device = addDeviceWithBattery();
  Session session;
  scheduler.advance(1s);
  radio.setState(CBManagerState::poweredOff);
  scheduler.advance(1h);
  session.recorder->take();
  session.recorder->script.scan = false;
  radio.setState(CBManagerState::poweredOn);
  scheduler.advance(1s);
  EXPECT_THAT(session.recorder->take(), ElementsAre("state 5", "connected", "services 1",
                                                    "characteristics 1", "subscribed 47"));
  EXPECT_EQ(device.connections(), 2U);
}

TEST_F(RadioTest, ResumesPendingRequestsWhenSwitchedOnAgain) {
  Device& device = addDeviceWithBattery();
  device.setConnectBehaviour(ConnectBehaviour::succeeds(10s));
  Session session({.discover = false});
  scheduler.advance(5s);
  session.recorder->script.scan = false;
  radio.setState(CBManagerState::poweredOff);
  scheduler.advance(1h);
  EXPECT_FALSE(device.connected());
  radio.setState(CBManagerState::poweredOn);
  scheduler.advance(9s);
  EXPECT_FALSE(device.connected());
  scheduler.advance(1s);
  EXPECT_THAT(session.recorder->take(), ElementsAre("state 5", "state 4", "state 5", "connected"));
}

TEST_F(RadioTest, SwitchingOffAndOnAtOnceReconnects) {
  Device& device = addDeviceWithBattery();
  Session session({.discover = false});
  scheduler.advance(1s);
  session.recorder->take();
  radio.setState(CBManagerState::poweredOff);
  radio.setState(CBManagerState::poweredOn);
  scheduler.advance(1s);
  EXPECT_THAT(session.recorder->take(), ElementsAre("state 4", radioOff, "state 5", "connected"));
  EXPECT_EQ(device.connections(), 2U);
}

TEST_F(RadioTest, TwoSessionsShareADeviceEachWithItsOwnPeripheral) {
  Device& device = addDeviceWithBattery();
  device.setAdvertisesWhileConnected(true);
  const Session first;
  const Session second;
  scheduler.advance(1s);
  EXPECT_NE(first.recorder->peripheral_, second.recorder->peripheral_);
  first.recorder->take();
  second.recorder->take();
  EXPECT_TRUE(device.notify(battery, {0xAB}));
  scheduler.advance(0s);
  EXPECT_THAT(first.recorder->take(), ElementsAre("value 47 AB"));
  EXPECT_THAT(second.recorder->take(), ElementsAre("value 47 AB"));
  EXPECT_EQ(device.sent(battery), 1U);
}

TEST_F(RadioTest, APeripheralOfAnotherCentralIsNotConnected) {
  Device& device = addDeviceWithBattery();
  const Session first({.connect = false});
  const Session second({.connect = false});
  scheduler.advance(1s);
  second.central->connectPeripheral(first.recorder->peripheral_, std::nullopt);
  second.central->connectPeripheral(nullptr, std::nullopt);
  scheduler.advance(1s);
  EXPECT_EQ(device.connections(), 0U);
}

TEST_F(RadioTest, DestroyingACentralEndsItsLinkScanAndRequests) {
  Device& device = addDeviceWithBattery();
  Device& far = radio.addDevice({.name = "far", .connect = ConnectBehaviour::never()});
  auto session = std::make_unique<Session>();
  scheduler.advance(1s);
  ASSERT_TRUE(device.connected());
  const auto kept = session->recorder;
  const auto peripheral = kept->peripheral_;
  kept->take();
  session.reset();
  EXPECT_FALSE(device.connected());
  far.setConnectBehaviour(ConnectBehaviour::succeeds());
  peripheral->discoverServices(std::nullopt);
  scheduler.advance(1h);
  EXPECT_THAT(kept->take(), IsEmpty());
  EXPECT_EQ(far.connections(), 0U);
  EXPECT_EQ(scheduler.pending(), 0U);
}

TEST_F(RadioTest, SkipsADestroyedDelegate) {
  Device& device = addDeviceWithBattery();
  Session session;
  scheduler.advance(1s);
  session.recorder.reset();
  device.notify(battery, {0x01});
  device.loseLink();
  radio.setState(CBManagerState::poweredOff);
  radio.setState(CBManagerState::poweredOn);
  scheduler.advance(1s);
  EXPECT_FALSE(device.connected()) << "no connection was requested again";
}

TEST_F(RadioTest, SkipsADestroyedPeripheralDelegateAndUsesItsSuccessor) {
  Device& device = addDeviceWithBattery();
  const Session session;
  scheduler.advance(1s);
  session.recorder->take();
  auto other = std::make_shared<Recorder>();
  session.recorder->peripheral_->setDelegate(other);
  device.notify(battery, {0x01});
  scheduler.advance(0s);
  EXPECT_THAT(other->take(), ElementsAre("value 47 01"));
  other.reset();
  device.notify(battery, {0x02});
  scheduler.advance(0s);
  EXPECT_THAT(session.recorder->take(), IsEmpty());
}

TEST(RadioLifetimeTest, ACentralThatOutlivesItIsInert) {
  Scheduler scheduler;
  auto radio = std::make_unique<Radio>(scheduler);
  Device& device = radio->addDevice({.name = "Zephly", .services = {{serviceA, {{battery}}}}});
  const Session session;
  scheduler.advance(1s);
  device.notify(battery, {0x01});
  session.recorder->take();
  radio.reset();
  EXPECT_EQ(session.central->state(), CBManagerState::unsupported);
  session.central->scanForPeripheralsWithServices(std::nullopt, std::nullopt);
  session.central->connectPeripheral(session.recorder->peripheral_, std::nullopt);
  session.recorder->peripheral_->discoverServices(std::nullopt);
  session.recorder->peripheral_->discoverCharacteristics(std::nullopt,
                                                         session.recorder->lastServices.front());
  session.recorder->peripheral_->setNotifyValue(true,
                                                session.recorder->lastCharacteristics.front());
  scheduler.advance(1h);
  EXPECT_THAT(session.recorder->take(), IsEmpty());
  EXPECT_EQ(session.recorder->peripheral_->services(), std::nullopt);
}

TEST(RadioLifetimeTest, MayBeDestroyedDuringAConnectionAttempt) {
  Scheduler scheduler;
  auto radio = std::make_unique<Radio>(scheduler);
  radio->addDevice({.name = "Zephly", .connect = ConnectBehaviour::succeeds(1s)});
  const Session session;
  scheduler.advance(500ms);
  radio.reset();
  scheduler.advance(1h);
  EXPECT_THAT(session.recorder->log, ElementsAre("state 5"));
}

}  // namespace
