// SPDX-License-Identifier: MIT
#include <tests/hosts/simulated/device_fixture.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using namespace Zephly::simulated;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using GattServerTest = simulated_test::DeviceTest;

// Discovery -----------------------------------------------------------------------------------

TEST_F(GattServerTest, ListsServicesAndCharacteristicsInItsOrder) {
  device.setServices({{serviceB, {{foreign}, {battery}}}, {serviceA, {}}});
  scheduler.advance(1s);
  ASSERT_EQ(recorder().lastServices.size(), 2U);
  EXPECT_EQ(recorder().lastServices[0]->UUID(), serviceB);
  EXPECT_EQ(recorder().lastServices[1]->UUID(), serviceA);
  EXPECT_THAT(recorder().take(),
              ElementsAre("state 5", "connected", "services 2", "characteristics 2",
                          "characteristics 0", "subscribed 00", "subscribed 47"));
}

TEST_F(GattServerTest, AddsTheStrapsProfileInAGivenOrder) {
  device.setServices({});
  addStrapProfile(device);
  EXPECT_THAT(after(1s), ElementsAre("state 5", "connected", "services 1", "characteristics 5",
                                     "subscribed 47", "subscribed 49", "subscribed 45",
                                     "subscribed 48", "subscribed 46"));
  EXPECT_EQ(recorder().lastServices[0]->UUID(), strapServiceUUID());
}

TEST_F(GattServerTest, AddsTheStrapsProfileInAnyOrder) {
  device.setServices({});
  addStrapProfile(device, characteristics());
  scheduler.advance(1s);
  ASSERT_EQ(recorder().lastCharacteristics.size(), 5U);
  for (std::size_t i = 0; i < 5; ++i) {
    EXPECT_EQ(recorder().lastCharacteristics[i]->UUID(), characteristics()[i]);
  }
}

TEST_F(GattServerTest, DescribesACharacteristicInOneLine) {
  device.setServices({{serviceA, {{ecgCharacteristicUUID()}, {foreign, "read, notify"}}}});
  scheduler.advance(1s);
  EXPECT_EQ(recorder().lastCharacteristics[0]->description(),
            "<CBCharacteristic: 46366E80-CF3A-11E1-9AB4-0002A5D5C51B, properties = notify>");
  EXPECT_EQ(recorder().lastCharacteristics[1]->description(),
            "<CBCharacteristic: 00002A37-0000-1000-8000-00805F9B34FB, properties = read, notify>");
}

TEST_F(GattServerTest, DiscoversWithAFilter) {
  device.setServices({{serviceA, {{battery}}}, {serviceB, {{battery}, {foreign}}}});
  recorder().script.discover = false;
  bringUp();
  const auto peripheral = recorder().peripheral_;
  peripheral->discoverServices(std::vector{serviceB});
  scheduler.advance(1s);
  ASSERT_EQ(recorder().lastServices.size(), 1U);
  EXPECT_EQ(recorder().lastServices[0]->UUID(), serviceB);
  peripheral->discoverCharacteristics(std::vector{foreign}, recorder().lastServices[0]);
  scheduler.advance(1s);
  ASSERT_EQ(recorder().lastCharacteristics.size(), 1U);
  EXPECT_EQ(recorder().lastCharacteristics[0]->UUID(), foreign);
}

TEST_F(GattServerTest, ReportsTheSameObjectsAtEveryDiscoveryOfAConnection) {
  bringUp();
  const auto service = recorder().lastServices[0];
  const auto characteristic = recorder().lastCharacteristics[0];
  recorder().peripheral_->discoverServices(std::nullopt);
  EXPECT_THAT(after(1s), ElementsAre("services 1", "characteristics 1", "subscribed 47"));
  EXPECT_EQ(recorder().lastServices[0], service);
  EXPECT_EQ(recorder().lastCharacteristics[0], characteristic);
}

TEST_F(GattServerTest, FailsDiscoveriesWithAnErrorAndAnEmptyList) {
  device.setServiceDiscovery(DiscoveryAnswer::fails("No answer."));
  EXPECT_THAT(after(1s), ElementsAre("state 5", "connected", "services 0: No answer."));
  device.setServiceDiscovery({});
  device.setCharacteristicDiscovery(DiscoveryAnswer::fails("Refused."));
  recorder().peripheral_->discoverServices(std::nullopt);
  EXPECT_THAT(after(1s), ElementsAre("services 1", "characteristics 0: Refused."));
}

