#include <tools/strap/gatt_application.h>

#include <hosts/bluez/names.h>

#include <cstddef>
#include <utility>

namespace Zephly::peripheral {

namespace {

std::string servicePath() { return std::string(GattApplication::path) + "/service0"; }

std::string pathOf(simulator::Stream stream) {
  return servicePath() + "/" + std::string(simulator::streamName(stream));
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
  for (const simulator::Stream stream : simulator::allStreams) {
    of(stream).object = bus.exportObject(pathOf(stream), {interfaceOf(stream)});
  }
}

bool GattApplication::isSubscribed(simulator::Stream stream) const {
  return characteristics_.at(static_cast<std::size_t>(stream)).notifying;
}

void GattApplication::notify(simulator::Stream stream, bluez::Bytes value) {
  Characteristic& characteristic = of(stream);
  characteristic.value = std::move(value);
  characteristic.object->announce(bluez::characteristicInterface, "Value");
}

void GattApplication::unsubscribeAll() {
  for (const simulator::Stream stream : simulator::allStreams) {
    of(stream).notifying = false;
    tell(stream);
  }
}

bluez::Interface GattApplication::interfaceOf(simulator::Stream stream) {
  const auto subscription = [this, stream](bool notifying) {
    return [this, stream, notifying](const bluez::Arguments&) {
      setNotifying(stream, notifying);
      return bluez::Arguments();
    };
  };
  return {
      bluez::characteristicInterface,
      {{"StartNotify", "", "", subscription(true)}, {"StopNotify", "", "", subscription(false)}},
      {{"UUID", "s",
        [stream] { return bluez::Value(simulator::characteristicUUID(stream).UUIDString()); }},
       {"Service", "o", [] { return bluez::Value(bluez::ObjectPath{servicePath()}); }},
       {"Flags", "as", [] { return bluez::Value(bluez::Strings{"notify"}); }},
       {"Notifying", "b", [this, stream] { return bluez::Value(of(stream).notifying); }},
       {"Value", "ay", [this, stream] { return bluez::Value(of(stream).value); }}}};
}

// Posted, because a method of ours is called from inside the D-Bus library; the reply goes first.
void GattApplication::setNotifying(simulator::Stream stream, bool notifying) {
  of(stream).notifying = notifying;
  queue_.post([this, weak = std::weak_ptr<void>(alive_), stream] {
    if (!weak.expired()) tell(stream);
  });
}

void GattApplication::tell(simulator::Stream stream) {
  Characteristic& characteristic = of(stream);
  if (characteristic.told == characteristic.notifying) return;
  characteristic.told = characteristic.notifying;
  characteristic.object->announce(bluez::characteristicInterface, "Notifying");
  changed_(stream, characteristic.notifying);
}

GattApplication::Characteristic& GattApplication::of(simulator::Stream stream) {
  return characteristics_.at(static_cast<std::size_t>(stream));
}

}  // namespace Zephly::peripheral
