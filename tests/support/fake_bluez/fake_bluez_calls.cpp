// SPDX-License-Identifier: MIT
// The answers of the fake org.bluez to calls.

#include <tests/support/fake_bluez/fake_bluez.h>

#include <tests/support/fake_bluez/bluez_interfaces.h>

#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <utility>

namespace fake_bluez {

void FakeBluez::perform(const CallPointer& call) {
  if (call->interface == adapterInterface) {
    return performOnAdapter(call, *adapterAt(call->path));
  }
  FakeDevice* device = deviceAt(call->path);
  if (device != nullptr && call->interface == deviceInterface) {
    return performOnDevice(call, *device);
  }
  if (device != nullptr && call->interface == characteristicInterface) {
    for (FakeCharacteristic& one : device->characteristics) {
      if (one.path == call->path) return performOnCharacteristic(call, *device, one);
    }
  }
  refuse(call, "org.bluez.Error.NotSupported", "Operation is not supported");
}

void FakeBluez::setProperty(const CallPointer& call) {
  const std::string expected = std::string(adapterInterface) + " Powered ";
  Adapter* adapter = adapterAt(call->path);
  if (adapter == nullptr || call->arguments.rfind(expected, 0) != 0) {
    return FakeService::setProperty(call);
  }
  reply(call);
  power(adapter->name, call->arguments == expected + "true");
}

void FakeBluez::peerLeft(const std::string& peer) {
  for (Adapter& adapter : adapters_) {
    if (adapter.discoverers.erase(peer) != 0 && adapter.discoverers.empty()) {
      change(adapterPath(adapter.name), adapterInterface, {{"Discovering", false}});
    }
  }
  for (FakeDevice& device : devices_) {
    for (FakeCharacteristic& one : device.characteristics) one.subscribers.erase(peer);
  }
}

void FakeBluez::performOnAdapter(const CallPointer& call, Adapter& adapter) {
  const std::string path = adapterPath(adapter.name);
  if (call->method == "RemoveDevice") {
    FakeDevice* device = deviceAt(call->arguments);
    if (device == nullptr) return refuse(call, "org.bluez.Error.DoesNotExist", "Does Not Exist");
    reply(call);
    return forget(*device);
  }
  if (!powered(adapter.name) && call->method != "SetDiscoveryFilter") {
    return refuse(call, "org.bluez.Error.NotReady", "Resource Not Ready");
  }
  if (call->method == "SetDiscoveryFilter") return reply(call);
  if (call->method == "StartDiscovery") {
    const bool first = adapter.discoverers.empty();
    if (!adapter.discoverers.insert(call->sender).second) {
      return refuse(call, "org.bluez.Error.InProgress", "Operation already in progress");
    }
    reply(call);
    if (first) change(path, adapterInterface, {{"Discovering", true}});
    return;
  }
  if (call->method == "StopDiscovery") {
    if (adapter.discoverers.erase(call->sender) == 0) {
      return refuse(call, "org.bluez.Error.Failed", "No discovery started");
    }
    reply(call);
    if (adapter.discoverers.empty()) change(path, adapterInterface, {{"Discovering", false}});
    return;
  }
  refuse(call, "org.bluez.Error.NotSupported", "Operation is not supported");
}

void FakeBluez::performOnDevice(const CallPointer& call, FakeDevice& device) {
  if (call->method == "Connect") return connect(call, device);
  if (call->method == "Disconnect") return disconnect(call, device);
  refuse(call, "org.bluez.Error.NotSupported", "Operation is not supported");
}

void FakeBluez::connect(const CallPointer& call, FakeDevice& device) {
  if (!powered(device.traits.adapter)) {
    return refuse(call, "org.bluez.Error.Failed", "Input/output error");
  }
  if (!device.waiting.empty()) {
    return refuse(call, "org.bluez.Error.InProgress", "Operation already in progress");
  }
  if (device.connected) return reply(call);
  device.waiting.push_back(call);
  if (device.inRange) begin(device);
}

void FakeBluez::disconnect(const CallPointer& call, FakeDevice& device) {
  if (!device.waiting.empty() && !device.connected) {
    failConnect(device);
    return reply(call);
  }
  if (!device.connected) return refuse(call, "org.bluez.Error.NotConnected", "Not Connected");
  if (!device.waiting.empty()) failConnect(device);
  device.departing.push_back(call);
  device.connecting.clear();
  device.disconnecting.assign(device.onDisconnect.begin(), device.onDisconnect.end());
  proceed(device);
}

void FakeBluez::performOnCharacteristic(const CallPointer& call, FakeDevice& device,
                                        FakeCharacteristic& characteristic) {
  if (call->method == "StopNotify") return stopNotify(call, characteristic);
  if (!device.connected) {
    return refuse(call, "org.bluez.Error.NotConnected", "Not Connected");
  }
  if (call->method == "StartNotify") return startNotify(call, characteristic);
  if (call->method == "AcquireNotify") return acquireNotify(call, characteristic);
  if (call->method == "ReadValue") {
    return reply(call, [](sd_bus_message& message) {
      check(sd_bus_message_append_array(&message, 'y', "\x01", 1), "append bytes");
    });
  }
  refuse(call, "org.bluez.Error.NotSupported", "Operation is not supported");
}

void FakeBluez::startNotify(const CallPointer& call, FakeCharacteristic& characteristic) {
  if (characteristic.traits.flags != std::vector<std::string>{"notify"}) {
    return refuse(call, "org.bluez.Error.NotSupported", "Operation is not supported");
  }
  if (characteristic.descriptor.get() >= 0) {
    return refuse(call, "org.bluez.Error.NotPermitted", "Notify acquired");
  }
  const bool first = characteristic.subscribers.empty();
  characteristic.subscribers.insert(call->sender);
  if (first) change(characteristic.path, characteristicInterface, {{"Notifying", true}});
  reply(call);
}

void FakeBluez::stopNotify(const CallPointer& call, FakeCharacteristic& characteristic) {
  if (characteristic.subscribers.erase(call->sender) == 0) {
    return refuse(call, "org.bluez.Error.Failed", "No notify session started");
  }
  if (characteristic.subscribers.empty()) {
    change(characteristic.path, characteristicInterface, {{"Notifying", false}});
  }
  reply(call);
}

void FakeBluez::acquireNotify(const CallPointer& call, FakeCharacteristic& characteristic) {
  if (characteristic.traits.flags != std::vector<std::string>{"notify"}) {
    return refuse(call, "org.bluez.Error.NotSupported", "Operation is not supported");
  }
  if (!characteristic.subscribers.empty()) {
    return refuse(call, "org.bluez.Error.InProgress", "Operation already in progress");
  }
  // The client may have closed the previous descriptor.
  char probe = 0;
  if (characteristic.descriptor.get() >= 0 &&
      recv(characteristic.descriptor.get(), &probe, 1, MSG_DONTWAIT | MSG_PEEK) != 0) {
    return refuse(call, "org.bluez.Error.NotPermitted", "Notify acquired");
  }
  std::array<int, 2> pair{};
  check(-(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, pair.data()) != 0 ? errno : 0),
        "make a pair of sockets");
  characteristic.descriptor = Zephly::main_queue::FileDescriptor(pair[0]);
  const Zephly::main_queue::FileDescriptor theirs(pair[1]);
  change(characteristic.path, characteristicInterface, {{"NotifyAcquired", true}});
  reply(call, [&](sd_bus_message& message) {
    check(sd_bus_message_append(&message, "hq", theirs.get(), 23), "append a descriptor");
  });
}

FakeBluez::Adapter* FakeBluez::adapterAt(const std::string& path) {
  for (Adapter& adapter : adapters_) {
    if (adapterPath(adapter.name) == path) return &adapter;
  }
  return nullptr;
}

FakeDevice* FakeBluez::deviceAt(const std::string& path) {
  for (FakeDevice& device : devices_) {
    const std::string own = device.path();
    if (path == own || path.rfind(own + '/', 0) == 0) return &device;
  }
  return nullptr;
}

}  // namespace fake_bluez
