// SPDX-License-Identifier: MIT
#include <zephly/ble/zephly_peripheral.h>

#include <hosts/foundation/data.h>
#include <hosts/foundation/error.h>
#include <tests/support/captured_output.h>
#include <tests/support/fake_bluetooth.h>
#include <tests/support/leaving.h>
#include <tests/support/recorded_events.h>
#include <zephly/ble/gatt_profile.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <ios>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Zephly::hosts::Data;
using Zephly::hosts::Error;

class ZephlyPeripheralTest : public testing::Test {
 protected:
  std::shared_ptr<fake::Characteristic> characteristic(const CBUUID& uuid,
                                                       std::vector<std::uint8_t> bytes = {}) {
    auto created = std::make_shared<fake::Characteristic>(uuid);
    created->setValue(Data::of(std::move(bytes)));
    return created;
  }

  void deliver(const CBUUID& uuid, std::vector<std::uint8_t> bytes) {
    handler->peripheralDidUpdateValueForCharacteristic(
        peripheral, characteristic(uuid, std::move(bytes)), fake::noError);
  }

  fake::Log asked;
  recorded::Log calls;
  CapturedOutput output;
  std::shared_ptr<fake::Peripheral> peripheral =
      std::make_shared<fake::Peripheral>(asked, "Zephly");
  std::shared_ptr<recorded::PeripheralDelegate> delegate =
      std::make_shared<recorded::PeripheralDelegate>(calls);
  std::shared_ptr<ZephlyPeripheral> handler = ZephlyPeripheral::init(delegate);
};

using ZephlyPeripheralDeathTest = ZephlyPeripheralTest;

// Service discovery.

TEST_F(ZephlyPeripheralTest, DiscoversTheCharacteristicsOfEachServiceInOrder) {
  peripheral->list = {{std::make_shared<fake::Service>("0003"),
                       std::make_shared<fake::Service>("0001"),
                       std::make_shared<fake::Service>("0002")}};
  handler->peripheralDidDiscoverServices(peripheral, fake::noError);
  EXPECT_THAT(asked, ElementsAre("discoverCharacteristics 0003", "discoverCharacteristics 0001",
                                 "discoverCharacteristics 0002"));
}

TEST_F(ZephlyPeripheralTest, IgnoresAnErrorOfServiceDiscoveryEntirely) {
  peripheral->list = {{std::make_shared<fake::Service>("0001")}};
  handler->peripheralDidDiscoverServices(peripheral, Error::of("no luck"));
  EXPECT_THAT(asked, ElementsAre("discoverCharacteristics 0001"));
  EXPECT_EQ(output.text(), "");
}

TEST_F(ZephlyPeripheralTest, HandlesEveryAnswerOfServices) {
  peripheral->list = {{std::make_shared<fake::Service>("0001")}};
  handler->peripheralDidDiscoverServices(peripheral, fake::noError);
  peripheral->list->push_back(std::make_shared<fake::Service>("0002"));
  handler->peripheralDidDiscoverServices(peripheral, fake::noError);
  EXPECT_THAT(asked, ElementsAre("discoverCharacteristics 0001", "discoverCharacteristics 0001",
                                 "discoverCharacteristics 0002"));
}

TEST_F(ZephlyPeripheralTest, DiscoversNothingWithoutServices) {
  peripheral->list.emplace();
  handler->peripheralDidDiscoverServices(peripheral, fake::noError);
  EXPECT_THAT(asked, IsEmpty());
}

TEST_F(ZephlyPeripheralDeathTest, AnAbsentServiceListIsFatal) {
  EXPECT_DEATH(handler->peripheralDidDiscoverServices(peripheral, fake::noError),
               "CBPeripheral.services is absent");
}

// Characteristic discovery.

