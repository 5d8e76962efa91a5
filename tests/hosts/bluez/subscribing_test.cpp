// SPDX-License-Identifier: MIT
// Subscriptions and values, over signals and over descriptors.

#include <tests/hosts/bluez/world.h>

#include <sys/socket.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <string>
#include <vector>

namespace {

using namespace std::chrono_literals;
using namespace bluez_test;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;
using Zephly::bluez::Notifications;

class BluezSubscribingTest : public BluezTest, public testing::WithParamInterface<Notifications> {
 protected:
  BluezSubscribingTest() {
    auto options = World::options();
    options.notifications = GetParam();
    world.openHost(std::move(options));
  }

  bool descriptors() const { return GetParam() == Notifications::descriptors; }
  const char* method() const { return descriptors() ? "AcquireNotify" : "StartNotify"; }
  int subscriptions() const { return bluez.calls(method()); }
  // The session's object for its characteristic.
  std::shared_ptr<CBCharacteristic> find(const char* shortName) {
    for (const auto& service : recorder().lastServices) {
      const auto all = service->characteristics();
      for (const auto& one : *all) {
        if (Recorder::shortName(*one) == shortName) return one;
      }
    }
    return nullptr;
  }
  std::vector<std::string> reconnect() {
    bluez.dropLink(strap);
    runUntil([this] { return subscribedToAll(); });
    return takeEvents();
  }
};

INSTANTIATE_TEST_SUITE_P(Ways, BluezSubscribingTest,
                         testing::Values(Notifications::signals, Notifications::descriptors),
                         [](const auto& way) {
                           return way.param == Notifications::signals ? "Signals" : "Descriptors";
                         });

TEST_P(BluezSubscribingTest, ValuesArriveOnceAndInOrder) {
  bringUp();
  std::vector<std::string> expected;
  for (std::uint8_t i = 0; i < 100; ++i) {
    ASSERT_TRUE(bluez.notify(strap, ecg, {i}));
    expected.push_back("value 46 " + std::string(1, "0123456789ABCDEF"[i / 16]) +
                       "0123456789ABCDEF"[i % 16]);
  }
  EXPECT_EQ(takeEvents(), expected);
}

TEST_P(BluezSubscribingTest, ValuesOfEveryLengthArriveUnchanged) {
  bringUp();
  for (const std::size_t length : {0U, 1U, 19U, 20U, 512U}) {
    Bytes bytes(length);
    std::iota(bytes.begin(), bytes.end(), std::uint8_t{1});
    std::shared_ptr<const NSData> seen;
    recorder().onValue = [&] { seen = find("49")->value(); };
    ASSERT_TRUE(bluez.notify(strap, motion, bytes)) << length;
    settle();
    ASSERT_NE(seen, nullptr) << length;
    ASSERT_EQ(seen->length(), length);
    Bytes copy(length);
    seen->getBytes(copy.data(), length);
    EXPECT_EQ(copy, bytes);
  }
}

TEST_P(BluezSubscribingTest, DeliversEqualValuesSeparately) {
  bringUp();
  for (int i = 0; i < 3; ++i) bluez.notify(strap, battery, {5});
  EXPECT_THAT(takeEvents(), ElementsAre("value 47 05", "value 47 05", "value 47 05"));
}

TEST_P(BluezSubscribingTest, TheFiveStreamsDoNotMix) {
  bringUp();
  const std::vector<std::string> uuids = {temperature, ecg, battery, respiration, motion};
  for (std::uint8_t i = 0; i < 5; ++i) bluez.notify(strap, uuids[i], {i});
  auto log = takeEvents();
  std::sort(log.begin(), log.end());
  EXPECT_THAT(
      log, ElementsAre("value 45 00", "value 46 01", "value 47 02", "value 48 03", "value 49 04"));
}

TEST_P(BluezSubscribingTest, AllFiveResumeAfterEveryReconnectWithoutDuplicates) {
  bringUp();
  for (int loss = 0; loss < 20; ++loss) {
    reconnect();
    std::vector<std::string> expected;
    for (const char* uuid : {temperature, ecg, battery, respiration, motion}) {
      ASSERT_TRUE(bluez.notify(strap, uuid, {9})) << "loss " << loss;
      expected.push_back("value " + std::string(uuid, 2) + " 09");
    }
    auto log = takeEvents();
    std::sort(log.begin(), log.end());
    ASSERT_EQ(log, expected) << "loss " << loss;
  }
}

TEST_P(BluezSubscribingTest, AnswersASecondSubscriptionWithoutDuplicates) {
  bringUp();
  recorder().peripheral_->setNotifyValue(true, find("46"));
  EXPECT_THAT(takeEvents(), ElementsAre("subscribed 46"));
  bluez.notify(strap, ecg, {1});
  EXPECT_THAT(takeEvents(), ElementsAre("value 46 01"));
}

TEST_P(BluezSubscribingTest, AnswersTwoSimultaneousSubscriptionsWithoutDuplicates) {
  bringUpUnsubscribed();
  recorder().peripheral_->setNotifyValue(true, find("46"));
  recorder().peripheral_->setNotifyValue(true, find("46"));
  EXPECT_THAT(takeEvents(), ElementsAre("subscribed 46", "subscribed 46"));
  ASSERT_TRUE(bluez.notify(strap, ecg, {1}));
  EXPECT_THAT(takeEvents(), ElementsAre("value 46 01"));
}

TEST_P(BluezSubscribingTest, DeliversNothingAfterAnImmediateUnsubscription) {
  bringUpUnsubscribed();
  recorder().peripheral_->setNotifyValue(true, find("46"));
  recorder().peripheral_->setNotifyValue(false, find("46"));
  EXPECT_EQ(takeEvents().size(), 2U) << "one answer each";
  EXPECT_FALSE(bluez.notify(strap, ecg, {1})) << "there is no subscriber";
  EXPECT_THAT(takeEvents(), IsEmpty());
}

TEST_P(BluezSubscribingTest, DeliversNothingWithoutASubscription) {
  bringUp();
  recorder().peripheral_->setNotifyValue(false, find("46"));
  EXPECT_THAT(takeEvents(), ElementsAre("subscribed 46"));
  bluez.emitValue(strap, ecg, {1});
  EXPECT_THAT(takeEvents(), IsEmpty());
  recorder().peripheral_->setNotifyValue(true, find("46"));
  EXPECT_THAT(takeEvents(), ElementsAre("subscribed 46"));
  EXPECT_TRUE(bluez.notify(strap, ecg, {2}));
  EXPECT_THAT(takeEvents(), ElementsAre("value 46 02"));
}

TEST_P(BluezSubscribingTest, ReportsARefusedSubscriptionWithBlueZsText) {
  bluez.script("StartNotify", Answer::refuse("org.bluez.Error.Failed", "Not today"), -1);
  bluez.script("AcquireNotify", Answer::refuse("org.bluez.Error.Failed", "Not today"), -1);
  openSession();
  takeEvents();
  bluez.advertise(strap);
  const auto log = takeEvents();
  EXPECT_THAT(log, Contains("subscribed 46: Not today"));
  EXPECT_EQ(std::count_if(log.begin(), log.end(),
                          [](const auto& line) { return line.rfind("subscribed", 0) == 0; }),
            6)
      << "one answer each";
  bluez.emitValue(strap, ecg, {1});
  EXPECT_THAT(takeEvents(), IsEmpty());
}

TEST_P(BluezSubscribingTest, IgnoresLateRepliesOfAnEarlierConnection) {
  openSession();
  takeEvents();
  bluez.script(method(), Answer::hold(), 5);
  bluez.advertise(strap);
  const auto before = takeEvents();
  EXPECT_THAT(before, Not(Contains(StartsWith("subscribed 4"))));
  bluez.dropLink(strap);
  runUntil([this] { return subscribedToAll(); });
  const auto after = takeEvents();
  EXPECT_EQ(std::count(after.begin(), after.end(), "subscribed 46"), 1);
  // Replies of the previous connection arrive now.
  bluez.release();
  EXPECT_THAT(takeEvents(), IsEmpty());
  bluez.notify(strap, ecg, {1});
  EXPECT_THAT(takeEvents(), ElementsAre("value 46 01"));
}

using BluezSubscribingSignalsTest = BluezTest;

TEST_F(BluezSubscribingSignalsTest, DeliversValuesBeforeTheSubscriptionIsConfirmed) {
  openSession();
  takeEvents();
  bluez.script("StartNotify", Answer::hold(), -1);
  bluez.advertise(strap);
  settle();
  bluez.emitValue(strap, ecg, {1});
  bluez.emitValue(strap, ecg, {2});
  auto log = takeEvents();
  EXPECT_THAT(std::vector<std::string>(log.end() - 2, log.end()),
              ElementsAre("value 46 01", "value 46 02"));
  bluez.release();
  log = takeEvents();
  EXPECT_THAT(log, Contains("subscribed 46"));
  EXPECT_THAT(log, Each(StartsWith("subscribed")));
}

TEST_F(BluezSubscribingSignalsTest, DoesNotDeliverUnrequestedValues) {
  bringUpUnsubscribed();
  bluez.emitValue(strap, ecg, {1});
  EXPECT_THAT(takeEvents(), IsEmpty());
}

TEST_F(BluezSubscribingSignalsTest, ASubscriptionRetainedByBlueZDeliversNoDuplicates) {
  bluez.script("StopNotify", Answer::never(), -1);
  bringUp({.reconnect = false});
  bluez.dropLink(strap);
  takeEvents();
  strap.onConnect = {ConnectStep::connected, ConnectStep::reply, ConnectStep::hold,
                     ConnectStep::resolved};
  bluez.advertise(strap);
  EXPECT_THAT(takeEvents(), ElementsAre("connected"));
  EXPECT_TRUE(bluez.notify(strap, ecg, {1})) << "before StartNotify";
  EXPECT_THAT(takeEvents(), IsEmpty()) << "the session has not subscribed yet";
  bluez.proceed(strap);
  EXPECT_THAT(takeEvents(), Contains("subscribed 46")) << "a repeated StartNotify succeeds";
  bluez.notify(strap, ecg, {2});
  EXPECT_THAT(takeEvents(), ElementsAre("value 46 02"));
}

TEST_F(BluezSubscribingSignalsTest, EndsSubscriptionsThatBlueZWouldRetainWithTheConnection) {
  bringUp({.reconnect = false});
  bluez.dropLink(strap);
  settle();
  EXPECT_EQ(bluez.calls("StopNotify"), 5);
  for (const auto& one : strap.characteristics) EXPECT_THAT(one.subscribers, IsEmpty());
}

TEST_F(BluezSubscribingSignalsTest, RetriesWhenBlueZIsBusy) {
  bluez.script("StartNotify", Answer::refuse("org.bluez.Error.InProgress", "In progress"), 2);
  bringUp();
  bluez.notify(strap, temperature, {1});
  EXPECT_THAT(takeEvents(), ElementsAre("value 45 01"));
}

TEST_F(BluezSubscribingSignalsTest, ReportsAnErrorWhenBlueZStaysBusy) {
  bluez.script("StartNotify", Answer::refuse("org.bluez.Error.InProgress", "In progress"), -1);
  openSession();
  bluez.advertise(strap);
  runUntil([this] {
    const auto& log = recorder().log;
    return std::count(log.begin(), log.end(), "subscribed 49: In progress") > 0;
  });
}

TEST_F(BluezSubscribingSignalsTest, ReportsAMultiLineRefusalAsOneLine) {
  bluez.script("StartNotify", Answer::refuse("org.bluez.Error.Failed", "Not\npermitted.\n"), -1);
  openSession();
  bluez.advertise(strap);
  runUntil([this] {
    const auto& log = recorder().log;
    return std::count(log.begin(), log.end(), "subscribed 49: Not permitted.") > 0;
  });
}

class BluezSubscribingDescriptorsTest : public BluezTest {
 protected:
  BluezSubscribingDescriptorsTest() {
    auto options = World::options();
    options.notifications = Notifications::descriptors;
    world.openHost(std::move(options));
  }
};

TEST_F(BluezSubscribingDescriptorsTest, FallsBackToSignalsWithoutADescriptor) {
  bluez.script("AcquireNotify",
               Answer::refuse("org.bluez.Error.InProgress", "Operation already in progress"), 1);
  bringUp();
  EXPECT_EQ(bluez.calls("StartNotify"), 2) << "and for the foreign one, which has neither";
  bluez.notify(strap, temperature, {1});
  bluez.notify(strap, ecg, {2});
  auto log = takeEvents();
  std::sort(log.begin(), log.end());
  EXPECT_THAT(log, ElementsAre("value 45 01", "value 46 02"));
}

TEST_F(BluezSubscribingDescriptorsTest, IgnoresAReplyWithoutADescriptor) {
  bluez.script("AcquireNotify", Answer::wrong([](sd_bus_message& message) {
                 append(message, std::string("here you are"));
               }),
               1);
  openSession();
  takeEvents();
  bluez.advertise(strap);
  const auto log = takeEvents();
  EXPECT_THAT(log, Contains("subscribed 45: Notify acquired"));
}

TEST_F(BluezSubscribingDescriptorsTest, DeliversValuesInTheDescriptorBeforeTheEnd) {
  bringUp({.reconnect = false});
  for (std::uint8_t i = 0; i < 3; ++i) bluez.notify(strap, ecg, {i});
  bluez.dropLink(strap);
  EXPECT_THAT(takeEvents(),
              ElementsAre("value 46 00", "value 46 01", "value 46 02", StartsWith("disconnected")));
}

TEST_F(BluezSubscribingDescriptorsTest, DeliversUnreadValuesInTheDescriptorBeforeTheEnd) {
  bringUp({.reconnect = false});
  const auto ours = std::move(FakeBluez::characteristic(strap, ecg)->descriptor);
  bluez.dropLink(strap);
  world.bus.reload();  // a round trip: the host has received the end
  for (const char value : {'\1', '\2'}) ASSERT_EQ(send(ours.get(), &value, 1, MSG_DONTWAIT), 1);
  EXPECT_THAT(takeEvents(), ElementsAre("value 46 01", "value 46 02", StartsWith("disconnected")));
}

TEST_F(BluezSubscribingDescriptorsTest, AcceptsADescriptorThatClosesBeforeTheLink) {
  bringUp({.reconnect = false});
  FakeBluez::characteristic(strap, ecg)->descriptor = {};
  EXPECT_THAT(takeEvents(), IsEmpty());
  bluez.notify(strap, motion, {1});
  EXPECT_THAT(takeEvents(), ElementsAre("value 49 01"));
  bluez.dropLink(strap);
  EXPECT_THAT(takeEvents(), ElementsAre(StartsWith("disconnected")));
}

}  // namespace
