// SPDX-License-Identifier: MIT
#include <tests/hosts/simulated/device_fixture.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <optional>

namespace {

using namespace Zephly::simulated;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using LinkTest = simulated_test::DeviceTest;

TEST_F(LinkTest, LateAnswersOfAnEndedConnectionAreNeverDelivered) {
  device.setServiceDiscovery({.latency = 1s});
  recorder().script.reconnect = true;
  scheduler.advance(500ms);
  device.loseLink();
  device.setServiceDiscovery(DiscoveryAnswer::never());
  EXPECT_THAT(after(1h), ElementsAre("state 5", "connected", "disconnected", "connected"));
}

TEST_F(LinkTest, LateSubscriptionsOfAnEndedConnectionDoNotStart) {
  device.setSubscription({.latency = 1s});
  scheduler.advance(500ms);
  device.setServiceDiscovery(DiscoveryAnswer::never());
  device.loseLink();
  scheduler.advance(1h);
  EXPECT_TRUE(device.connected());
  EXPECT_FALSE(device.isSubscribed(battery));
}

TEST_F(LinkTest, ObjectsOfAnEarlierConnectionAreHarmless) {
  bringUp();
  const auto service = recorder().lastServices[0];
  const auto characteristic = recorder().lastCharacteristics[0];
  const auto peripheral = recorder().peripheral_;
  recorder().script.discover = false;
  device.loseLink();
  EXPECT_THAT(after(1s), ElementsAre("disconnected", "connected"));
  peripheral->discoverCharacteristics(std::nullopt, service);
  peripheral->setNotifyValue(true, characteristic);
  peripheral->discoverCharacteristics(std::nullopt, nullptr);
  peripheral->setNotifyValue(true, nullptr);
  EXPECT_THAT(after(1s), IsEmpty());
  EXPECT_FALSE(device.isSubscribed(battery));
  EXPECT_EQ(characteristic->UUID(), battery);
  EXPECT_EQ(service->UUID(), serviceA);
}

TEST_F(LinkTest, AnswersNothingWithoutAConnection) {
  bringUp();
  recorder().script = {.scan = false, .connect = false, .reconnect = false};
  device.loseLink();
  after(1s);
  const auto peripheral = recorder().peripheral_;
  peripheral->discoverServices(std::nullopt);
  peripheral->discoverCharacteristics(std::nullopt, recorder().lastServices[0]);
  peripheral->setNotifyValue(true, recorder().lastCharacteristics[0]);
  EXPECT_THAT(after(1h), IsEmpty());
  EXPECT_EQ(peripheral->services(), std::nullopt);
}

TEST_F(LinkTest, EveryConnectionHasNewObjectsAndNoSubscriptions) {
  bringUp();
  const auto characteristic = recorder().lastCharacteristics[0];
  recorder().script.subscribe = false;
  device.loseLink();
  scheduler.advance(1s);
  EXPECT_NE(recorder().lastCharacteristics[0], characteristic);
  EXPECT_EQ(recorder().lastCharacteristics[0]->value(), nullptr);
  EXPECT_FALSE(device.isSubscribed(battery));
}

TEST_F(LinkTest, NewServicesAreFoundByTheNextDiscovery) {
  bringUp();
  device.setServices({{serviceB, {{foreign}}}});
  EXPECT_TRUE(device.isSubscribed(battery)) << "the subscription remains";
  recorder().peripheral_->discoverServices(std::nullopt);
  scheduler.advance(1s);
  EXPECT_EQ(recorder().lastServices[0]->UUID(), serviceB);
}

}  // namespace