TEST_F(ZephlyPeripheralTest, SubscribesToTheProfileInThePlatformsOrderAndPrintsAll) {
  auto service = std::make_shared<fake::Service>("0001");
  service->setCharacteristics(
      {{characteristic(motionCharacteristicUUID()), characteristic(ecgCharacteristicUUID()),
        characteristic(CBUUID::UUIDWithString("2A19")),
        characteristic(temperatureCharacteristicUUID()),
        characteristic(respirationCharacteristicUUID()),
        characteristic(batteryCharacteristicUUID())}});
  handler->peripheralDidDiscoverCharacteristicsForService(peripheral, service, fake::noError);
  EXPECT_THAT(asked, ElementsAre("subscribe 49366E80", "subscribe 46366E80", "subscribe 45366E80",
                                 "subscribe 48366E80", "subscribe 47366E80"));
  EXPECT_EQ(output.text(),
            "characteristic 49366E80-CF3A-11E1-9AB4-0002A5D5C51B\n"
            "characteristic 46366E80-CF3A-11E1-9AB4-0002A5D5C51B\n"
            "characteristic 00002A19-0000-1000-8000-00805F9B34FB\n"
            "characteristic 45366E80-CF3A-11E1-9AB4-0002A5D5C51B\n"
            "characteristic 48366E80-CF3A-11E1-9AB4-0002A5D5C51B\n"
            "characteristic 47366E80-CF3A-11E1-9AB4-0002A5D5C51B\n");
}

TEST_F(ZephlyPeripheralTest, SubscribesToEveryCharacteristicOfAnIdentifier) {
  auto service = std::make_shared<fake::Service>("0001");
  service->setCharacteristics(
      {{characteristic(ecgCharacteristicUUID()), characteristic(batteryCharacteristicUUID()),
        characteristic(ecgCharacteristicUUID())}});
  handler->peripheralDidDiscoverCharacteristicsForService(peripheral, service, fake::noError);
  EXPECT_THAT(asked, ElementsAre("subscribe 46366E80", "subscribe 47366E80", "subscribe 46366E80"));
}

TEST_F(ZephlyPeripheralTest, HandlesEveryAnswerOfCharacteristics) {
  auto service = std::make_shared<fake::Service>("0001");
  service->setCharacteristics({{characteristic(ecgCharacteristicUUID())}});
  handler->peripheralDidDiscoverCharacteristicsForService(peripheral, service, fake::noError);
  handler->peripheralDidDiscoverCharacteristicsForService(peripheral, service, fake::noError);
  EXPECT_THAT(asked, ElementsAre("subscribe 46366E80", "subscribe 46366E80"));
  EXPECT_EQ(output.text(),
            "characteristic 46366E80-CF3A-11E1-9AB4-0002A5D5C51B\n"
            "characteristic 46366E80-CF3A-11E1-9AB4-0002A5D5C51B\n");
}

TEST_F(ZephlyPeripheralTest, PrintsEachCharacteristicBeforeItSubscribesToIt) {
  auto service = std::make_shared<fake::Service>("0001");
  service->setCharacteristics(
      {{characteristic(ecgCharacteristicUUID()), characteristic(batteryCharacteristicUUID())}});
  std::vector<std::ptrdiff_t> linesBefore;
  peripheral->whenSubscribing = [&] {
    const std::string text = output.text();
    linesBefore.push_back(std::count(text.begin(), text.end(), '\n'));
  };
  handler->peripheralDidDiscoverCharacteristicsForService(peripheral, service, fake::noError);
  EXPECT_THAT(linesBefore, ElementsAre(1, 2));
}

TEST_F(ZephlyPeripheralTest, SubscribesAlsoAfterAnErrorOfCharacteristicDiscovery) {
  auto service = std::make_shared<fake::Service>("0001");
  service->setCharacteristics({{characteristic(ecgCharacteristicUUID())}});
  handler->peripheralDidDiscoverCharacteristicsForService(peripheral, service, Error::of("half"));
  EXPECT_THAT(asked, ElementsAre("subscribe 46366E80"));
  EXPECT_EQ(output.text(),
            "Error: Optional(\"half\")\n"
            "characteristic 46366E80-CF3A-11E1-9AB4-0002A5D5C51B\n");
}

TEST_F(ZephlyPeripheralTest, WritesTheErrorOfCharacteristicDiscoveryAsALiteral) {
  auto service = std::make_shared<fake::Service>("0001");
  service->setCharacteristics(fake::Service::List(std::in_place));
  handler->peripheralDidDiscoverCharacteristicsForService(
      peripheral, service, fake::RawError::of("say \"no\" to C:\\\n\r\t\x01\x7F, Zürich"));
  EXPECT_EQ(output.text(),
            "Error: Optional(\"say \\\"no\\\" to C:\\\\\\n\\r\\t\\u{01}\\u{7F}, Zürich\")\n");
}

