// SPDX-License-Identifier: MIT
#include <tests/support/fake_bluez/fake_bluez.h>

#include <tests/support/fake_bluez/bluez_interfaces.h>

#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

namespace fake_bluez {

namespace {

std::string joined(std::string address, char separator) {
  std::replace(address.begin(), address.end(), ':', separator);
  return address;
}

std::string numbered(const char* kind, int handle) {
  static constexpr char digits[] = "0123456789abcdef";
  std::string text = kind;
  for (int shift = 12; shift >= 0; shift -= 4) text += digits[(handle >> shift) & 15];
  return text;
}

}  // namespace

std::vector<ServiceTraits> strapServices() {
  return {{"45366e70-cf3a-11e1-9ab4-0002a5d5c51b",
           {{"45366e80-cf3a-11e1-9ab4-0002a5d5c51b"},
            {"46366e80-cf3a-11e1-9ab4-0002a5d5c51b"},
            {"47366e80-cf3a-11e1-9ab4-0002a5d5c51b"}}},
          {"48366e70-cf3a-11e1-9ab4-0002a5d5c51b",
           {{"48366e80-cf3a-11e1-9ab4-0002a5d5c51b"},
            {"49366e80-cf3a-11e1-9ab4-0002a5d5c51b"},
            {"00002a29-0000-1000-8000-00805f9b34fb", {"read"}}}}};
}

std::string FakeDevice::path() const {
  return FakeBluez::adapterPath(traits.adapter) + "/dev_" + joined(traits.address, '_');
}

FakeBluez::FakeBluez(Zephly::main_queue::MainQueue& queue, std::string address)
    : FakeService(queue, std::move(address), "org.bluez") {
  adapters_.push_back({"hci0", "00:AA:01:00:00:42", {}});
}

// The daemon.

void FakeBluez::start(bool powered) {
  run();
  add("/org/bluez", "org.bluez.AgentManager1", {});
  for (Adapter& adapter : adapters_) showAdapter(adapter, powered);
}

void FakeBluez::terminate() {
  if (version_ == Version::v5_82) {
    for (Adapter& adapter : adapters_) {
      adapter.discoverers.clear();
      change(adapterPath(adapter.name), adapterInterface,
             {{"Powered", false}, {"Discovering", false}});
    }
  }
  for (FakeDevice& device : devices_) {
    if (device.connected) dropLink(device);
  }
  for (Adapter& adapter : adapters_) {
    stopDiscovery(adapter);
    remove(adapterPath(adapter.name));
  }
  remove("/org/bluez");
  kill();
}

void FakeBluez::kill() {
  for (FakeDevice& device : devices_) lose(device);
  for (Adapter& adapter : adapters_) adapter.discoverers.clear();
  FakeService::kill();
}

// Adapters.

void FakeBluez::addAdapter(const std::string& name, const std::string& address, bool powered) {
  for (FakeDevice& device : devices_) {
    const Adapter* old = adapterAt(adapterPath(device.traits.adapter));
    if (old == nullptr) device.traits.adapter = name;
  }
  adapters_.push_back({name, address, {}});
  if (running()) showAdapter(adapters_.back(), powered);
}

void FakeBluez::showAdapter(Adapter& adapter, bool powered) {
  adapter.discoverers.clear();
  add(adapterPath(adapter.name), adapterInterface,
      {{"Address", adapter.address},
       {"AddressType", "public"},
       {"Name", "machine"},
       {"Alias", "machine"},
       {"Class", std::uint32_t{0}},
       {"Powered", powered},
       {"Discoverable", false},
       {"Pairable", true},
       {"Discovering", false},
       {"UUIDs", std::vector<std::string>{"00001800-0000-1000-8000-00805f9b34fb"}},
       {"Roles", std::vector<std::string>{"central", "peripheral"}}});
}

void FakeBluez::removeAdapter(const std::string& name) {
  for (FakeDevice& device : devices_) {
    if (device.traits.adapter == name) lose(device);
  }
  remove(adapterPath(name));
  adapters_.remove_if([&](const Adapter& adapter) { return adapter.name == name; });
}

void FakeBluez::power(const std::string& name, bool on) {
  Adapter* adapter = adapterAt(adapterPath(name));
  if (adapter == nullptr || powered(name) == on) return;
  if (!on) {
    for (FakeDevice& device : devices_) {
      if (device.traits.adapter != name) continue;
      if (device.connected) dropLink(device);
      if (device.waiting.empty()) continue;
      if (version_ == Version::v5_82) {
        forget(device);
      } else {
        failConnect(device, "Input/output error");
      }
    }
    adapter->discoverers.clear();
    change(adapterPath(name), adapterInterface, {{"Powered", false}, {"Discovering", false}});
    return;
  }
  change(adapterPath(name), adapterInterface, {{"Powered", true}});
}

bool FakeBluez::discovering(const std::string& name) {
  const Adapter* adapter = adapterAt(adapterPath(name));
  return adapter != nullptr && !adapter->discoverers.empty();
}

void FakeBluez::stopDiscovery(Adapter& adapter) {
  if (adapter.discoverers.empty()) return;
  adapter.discoverers.clear();
  change(adapterPath(adapter.name), adapterInterface, {{"Discovering", false}});
}

bool FakeBluez::powered(const std::string& adapter) {
  const std::string path = adapterPath(adapter);
  return exists(path, adapterInterface) &&
         std::get<bool>(properties(path, adapterInterface).at("Powered"));
}

// Devices.

FakeDevice& FakeBluez::addDevice(DeviceTraits traits) {
  FakeDevice& device = devices_.emplace_back();
  device.traits = std::move(traits);
  for (const ServiceTraits& service : device.traits.services) {
    for (const CharacteristicTraits& one : service.characteristics) {
      device.characteristics.emplace_back().traits = one;
    }
  }
  return device;
}

bool FakeBluez::advertise(FakeDevice& device) {
  if (!powered(device.traits.adapter)) return false;
  const bool waited = !device.waiting.empty() && !device.connected && device.connecting.empty();
  const bool reported = discovering(device.traits.adapter);
  if (reported) {
    if (exists(device.path())) {
      change(device.path(), deviceInterface, {{"RSSI", device.rssi}});
    } else {
      show(device);
      change(device.path(), deviceInterface, {{"RSSI", device.rssi}});
    }
  }
  if (waited) begin(device);
  return reported;
}

void FakeBluez::show(FakeDevice& device) {
  Properties all = {{"Address", device.traits.address},
                    {"AddressType", "random"},
                    {"Alias", device.traits.name.value_or(joined(device.traits.address, '-'))},
                    {"Paired", false},
                    {"Trusted", false},
                    {"Blocked", false},
                    {"LegacyPairing", false},
                    {"RSSI", device.rssi},
                    {"Connected", device.connected},
                    {"UUIDs", std::vector<std::string>()},
                    {"Adapter", ObjectPath{adapterPath(device.traits.adapter)}},
                    {"ServicesResolved", false}};
  if (device.traits.name) all["Name"] = *device.traits.name;
  add(device.path(), deviceInterface, std::move(all));
}

void FakeBluez::begin(FakeDevice& device) {
  device.connecting.assign(device.onConnect.begin(), device.onConnect.end());
  device.connected = true;
  properties(device.path(), deviceInterface).insert_or_assign("Connected", true);
  proceed(device);
}

void FakeBluez::connectByItself(FakeDevice& device) {
  if (!exists(device.path())) show(device);
  begin(device);
}

void FakeBluez::proceed(FakeDevice& device) {
  while (!device.connecting.empty()) {
    const ConnectStep next = device.connecting.front();
    device.connecting.pop_front();
    if (next == ConnectStep::hold) return;
    step(device, next);
  }
  while (!device.disconnecting.empty()) {
    const DisconnectStep next = device.disconnecting.front();
    device.disconnecting.pop_front();
    if (next == DisconnectStep::hold) return;
    step(device, next);
  }
}

void FakeBluez::step(FakeDevice& device, ConnectStep step) {
  switch (step) {
    case ConnectStep::connected:
      change(device.path(), deviceInterface, {{"Connected", true}});
      return;
    case ConnectStep::reply:
      for (const auto& call : std::exchange(device.waiting, {})) reply(call);
      return;
    case ConnectStep::objects:
      addGattObjects(device);
      return;
    case ConnectStep::resolved:
    case ConnectStep::resolvedEmpty:
      resolve(device, step == ConnectStep::resolvedEmpty);
      return;
    case ConnectStep::hold:
      return;
  }
}

void FakeBluez::step(FakeDevice& device, DisconnectStep step) {
  if (step == DisconnectStep::signal) dropLink(device);
  if (step == DisconnectStep::reply) {
    for (const auto& call : std::exchange(device.departing, {})) reply(call);
  }
}

void FakeBluez::resolve(FakeDevice& device, bool empty) {
  std::vector<std::string> uuids;
  if (!empty) {
    for (const ServiceTraits& service : device.traits.services) uuids.push_back(service.uuid);
  }
  change(device.path(), deviceInterface, {{"UUIDs", uuids}, {"ServicesResolved", true}});
}

void FakeBluez::addGattObjects(FakeDevice& device) {
  int handle = 9;
  auto next = device.characteristics.begin();
  for (const ServiceTraits& service : device.traits.services) {
    const std::string servicePath = device.path() + numbered("/service", ++handle);
    if (!exists(servicePath)) {
      add(servicePath, serviceInterface,
          {{"UUID", service.uuid},
           {"Device", ObjectPath{device.path()}},
           {"Primary", true},
           {"Includes", std::vector<std::string>()}});
    }
    for (std::size_t i = 0; i < service.characteristics.size(); ++i, ++next) {
      next->path = servicePath + numbered("/char", ++handle);
      handle += 2;
      if (exists(next->path)) continue;
      add(next->path, characteristicInterface,
          {{"UUID", next->traits.uuid},
           {"Service", ObjectPath{servicePath}},
           {"Value", Bytes()},
           {"Notifying", false},
           {"Flags", next->traits.flags},
           {"MTU", std::uint16_t{23}}});
    }
  }
}

void FakeBluez::failConnect(FakeDevice& device, const std::string& text) {
  const bool silent = !device.waiting.empty() && !device.inRange;
  device.connecting.clear();
  for (const auto& call : std::exchange(device.waiting, {})) {
    refuse(call, "org.bluez.Error.Failed", text);
  }
  if (silent && version_ == Version::v5_82) forget(device);
}

void FakeBluez::lose(FakeDevice& device) {
  device.connected = false;
  device.connecting.clear();
  device.waiting.clear();
  device.disconnecting.clear();
  device.departing.clear();
  for (FakeCharacteristic& one : device.characteristics) {
    one.descriptor = Zephly::main_queue::FileDescriptor();
    one.subscribers.clear();
  }
}

void FakeBluez::dropLink(FakeDevice& device, const std::optional<std::string>& reason) {
  device.connected = false;
  device.connecting.clear();
  if (reason) {
    emit(device.path(), deviceInterface, "Disconnected", [&](sd_bus_message& message) {
      append(message, *reason);
      append(message, "Connection ended: " + *reason);
    });
  }
  for (FakeCharacteristic& one : device.characteristics) {
    one.descriptor = Zephly::main_queue::FileDescriptor();
  }
  if (!exists(device.path())) return;
  const bool resolved =
      std::get<bool>(properties(device.path(), deviceInterface).at("ServicesResolved"));
  Properties changed = {{"Connected", false}};
  if (resolved) changed["ServicesResolved"] = false;
  change(device.path(), deviceInterface, changed);
  failConnect(device);
}

void FakeBluez::forget(FakeDevice& device) {
  lose(device);
  remove(device.path());
}

void FakeBluez::gapName(FakeDevice& device, const std::string& name) {
  device.traits.name = name;
  change(device.path(), deviceInterface, {{"Name", name}, {"Alias", name}});
}

// Values.

FakeCharacteristic* FakeBluez::characteristic(FakeDevice& device, const std::string& uuid) {
  for (FakeCharacteristic& one : device.characteristics) {
    if (one.traits.uuid == uuid) return &one;
  }
  return nullptr;
}

bool FakeBluez::subscribed(FakeDevice& device, const std::string& uuid) {
  const FakeCharacteristic* one = characteristic(device, uuid);
  return device.connected && one != nullptr &&
         (!one->subscribers.empty() || one->descriptor.get() >= 0);
}

bool FakeBluez::notify(FakeDevice& device, const std::string& uuid, const Bytes& bytes) {
  if (!subscribed(device, uuid)) return false;
  const FakeCharacteristic& one = *characteristic(device, uuid);
  if (one.descriptor.get() < 0) {
    emitValue(device, uuid, bytes);
    return true;
  }
  return send(one.descriptor.get(), bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL) ==
         static_cast<ssize_t>(bytes.size());
}

void FakeBluez::emitValue(FakeDevice& device, const std::string& uuid, const Bytes& bytes) {
  change(characteristic(device, uuid)->path, characteristicInterface, {{"Value", bytes}});
}

}  // namespace fake_bluez
