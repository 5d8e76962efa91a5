// SPDX-License-Identifier: MIT
// Records that contradict those before them are refused.

#include <hosts/replay/contradiction.h>

#include <tests/hosts/replay/script.h>
#include <tests/support/boundary_recorder.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ostream>
#include <string>

namespace Zephly::replay {
namespace {

using boundary::Session;
using testing::IsEmpty;

// A record that is impossible after those before it, and the error.
struct Impossible {
  std::string name;
  Script before;
  Report record;
  std::string message;
};

void PrintTo(const Impossible& impossible, std::ostream* stream) { *stream << impossible.name; }

class ContradictionTest : public testing::TestWithParam<Impossible> {};

TEST_P(ContradictionTest, IsRefusedAndNotDelivered) {
  ReplayHost host;
  const Session session;
  deliver(host, GetParam().before);
  session.recorder->take();
  const int discoveries = session.recorder->discoveries;
  EXPECT_THAT(
      [&] {
        host.deliver({{}, GetParam().record});
      },
      testing::ThrowsMessage<Contradiction>(GetParam().message));
  EXPECT_THAT(session.recorder->take(), IsEmpty());
  EXPECT_EQ(session.recorder->discoveries, discoveries);
}

const Script two = subscribed + Script{Discovered{.peripheral = 7, .name = "Zephly"}, Connected{7}};

INSTANTIATE_TEST_SUITE_P(
    ReplayHostTest, ContradictionTest,
    testing::Values(
        Impossible{"StateBelow",
                   {},
                   StateChanged{static_cast<CBManagerState>(-1)},
                   "an invalid state of the radio"},
        Impossible{"StateAbove",
                   {},
                   StateChanged{static_cast<CBManagerState>(6)},
                   "an invalid state of the radio"},
        Impossible{"AdvertisedIdentifier",
                   {on},
                   Discovered{.peripheral = 1, .serviceUUIDs = {"what"}},
                   "an identifier that is not a Bluetooth UUID"},
        Impossible{
            "ConnectedUndiscovered", {on}, Connected{1}, "peripheral 1 was never discovered"},
        Impossible{
            "FailedUndiscovered", {on}, FailedToConnect{1}, "peripheral 1 was never discovered"},
        Impossible{"LostUndiscovered", {on}, Disconnected{1}, "peripheral 1 was never discovered"},
        Impossible{"ServicesUndiscovered", {on}, services, "peripheral 1 was never discovered"},
        Impossible{"CharacteristicsUndiscovered",
                   {on},
                   characteristics,
                   "peripheral 1 was never discovered"},
        Impossible{"SubscriptionUndiscovered",
                   {on},
                   SubscriptionChanged{1, 3},
                   "peripheral 1 was never discovered"},
        Impossible{"ValueUndiscovered", {on}, value(1, 3), "peripheral 1 was never discovered"},
        Impossible{"ConnectedTwice", connection, Connected{1}, "peripheral 1 is connected twice"},
        Impossible{"FailedWhileConnected", connection, FailedToConnect{1},
                   "peripheral 1 cannot be connected, but is"},
        Impossible{"LostTwice", connection + Script{Disconnected{1}}, Disconnected{1},
                   "peripheral 1 is not connected"},
        Impossible{
            "ServicesBeforeConnection", {on, found}, services, "peripheral 1 is not connected"},
        Impossible{"CharacteristicsBeforeConnection",
                   {on, found},
                   characteristics,
                   "peripheral 1 is not connected"},
        Impossible{"SubscriptionBeforeConnection",
                   {on, found},
                   SubscriptionChanged{1, 3},
                   "peripheral 1 is not connected"},
        Impossible{
            "ValueBeforeConnection", {on, found}, value(1, 3), "peripheral 1 is not connected"},
        Impossible{"ValueAfterConnection", subscribed + Script{Disconnected{1}}, value(1, 3),
                   "peripheral 1 is not connected"},
        Impossible{"ValueOfAnEarlierConnection", subscribed + Script{Disconnected{1}, Connected{1}},
                   value(1, 3), "characteristic 3 does not belong to peripheral 1"},
        Impossible{"ValueOfAnUnlistedCharacteristic", subscribed, value(1, 5),
                   "characteristic 5 does not belong to peripheral 1"},
        Impossible{"ValueOfAService", subscribed, value(1, 2),
                   "characteristic 2 does not belong to peripheral 1"},
        Impossible{"ValueOfAnotherPeripheral", two, value(7, 3),
                   "characteristic 3 does not belong to peripheral 7"},
        Impossible{"SubscriptionOfAnotherPeripheral", two, SubscriptionChanged{7, 4},
                   "characteristic 4 does not belong to peripheral 7"},
        Impossible{"ServiceOfAnotherPeripheral", two,
                   CharacteristicsDiscovered{.peripheral = 7, .service = 2},
                   "service 2 does not belong to peripheral 7"},
        Impossible{"UnlistedService", subscribed,
                   CharacteristicsDiscovered{.peripheral = 1, .service = 9},
                   "service 9 does not belong to peripheral 1"},
        Impossible{
            "ServiceTwice", connection,
            ServicesDiscovered{.peripheral = 1, .services = {{2, serviceUUID}, {2, serviceUUID}}},
            "service 2 is listed twice in one list"},
        Impossible{
            "CharacteristicTwice", connection + Script{services},
            CharacteristicsDiscovered{
                .peripheral = 1, .service = 2, .characteristics = {{3, ecgUUID}, {3, ecgUUID}}},
            "characteristic 3 is listed twice in one list"},
        Impossible{"ServiceIdentifier", connection,
                   ServicesDiscovered{.peripheral = 1, .services = {{2, "-"}}},
                   "an identifier that is not a Bluetooth UUID"},
        Impossible{
            "CharacteristicIdentifier", connection + Script{services},
            CharacteristicsDiscovered{.peripheral = 1, .service = 2, .characteristics = {{3, ""}}},
            "an identifier that is not a Bluetooth UUID"},
        Impossible{"ServiceChanged", subscribed,
                   ServicesDiscovered{.peripheral = 1, .services = {{2, ecgUUID}}},
                   "service 2 differs from its first listing"},
        Impossible{
            "CharacteristicChanged", subscribed,
            CharacteristicsDiscovered{
                .peripheral = 1, .service = 2, .characteristics = {{3, batteryUUID, "the ECG"}}},
            "characteristic 3 differs from its first listing"},
        Impossible{"CharacteristicInAnotherService",
                   subscribed +
                       Script{ServicesDiscovered{.peripheral = 1, .services = {{8, serviceUUID}}}},
                   CharacteristicsDiscovered{
                       .peripheral = 1, .service = 8, .characteristics = {{3, ecgUUID, "the ECG"}}},
                   "characteristic 3 differs from its first listing"}),
    [](const auto& instance) { return instance.param.name; });

}  // namespace
}  // namespace Zephly::replay