TEST_F(ZephlyPeripheralTest, EscapesEveryControlCharacterOfTheLiteralAndNothingElse) {
  auto service = std::make_shared<fake::Service>("0001");
  service->setCharacteristics(fake::Service::List(std::in_place));
  // Two-byte characters: all from U+0080 to U+00FF, and some whose second byte is one of 80 to 9F.
  for (unsigned code = 0x80; code <= 0xFF; ++code) {
    const std::string text = {static_cast<char>(0xC0 | code >> 6),
                              static_cast<char>(0x80 | (code & 0x3F))};
    std::ostringstream escaped;
    escaped << "\\u{" << std::hex << std::uppercase << code << "}";
    const CapturedOutput line;
    handler->peripheralDidDiscoverCharacteristicsForService(peripheral, service,
                                                            fake::RawError::of("a" + text + "b"));
    EXPECT_EQ(line.text(),
              "Error: Optional(\"a" + (code <= 0x9F ? escaped.str() : text) + "b\")\n");
  }
  for (const std::string text : {"ł", "А", "\u2028", "\xC2", "\x85", "Â"}) {
    const CapturedOutput line;
    handler->peripheralDidDiscoverCharacteristicsForService(peripheral, service,
                                                            fake::RawError::of(text));
    EXPECT_EQ(line.text(), "Error: Optional(\"" + text + "\")\n");
  }
}

TEST_F(ZephlyPeripheralTest, AnErrorWithAnEmptyTextIsPrintedToo) {
  auto service = std::make_shared<fake::Service>("0001");
  service->setCharacteristics(fake::Service::List(std::in_place));
  const auto ecg = characteristic(ecgCharacteristicUUID());
  handler->peripheralDidDiscoverCharacteristicsForService(peripheral, service, Error::of(""));
  handler->peripheralDidUpdateNotificationStateForCharacteristic(peripheral, ecg, Error::of(""));
  handler->peripheralDidUpdateValueForCharacteristic(peripheral, ecg, Error::of(""));
  EXPECT_EQ(output.text(),
            "Error: Optional(\"\")\n"
            "46366E80-CF3A-11E1-9AB4-0002A5D5C51B Error changing notification state: \n"
            "Error reading characteristics: \n");
}

TEST_F(ZephlyPeripheralTest, ErrorsOfForeignCharacteristicsArePrintedToo) {
  const auto foreign = characteristic(CBUUID::UUIDWithString("2A19"));
  handler->peripheralDidUpdateNotificationStateForCharacteristic(peripheral, foreign,
                                                                 Error::of("no"));
  handler->peripheralDidUpdateValueForCharacteristic(peripheral, foreign, Error::of("broken"));
  EXPECT_EQ(output.text(),
            "00002A19-0000-1000-8000-00805F9B34FB Error changing notification state: no\n"
            "Error reading characteristics: broken\n");
}

TEST_F(ZephlyPeripheralDeathTest, AnAbsentCharacteristicListIsFatal) {
  EXPECT_DEATH(handler->peripheralDidDiscoverCharacteristicsForService(
                   peripheral, std::make_shared<fake::Service>("0001"), fake::noError),
               "CBService.characteristics is absent");
}

// Subscription.

TEST_F(ZephlyPeripheralTest, PrintsAFailedSubscriptionAndDoesNotRetry) {
  handler->peripheralDidUpdateNotificationStateForCharacteristic(
      peripheral, characteristic(ecgCharacteristicUUID()), Error::of("not \"permitted\""));
  EXPECT_EQ(output.text(),
            "46366E80-CF3A-11E1-9AB4-0002A5D5C51B Error changing notification state: "
            "not \"permitted\"\n");
  EXPECT_THAT(asked, IsEmpty());
  EXPECT_THAT(calls, IsEmpty());
}

TEST_F(ZephlyPeripheralTest, PrintsNothingForASuccessfulSubscription) {
  handler->peripheralDidUpdateNotificationStateForCharacteristic(
      peripheral, characteristic(ecgCharacteristicUUID()), fake::noError);
  EXPECT_EQ(output.text(), "");
  EXPECT_THAT(calls, IsEmpty());
}

// Values.

TEST_F(ZephlyPeripheralTest, DropsAValueWithAnErrorAndPrintsIt) {
  handler->peripheralDidUpdateValueForCharacteristic(
      peripheral, characteristic(ecgCharacteristicUUID(), {1, 2, 3}), Error::of("broken"));
  EXPECT_EQ(output.text(), "Error reading characteristics: broken\n");
  EXPECT_THAT(calls, IsEmpty());
}