TEST_F(GattServerTest, MayReportAnErrorAndAFullList) {
  device.setCharacteristicDiscovery({.error = "Partly."});
  EXPECT_THAT(after(1s), ElementsAre("state 5", "connected", "services 1",
                                     "characteristics 1: Partly.", "subscribed 47"));
}

TEST_F(GattServerTest, MayReportAbsentLists) {
  device.setServiceDiscovery({.list = DiscoveryAnswer::List::absent});
  EXPECT_THAT(after(1s), ElementsAre("state 5", "connected", "services absent"));
  device.setServiceDiscovery({});
  device.setCharacteristicDiscovery(serviceA, {.list = DiscoveryAnswer::List::absent});
  recorder().peripheral_->discoverServices(std::nullopt);
  EXPECT_THAT(after(1s), ElementsAre("services 1", "characteristics absent"));
}

TEST_F(GattServerTest, NeverAnswersOrAnswersLateOrTwice) {
  device.setServiceDiscovery(DiscoveryAnswer::never());
  EXPECT_THAT(after(1h), ElementsAre("state 5", "connected"));
  device.setServiceDiscovery({.latency = 40s, .times = 2});
  recorder().script.discover = false;
  recorder().peripheral_->discoverServices(std::nullopt);
  EXPECT_THAT(after(39s), IsEmpty());
  EXPECT_THAT(after(1s), ElementsAre("services 1", "services 1"));
}

TEST_F(GattServerTest, AnswersForOneServiceOnlyMayDiffer) {
  device.addService({serviceB, {{foreign}}});
  device.setCharacteristicDiscovery(serviceB, DiscoveryAnswer::never());
  EXPECT_THAT(after(1s), ElementsAre("state 5", "connected", "services 2", "characteristics 1",
                                     "subscribed 47"));
}

TEST_F(GattServerTest, ListsAreAbsentUntilTheirDiscoveryHasEnded) {
  recorder().script.discover = false;
  bringUp();
  const auto peripheral = recorder().peripheral_;
  EXPECT_EQ(peripheral->services(), std::nullopt);
  peripheral->discoverServices(std::nullopt);
  EXPECT_EQ(peripheral->services(), std::nullopt);
  scheduler.advance(1s);
  ASSERT_NE(peripheral->services(), std::nullopt);
  EXPECT_EQ(peripheral->services()->front()->characteristics(), std::nullopt);
}

// Subscriptions -------------------------------------------------------------------------------

TEST_F(GattServerTest, RefusesASubscription) {
  device.setSubscription(battery, SubscriptionAnswer::refuses("Not permitted."));
  EXPECT_THAT(after(1s), ElementsAre("state 5", "connected", "services 1", "characteristics 1",
                                     "subscribed 47: Not permitted."));
  EXPECT_FALSE(device.isSubscribed(battery));
  EXPECT_FALSE(device.notify(battery, {1}));
  EXPECT_EQ(device.sent(battery), 0U);
}

TEST_F(GattServerTest, ASilentSubscriptionStartsUnconfirmed) {
  device.setSubscription(SubscriptionAnswer::silent());
  EXPECT_THAT(after(1s), ElementsAre("state 5", "connected", "services 1", "characteristics 1"));
  EXPECT_TRUE(device.notify(battery, {1}));
  EXPECT_THAT(after(0s), ElementsAre("value 47 01"));
}

TEST_F(GattServerTest, DeliversValuesBeforeTheConfirmation) {
  device.setSubscription(SubscriptionAnswer::lateConfirmation(10s));
  scheduler.advance(1s);
  recorder().take();
  EXPECT_TRUE(device.notify(battery, {0x10}));
  EXPECT_THAT(after(10s), ElementsAre("value 47 10", "subscribed 47"));
}

TEST_F(GattServerTest, ASubscriptionConfirmedTwiceDeliversNoDuplicates) {
  device.setSubscription({.times = 2});
  scheduler.advance(1s);
  recorder().take();
  recorder().peripheral_->setNotifyValue(true, recorder().lastCharacteristics[0]);
  EXPECT_THAT(after(1s), ElementsAre("subscribed 47", "subscribed 47"));
  device.notify(battery, {0x10});
  EXPECT_THAT(after(1s), ElementsAre("value 47 10"));
}

