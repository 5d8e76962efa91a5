// SPDX-License-Identifier: MIT
#include <tests/bluetooth/att_strap/profile.h>

#include <zephly/ble/gatt_profile.h>

#include <initializer_list>
#include <string_view>

namespace Zephly::att_strap {

namespace {

Bytes bytesOf(std::string_view text) { return {text.begin(), text.end()}; }

void addAssigned(AttributeTable& table) {
  table.addService(Uuid(0x1801));  // generic attribute
  table.addCharacteristic(Uuid(0x2A05), property::indicate);
  table.addService(Uuid(0x180A));  // device information
  table.addCharacteristic(Uuid(0x2A29), property::read, bytesOf("Zephly"));
  table.addCharacteristic(Uuid(0x2A24), property::read, bytesOf("Strap of the Bluetooth test"));
  table.addCharacteristic(Uuid(0x2A26), property::read, bytesOf("1.0"));
  table.addService(Uuid(0x180F));  // battery
  table.addCharacteristic(Uuid(0x2A19), property::read | property::notify, {77});
}

}  // namespace

Profile::Profile(const std::string& name) {
  const auto add = [this](std::initializer_list<Stream> streams) {
    for (const Stream stream : streams) {
      values.at(static_cast<std::size_t>(stream)) =
          table.addCharacteristic(Uuid(characteristicUUID(stream)), property::notify);
    }
  };
  table.addService(Uuid(0x1800));  // generic access
  gapName = table.addCharacteristic(Uuid(0x2A00), property::read, bytesOf(name));
  table.addCharacteristic(Uuid(0x2A01), property::read, {0x41, 0x03});  // a heart rate belt
  addAssigned(table);
  // Two services with a foreign one between them: clients must not depend on the services.
  table.addService(Uuid(CBUUID::UUIDWithString("40366E80-CF3A-11E1-9AB4-0002A5D5C51B")));
  add({Stream::ecg, Stream::respiration, Stream::motion});
  table.addService(Uuid(0x1805));  // time
  table.addCharacteristic(Uuid(0x2A2B), property::read, Bytes(10, 0));
  table.addService(Uuid(CBUUID::UUIDWithString("41366E80-CF3A-11E1-9AB4-0002A5D5C51B")));
  add({Stream::battery, Stream::temperature});
}

std::optional<Stream> Profile::streamOf(AttributeHandle value) const {
  for (const Stream stream : allStreams) {
    if (handleOf(stream) == value) return stream;
  }
  return std::nullopt;
}

}  // namespace Zephly::att_strap