TEST_F(ZephlyPeripheralTest, IgnoresAnAbsentValue) {
  const auto silent = characteristic(ecgCharacteristicUUID());
  silent->setValue(nullptr);
  handler->peripheralDidUpdateValueForCharacteristic(peripheral, silent, fake::noError);
  EXPECT_EQ(output.text(), "");
  EXPECT_THAT(calls, IsEmpty());
}

TEST_F(ZephlyPeripheralTest, IgnoresAForeignCharacteristic) {
  deliver(CBUUID::UUIDWithString("2A19"), {100});
  deliver(CBUUID::UUIDWithString("4A366E80-CF3A-11E1-9AB4-0002A5D5C51B"), {100});
  EXPECT_EQ(output.text(), "");
  EXPECT_THAT(calls, IsEmpty());
}

TEST_F(ZephlyPeripheralTest, DeliversTemperature) {
  deliver(temperatureCharacteristicUUID(), {0x43, 0x3A, 0, 0});
  EXPECT_THAT(calls, ElementsAre(recorded::call("didReceiveTemperature", 25.149994f, -273.15f)));
}

TEST_F(ZephlyPeripheralTest, DeliversECG) {
  deliver(ecgCharacteristicUUID(), {0, 0, 0x40, 0, 0, 0x80});
  EXPECT_THAT(calls, ElementsAre("didReceiveECG 1.21 -2.42 0 0 0 0"));
}

TEST_F(ZephlyPeripheralTest, DeliversRespirationByTheECGDecoderAndNeverAsECG) {
  deliver(respirationCharacteristicUUID(), {0, 0, 0x40, 0, 0, 0x80});
  EXPECT_THAT(calls, ElementsAre("didReceiveRespiration 1.21 -2.42 0 0 0 0"));
}

TEST_F(ZephlyPeripheralTest, DecodesECGAndRespirationAlike) {
  const std::vector<std::uint8_t> bytes = {0x01, 0,    0,    0xFF, 0xFF, 0xFF, 0, 0, 0x80,
                                           0xFF, 0xFF, 0x7F, 0,    0,    0,    0, 0, 0};
  deliver(ecgCharacteristicUUID(), bytes);
  deliver(respirationCharacteristicUUID(), bytes);
  EXPECT_THAT(calls, ElementsAre("didReceiveECG 2.88486e-07 -2.88486e-07 -2.42 2.42 0 0",
                                 "didReceiveRespiration 2.88486e-07 -2.88486e-07 -2.42 2.42 0 0"));
}

TEST_F(ZephlyPeripheralTest, DeliversBattery) {
  deliver(batteryCharacteristicUUID(), {0xE8, 0x03, 2});
  EXPECT_THAT(calls, ElementsAre("didReceiveBatteryStatus 100 true"));
}

TEST_F(ZephlyPeripheralTest, DeliversMotion) {
  deliver(motionCharacteristicUUID(),
          {0x40, 0, 0x20, 0, 0xC0, 0, 0x10, 0, 0, 1, 0, 0, 0, 2, 0, 0, 0xFF, 0xFF, 0, 0});
  EXPECT_THAT(calls, ElementsAre("didReceiveIMUValues 1 0.5 -1 0.25 1 2 -1"));
}

TEST_F(ZephlyPeripheralTest, ANotificationIsAtMostOneCall) {
  for (const CBUUID& uuid : characteristics()) {
    for (std::size_t length = 0; length <= 64; ++length) {
      calls.clear();
      deliver(uuid, std::vector<std::uint8_t>(length, 0xA5));
      EXPECT_EQ(calls.size(), 1u);
    }
  }
}

TEST_F(ZephlyPeripheralDeathTest, DeliveringToADestroyedDelegateIsFatalForEveryStream) {
  delegate.reset();
  for (const CBUUID& uuid : characteristics()) {
    EXPECT_DEATH(deliver(uuid, {1, 2, 3}), "ZephlyPeripheral.zephlyDelegate is gone");
  }
}

