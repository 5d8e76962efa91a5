// SPDX-License-Identifier: MIT
#include <tests/hosts/simulated/device_fixture.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <optional>
#include <stdexcept>
#include <string>

namespace {

using namespace Zephly::simulated;
using namespace std::chrono_literals;
using simulated_test::DeviceTest;
using testing::ElementsAre;
using testing::IsEmpty;

// Advertising ---------------------------------------------------------------------------------

class AdvertisingTest : public DeviceTest {
 protected:
  AdvertisingTest() { recorder().script = {.connect = false, .logDiscoveries = true}; }
};

TEST_F(AdvertisingTest, ANameMayBeMissingOrAnyBytes) {
  device.setName(std::nullopt);
  EXPECT_THAT(after(0s), ElementsAre("state 5", "discovered (none) -60"));
  const std::string odd("\0\xFF Zephly\n", 10);
  device.setName(odd);
  scheduler.advance(100ms);
  EXPECT_EQ(recorder().peripheral_->name(), odd);
  EXPECT_EQ(recorder().lastAdvertisement.localName, odd);
}

TEST_F(AdvertisingTest, ANewNameAppliesFromTheNextAdvertisement) {
  scheduler.advance(0s);
  device.setName("other");
  EXPECT_EQ(recorder().peripheral_->name(), "Zephly");
  scheduler.advance(100ms);
  EXPECT_EQ(recorder().peripheral_->name(), "other");
}

TEST_F(AdvertisingTest, ThePeripheralIsTheSameObjectAtEachReport) {
  scheduler.advance(0s);
  const auto first = recorder().peripheral_;
  scheduler.advance(1s);
  EXPECT_EQ(recorder().peripheral_, first);
}

TEST_F(AdvertisingTest, IsNotReportedOutOfRangeAndReportedImmediatelyOnReturn) {
  scheduler.advance(0s);
  device.setInRange(false);
  EXPECT_FALSE(device.inRange());
  recorder().take();
  EXPECT_THAT(after(1min), IsEmpty());
  device.setRssi(-90);
  device.setInRange(true);
  EXPECT_THAT(after(0s), ElementsAre("discovered Zephly -90"));
}

TEST_F(AdvertisingTest, HasItsInterval) {
  device.setInRange(false);
  radio.addDevice({.name = "slow", .advertisingInterval = 1s});
  EXPECT_THAT(after(2500ms), ElementsAre("state 5", "discovered slow -60", "discovered slow -60",
                                         "discovered slow -60"));
  EXPECT_THROW(radio.addDevice({.advertisingInterval = 0s}), std::invalid_argument);
}

TEST_F(AdvertisingTest, KeepsItsIntervalWithoutAScan) {
  recorder().script.scan = false;
  scheduler.advance(250ms);
  session.central->scanForPeripheralsWithServices(std::nullopt, std::nullopt);
  recorder().take();
  EXPECT_THAT(after(49ms), IsEmpty());
  EXPECT_THAT(after(1ms), ElementsAre("discovered Zephly -60"));
}

TEST_F(DeviceTest, IsSilentWhileConnectedByDefault) {
  bringUp();
  const int before = recorder().discoveries;
  scheduler.advance(1s);
  EXPECT_EQ(recorder().discoveries, before);
  device.setAdvertisesWhileConnected(true);
  scheduler.advance(1s);
  EXPECT_EQ(recorder().discoveries, before + 11);
}

// Connecting ----------------------------------------------------------------------------------

TEST_F(DeviceTest, ConnectsAfterItsLatency) {
  device.setConnectBehaviour(ConnectBehaviour::succeeds(2s));
  EXPECT_THAT(after(1999ms), ElementsAre("state 5"));
  recorder().script.discover = false;
  EXPECT_THAT(after(1ms), ElementsAre("connected"));
}

TEST_F(DeviceTest, ALatencyOfZeroStillAnswersLater) {
  recorder().script.connect = false;
  scheduler.advance(0s);
  device.setConnectBehaviour(ConnectBehaviour::succeeds(0s));
  recorder().take();
  session.central->connectPeripheral(recorder().peripheral_, std::nullopt);
  EXPECT_THAT(recorder().log, IsEmpty());
  EXPECT_THAT(after(0s), ElementsAre("connected"));
}

TEST_F(DeviceTest, FailsWithTheGivenErrorAndEndsTheRequest) {
  device.setConnectBehaviour(ConnectBehaviour::fails("Peer is busy.", 30ms));
  recorder().script.connect = false;
  scheduler.advance(0s);
  recorder().take();
  session.central->connectPeripheral(recorder().peripheral_, std::nullopt);
  EXPECT_THAT(after(1h), ElementsAre("failed: Peer is busy."));
}

TEST_F(DeviceTest, ScriptsTheNextAttempts) {
  device.nextConnects(2, ConnectBehaviour::fails("first"));
  device.nextConnects(1, ConnectBehaviour::fails("then"));
  recorder().script.discover = false;
  EXPECT_THAT(after(1s), ElementsAre("state 5", "failed: first", "failed: first", "failed: then",
                                     "connected"));
}

TEST_F(DeviceTest, AnAttemptThatNeverCompletesIsNeitherRepeatedNorAnswered) {
  device.setConnectBehaviour(ConnectBehaviour::never());
  EXPECT_THAT(after(1h), ElementsAre("state 5"));
  EXPECT_GT(recorder().discoveries, 10000) << "each discovery asked again";
}

TEST_F(DeviceTest, AnAttemptThatNeverCompletesRestartsWhenTheBehaviourChanges) {
  recorder().script.discover = false;
  device.setConnectBehaviour(ConnectBehaviour::never());
  after(1min);
  device.setConnectBehaviour(ConnectBehaviour::succeeds(1s));
  EXPECT_THAT(after(999ms), IsEmpty());
  EXPECT_THAT(after(1ms), ElementsAre("connected"));
}

TEST_F(DeviceTest, RepeatedRequestsAreNotAnswered) {
  recorder().script = {.connect = false, .discover = false};
  scheduler.advance(0s);
  recorder().take();
  const auto peripheral = recorder().peripheral_;
  for (int i = 0; i < 3; ++i) session.central->connectPeripheral(peripheral, std::nullopt);
  EXPECT_THAT(after(1s), ElementsAre("connected"));
  session.central->connectPeripheral(peripheral, std::nullopt);
  EXPECT_THAT(after(1h), IsEmpty());
  EXPECT_EQ(device.connections(), 1U);
}

TEST_F(DeviceTest, KeepsARequestPendingWhileTheDeviceIsAway) {
  bringUp();
  device.setInRange(false);
  EXPECT_THAT(after(10h), ElementsAre("disconnected: The connection has timed out unexpectedly."));
  recorder().script.discover = false;
  device.setInRange(true);
  EXPECT_THAT(after(1s), ElementsAre("connected"));
}

TEST_F(DeviceTest, GoingAwayInterruptsAnAttempt) {
  recorder().script.discover = false;
  device.setConnectBehaviour(ConnectBehaviour::succeeds(10s));
  scheduler.advance(9s);
  device.setInRange(false);
  scheduler.advance(9s);
  device.setInRange(true);
  recorder().take();
  EXPECT_THAT(after(9s), IsEmpty());
  EXPECT_THAT(after(1s), ElementsAre("connected"));
}

TEST_F(DeviceTest, ReportsALossWithOrWithoutAnErrorOnce) {
  bringUp();
  recorder().script.reconnect = false;
  recorder().script.connect = false;
  device.loseLink();
  device.loseLink("not a second time");
  EXPECT_THAT(recorder().log, IsEmpty());
  EXPECT_THAT(after(1s), ElementsAre("disconnected"));
  recorder().script.connect = true;
  bringUp();
  device.loseLink("Lost.");
  EXPECT_THAT(after(0s), ElementsAre("disconnected: Lost."));
  recorder().script.connect = false;
  device.loseLink("without a link");
  EXPECT_THAT(after(0s), IsEmpty());
}

TEST_F(DeviceTest, IgnoresARequestDuringTheLoss) {
  bringUp();
  recorder().script = {.scan = false, .connect = false, .reconnect = false};
  device.loseLink();
  session.central->connectPeripheral(recorder().peripheral_, std::nullopt);
  EXPECT_THAT(after(1s), ElementsAre("disconnected"));
}

}  // namespace
