// SPDX-License-Identifier: MIT
#include <tools/strap/gatt_application.h>

#include <hosts/bluez/names.h>
#include <simulator/frame.h>
#include <zephly/ble/gatt_profile.h>
#include <zephly/protocol/streams.h>

#include <cstddef>
#include <utility>

namespace Zephly::peripheral {

namespace {

std::string servicePath() { return std::string(GattApplication::path) + "/service0"; }

std::string pathOf(Stream stream) {
  return servicePath() + "/" + std::string(streamInfo(stream).name);
}

bluez::Interface serviceDescription() {
  return {bluez::serviceInterface,
          {},
          {{"UUID", "s", [] { return bluez::Value(simulator::serviceUUID().UUIDString()); }},
           {"Primary", "b", [] { return bluez::Value(true); }}}};
}

}  // namespace

GattApplication::GattApplication(main_queue::MainQueue& queue, bluez::Bus& bus, Observer changed)
    : queue_(queue), changed_(std::move(changed)) {
  root_ = bus.exportObject(path, {}, true);
  service_ = bus.exportObject(servicePath(), {serviceDescription()});
  for (const Stream stream : allStreams) {
    of(stream).object = bus.exportObject(pathOf(stream), {interfaceOf(stream)});
  }
}

bool GattApplication::isSubscribed(Stream stream) const {
  return characteristics_.at(static_cast<std::size_t>(stream)).notifying;
}

void GattApplication::notify(Stream stream, bluez::Bytes value) {
  Characteristic& characteristic = of(stream);
  characteristic.value = std::move(value);
  characteristic.object->announce(bluez::characteristicInterface, "Value");
}

void GattApplication::unsubscribeAll() {
  for (const Stream stream : allStreams) {
    of(stream).notifying = false;
    report(stream);
  }
}

bluez::Interface GattApplication::interfaceOf(Stream stream) {
  const auto subscription = [this, stream](bool notifying) {
    return [this, stream, notifying](const bluez::Arguments&) {
      setNotifying(stream, notifying);
      return bluez::Arguments();
    };
  };
  return {
      bluez::characteristicInterface,
      {{"StartNotify", "", "", subscription(true)}, {"StopNotify", "", "", subscription(false)}},
      {{"UUID", "s", [stream] { return bluez::Value(characteristicUUID(stream).UUIDString()); }},
       {"Service", "o", [] { return bluez::Value(bluez::ObjectPath{servicePath()}); }},
       {"Flags", "as", [] { return bluez::Value(bluez::Strings{"notify"}); }},
       {"Notifying", "b", [this, stream] { return bluez::Value(of(stream).notifying); }},
       {"Value", "ay", [this, stream] { return bluez::Value(of(stream).value); }}}};
}

// Called by bluetoothd from inside the D-Bus library. The report is posted: the observer may use
// the bus, and the reply to this call must be sent first. Two changes before the post are one
// report, or none when the second undoes the first.
void GattApplication::setNotifying(Stream stream, bool notifying) {
  of(stream).notifying = notifying;
  queue_.post([this, weak = std::weak_ptr<void>(alive_), stream] {
    if (!weak.expired()) report(stream);
  });
}

void GattApplication::report(Stream stream) {
  Characteristic& characteristic = of(stream);
  if (characteristic.reported == characteristic.notifying) return;
  characteristic.reported = characteristic.notifying;
  characteristic.object->announce(bluez::characteristicInterface, "Notifying");
  changed_(stream, characteristic.notifying);
}

GattApplication::Characteristic& GattApplication::of(Stream stream) {
  return characteristics_.at(static_cast<std::size_t>(stream));
}

}  // namespace Zephly::peripheral