TEST_F(ZephlyPeripheralTest, ADestroyedDelegateIsIgnoredWhileNothingIsDelivered) {
  delegate.reset();
  const auto ecg = characteristic(ecgCharacteristicUUID());
  auto service = std::make_shared<fake::Service>("0001");
  service->setCharacteristics({{ecg}});
  peripheral->list = {{service}};
  handler->peripheralDidDiscoverServices(peripheral, fake::noError);
  handler->peripheralDidDiscoverCharacteristicsForService(peripheral, service, Error::of("half"));
  EXPECT_THAT(asked, ElementsAre("discoverCharacteristics 0001", "subscribe 46366E80"));
  handler->peripheralDidUpdateNotificationStateForCharacteristic(peripheral, ecg, Error::of("no"));
  handler->peripheralDidUpdateValueForCharacteristic(peripheral, ecg, Error::of("broken"));
  deliver(CBUUID::UUIDWithString("2A19"), {100});
  EXPECT_EQ(output.text(),
            "Error: Optional(\"half\")\n"
            "characteristic 46366E80-CF3A-11E1-9AB4-0002A5D5C51B\n"
            "46366E80-CF3A-11E1-9AB4-0002A5D5C51B Error changing notification state: no\n"
            "Error reading characteristics: broken\n");
  EXPECT_THAT(calls, IsEmpty());
}

// The last owner of the delegate releases it during a delivery.
TEST_F(ZephlyPeripheralTest, KeepsTheDelegateAliveDuringItsCall) {
  class Application : public Leaving<ZephlyPeripheralDelegate> {
   public:
    using Leaving::Leaving;
    void didConnectPeripheral() override {}
    void didDisconnectPeripheral() override {}
    void didReceiveTemperature(float, float) override { leave(); }
    void didReceiveECG(const std::vector<float>&) override { leave(); }
    void didReceiveRespiration(const std::vector<float>&) override { leave(); }
    void didReceiveBatteryStatus(BatteryStatus) override { leave(); }
    void didReceiveIMUValues(float, float, float, float, float, float, float) override { leave(); }
  };
  for (const CBUUID& uuid : characteristics()) {
    calls.clear();
    std::shared_ptr<Leaving<ZephlyPeripheralDelegate>> owner;
    owner = std::make_shared<Application>(calls, owner);
    handler = ZephlyPeripheral::init(owner);
    deliver(uuid, {1, 2, 3});
    EXPECT_THAT(calls, stayedUntilTheEndOfItsCall());
  }
}

// The object.

TEST_F(ZephlyPeripheralDeathTest, CannotBeCreatedWithoutADelegate) {
  EXPECT_DEATH(ZephlyPeripheral::init(), "ZephlyPeripheral.init is not available");
}

TEST_F(ZephlyPeripheralTest, DoesNotOwnItsDelegate) { EXPECT_EQ(delegate.use_count(), 1); }

TEST_F(ZephlyPeripheralTest, RespondsToItsFourMessageNames) {
  for (const char* name :
       {"peripheral:didDiscoverCharacteristicsForService:error:",
        "peripheral:didUpdateNotificationStateForCharacteristic:error:",
        "peripheral:didUpdateValueForCharacteristic:error:", "peripheral:didDiscoverServices:"}) {
    EXPECT_TRUE(handler->respondsToSelector(name)) << name;
  }
  EXPECT_FALSE(handler->respondsToSelector("peripheralDidUpdateName:"));
  const auto value = characteristic(batteryCharacteristicUUID(), {10, 0, 0});
  handler->performSelector("peripheral:didUpdateValueForCharacteristic:error:",
                           std::shared_ptr<CBPeripheral>(peripheral),
                           std::shared_ptr<CBCharacteristic>(value), fake::noError);
  EXPECT_THAT(calls, ElementsAre("didReceiveBatteryStatus 1 false"));
}

TEST_F(ZephlyPeripheralTest, HandlesDiscoveryAndFailuresSentByName) {
  const auto device = std::shared_ptr<CBPeripheral>(peripheral);
  const std::shared_ptr<const NSError> failure = Error::of("broken");
  const auto service = std::make_shared<fake::Service>("0001");
  service->setCharacteristics(fake::Service::List(std::in_place));
  peripheral->list = {{service}};
  handler->performSelector("peripheral:didDiscoverServices:", device, fake::noError);
  EXPECT_THAT(asked, ElementsAre("discoverCharacteristics 0001"));
  handler->performSelector("peripheral:didDiscoverCharacteristicsForService:error:", device,
                           std::shared_ptr<CBService>(service), failure);
  EXPECT_EQ(output.text(), "Error: Optional(\"broken\")\n");
  handler->performSelector(
      "peripheral:didUpdateNotificationStateForCharacteristic:error:", device,
      std::shared_ptr<CBCharacteristic>(characteristic(batteryCharacteristicUUID())), failure);
  EXPECT_GT(output.text().size(), std::string("Error: Optional(\"broken\")\n").size());
}

}  // namespace
