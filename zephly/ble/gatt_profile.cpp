// SPDX-License-Identifier: MIT
#include <zephly/ble/gatt_profile.h>

#include <cstddef>

using Zephly::characteristicUUID;
using Zephly::Stream;

const CBUUID& Zephly::characteristicUUID(Stream stream) {
  static const std::vector<CBUUID> uuids = [] {
    std::vector<CBUUID> list;
    list.reserve(streamTable.size());
    for (const StreamInfo& info : streamTable) {
      list.push_back(CBUUID::UUIDWithString(info.characteristic));
    }
    return list;
  }();
  return uuids[static_cast<std::size_t>(stream)];
}

const CBUUID& temperatureCharacteristicUUID() { return characteristicUUID(Stream::temperature); }

const CBUUID& ecgCharacteristicUUID() { return characteristicUUID(Stream::ecg); }

const CBUUID& batteryCharacteristicUUID() { return characteristicUUID(Stream::battery); }

const CBUUID& respirationCharacteristicUUID() { return characteristicUUID(Stream::respiration); }

const CBUUID& motionCharacteristicUUID() { return characteristicUUID(Stream::motion); }

const std::vector<CBUUID>& characteristics() {
  static const std::vector<CBUUID> list = [] {
    std::vector<CBUUID> uuids;
    uuids.reserve(Zephly::subscriptionOrder.size());
    for (const Stream stream : Zephly::subscriptionOrder) {
      uuids.push_back(characteristicUUID(stream));
    }
    return uuids;
  }();
  return list;
}