TEST_F(GattServerTest, Unsubscribes) {
  bringUp();
  recorder().peripheral_->setNotifyValue(false, recorder().lastCharacteristics[0]);
  EXPECT_TRUE(device.notify(battery, {0x01})) << "until the request takes effect";
  EXPECT_THAT(after(1s), ElementsAre("value 47 01", "subscribed 47"));
  EXPECT_FALSE(device.notify(battery, {0x02}));
}

TEST_F(GattServerTest, NotifiesItsObserverOfEveryStartAndEnd) {
  std::vector<bool> seen;
  device.setSubscriptionObserver(
      [&](const CBUUID& uuid) { seen.push_back(device.isSubscribed(uuid)); });
  bringUp();
  recorder().peripheral_->setNotifyValue(true, recorder().lastCharacteristics[0]);
  recorder().peripheral_->setNotifyValue(false, recorder().lastCharacteristics[0]);
  scheduler.advance(1s);
  EXPECT_THAT(seen, ElementsAre(true, false));
}

// Values --------------------------------------------------------------------------------------

TEST_F(GattServerTest, DeliversEachValueOnceAndInOrder) {
  bringUp();
  device.notify(battery, {0x01});
  device.notify(battery, {});
  device.notifyError(battery, "Unlikely.");
  device.notify(battery, {0x02, 0x03});
  device.notifyAbsent(battery);
  EXPECT_THAT(recorder().log, IsEmpty()) << "nothing comes from inside the call";
  EXPECT_THAT(after(0s), ElementsAre("value 47 01", "value 47 ", "value 47 : Unlikely.",
                                     "value 47 0203", "value 47 absent"));
  EXPECT_EQ(device.sent(battery), 5U);
}

TEST_F(GattServerTest, AcceptsValuesOfAnyLength) {
  bringUp();
  for (const std::size_t length : {0U, 1U, 20U, 512U, 5000U}) {
    device.notify(battery, std::vector<std::uint8_t>(length, 0xAA));
    const auto log = after(0s);
    ASSERT_EQ(log.size(), 1U);
    EXPECT_EQ(log[0].size(), std::string("value 47 ").size() + 2 * length);
  }
}

TEST_F(GattServerTest, DeliversValuesBeforeALossAtTheSameTime) {
  bringUp();
  device.notify(battery, {0x01});
  device.notify(battery, {0x02});
  device.loseLink("Lost.");
  EXPECT_FALSE(device.notify(battery, {0x03}));
  recorder().script = {.scan = false, .connect = false, .reconnect = false};
  EXPECT_THAT(after(1s), ElementsAre("value 47 01", "value 47 02", "disconnected: Lost."));
  EXPECT_EQ(device.sent(battery), 2U);
}

TEST_F(GattServerTest, AValueNotifiedDuringACallbackArrivesLater) {
  bringUp();
  bool inside = false;
  int nested = 0;
  recorder().onValue = [&] {
    EXPECT_FALSE(inside);
    inside = true;
    if (++nested < 4) device.notify(battery, {0x02});
    inside = false;
  };
  device.notify(battery, {0x01});
  EXPECT_EQ(after(0s).size(), 4U);
}

TEST_F(GattServerTest, SendsNothingWithoutConnectionOrSubscription) {
  EXPECT_FALSE(device.notify(battery, {1}));
  recorder().script.subscribe = false;
  bringUp();
  EXPECT_FALSE(device.notify(battery, {1}));
  EXPECT_FALSE(device.notifyError(battery, "x"));
  EXPECT_FALSE(device.notifyAbsent(battery));
  EXPECT_THAT(after(1s), IsEmpty());
  EXPECT_EQ(device.sent(battery), 0U);
}

TEST_F(GattServerTest, AnUnknownCharacteristicIsAnError) {
  EXPECT_THROW(device.notify(foreign, {1}), std::invalid_argument);
}

TEST_F(GattServerTest, SendsOnEveryCharacteristicOfTheIdentifier) {
  device.addService({serviceB, {{battery}}});
  bringUp();
  device.notify(battery, {0x07});
  EXPECT_THAT(after(0s), ElementsAre("value 47 07", "value 47 07"));
  EXPECT_EQ(device.sent(battery), 1U);
}

}  // namespace
