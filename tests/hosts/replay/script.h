// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Scripts of reports for the tests of the replay host.
///
///   deliver(host, subscribed + Script{value(1, 3), Disconnected{1, "Gone."}});

#include <capture/record.h>
#include <hosts/replay/replay_host.h>
#include <zephly/ble/gatt_profile.h>

#include <cstdint>
#include <string>
#include <vector>

namespace Zephly::replay {

using capture::CharacteristicsDiscovered;
using capture::Connected;
using capture::Disconnected;
using capture::Discovered;
using capture::FailedToConnect;
using capture::Report;
using capture::ServicesDiscovered;
using capture::StateChanged;
using capture::SubscriptionChanged;
using capture::Value;
using Script = std::vector<Report>;

inline constexpr const char* serviceUUID = "47366E80-0000-0000-0000-000000000001";
inline const std::string batteryUUID = batteryCharacteristicUUID().UUIDString();
inline const std::string ecgUUID = ecgCharacteristicUUID().UUIDString();

inline const StateChanged on{CBManagerState::poweredOn};
inline const Discovered found{
    .peripheral = 1, .name = "Zephly", .localName = "Zephly", .RSSI = -60};
inline const ServicesDiscovered services{.peripheral = 1, .services = {{2, serviceUUID}}};
inline const CharacteristicsDiscovered characteristics{
    .peripheral = 1,
    .service = 2,
    .characteristics = {{3, ecgUUID, "the ECG"}, {4, batteryUUID, "the battery"}}};

inline Script operator+(Script left, const Script& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

inline const Script connection = {on, found, Connected{1}};
inline const Script subscribed =
    connection +
    Script{services, characteristics, SubscriptionChanged{1, 3}, SubscriptionChanged{1, 4}};

inline Value value(capture::ObjectId peripheral, capture::ObjectId characteristic) {
  return {peripheral, characteristic, std::vector<std::uint8_t>{0x20, 0x03, 0x01}};
}

inline void deliver(ReplayHost& host, const Script& script) {
  for (const Report& what : script) host.deliver({{}, what});
}

}  // namespace Zephly::replay
