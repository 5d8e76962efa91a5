#include "fake_bluetoothd.h"

#include <algorithm>
#include <utility>

using fake_bluez::append;
using fake_bluez::check;
using fake_bluez::Interfaces;
using fake_bluez::Message;
using fake_bluez::ObjectPath;
using fake_bluez::Properties;

namespace {

constexpr const char* adapterInterface = "org.bluez.Adapter1";
constexpr const char* deviceInterface = "org.bluez.Device1";

}  // namespace

void FakeBluetoothd::start() {
  connection_ = std::make_unique<fake_bluez::BusConnection>(
      queue_, address_, [this](sd_bus_message& message) { return incoming(message); });
  connection_->own("org.bluez");
}

void FakeBluetoothd::kill() {
  held_.clear();
  connection_.reset();
  objects_.clear();
}

void FakeBluetoothd::addAdapter(const std::string& name, bool powered, bool able,
                                const std::string& address) {
  Interfaces interfaces{
      {adapterInterface, {{"Address", address}, {"Alias", "workstation"}, {"Powered", powered}}}};
  if (able) {
    interfaces["org.bluez.GattManager1"];
    interfaces["org.bluez.LEAdvertisingManager1"];
  }
  add("/org/bluez/" + name, std::move(interfaces));
}

void FakeBluetoothd::power(bool on, const std::string& name) {
  change("/org/bluez/" + name, adapterInterface, {{"Powered", on}});
}

void FakeBluetoothd::connect(const std::string& device) {
  if (objects_.count(device) == 0) add(device, {{deviceInterface, {{"Connected", false}}}});
  change(device, deviceInterface, {{"Connected", true}});
}

void FakeBluetoothd::disconnect(const std::string& device) {
  change(device, deviceInterface, {{"Connected", false}});
}

void FakeBluetoothd::add(const std::string& path, Interfaces interfaces) {
  objects_[path] = std::move(interfaces);
  if (!connection_) return;
  const Message message =
      connection_->signal("/", "org.freedesktop.DBus.ObjectManager", "InterfacesAdded");
  append(*message, ObjectPath{path});
  append(*message, objects_[path]);
  connection_->send(*message);
}

void FakeBluetoothd::remove(const std::string& path) {
  for (auto object = objects_.begin(); object != objects_.end();) {
    if (object->first != path && object->first.rfind(path + "/", 0) != 0) {
      ++object;
      continue;
    }
    std::vector<std::string> names;
    for (const auto& [name, properties] : object->second) names.push_back(name);
    const Message message =
        connection_->signal("/", "org.freedesktop.DBus.ObjectManager", "InterfacesRemoved");
    append(*message, ObjectPath{object->first});
    append(*message, names);
    object = objects_.erase(object);
    connection_->send(*message);
  }
}

void FakeBluetoothd::refuse(const std::string& method, const std::string& errorName,
                            const std::string& text) {
  refusals_[method].push_back({errorName, text});
}

void FakeBluetoothd::release(const std::string& method) {
  const auto calls = held_.extract(method);
  if (calls.empty()) return;
  for (const Message& call : calls.mapped()) answer(*call);
}

bool FakeBluetoothd::wasCalled(const std::string& call) const {
  return std::find(calls_.begin(), calls_.end(), call) != calls_.end();
}

bool FakeBluetoothd::incoming(sd_bus_message& message) {
  if (sd_bus_message_is_method_call(&message, nullptr, nullptr) <= 0) return false;
  const std::string method = sd_bus_message_get_member(&message);
  const std::string path = sd_bus_message_get_path(&message);
  if (method == "RegisterApplication") applicant_ = sd_bus_message_get_sender(&message);
  if (method != "GetManagedObjects") {
    const std::string arguments = fake_bluez::textOf(message);
    check(sd_bus_message_rewind(&message, 1), "rewind a call");
    calls_.push_back(path.substr(path.rfind('/') + 1) + " " + method +
                     (arguments.empty() ? "" : " " + arguments));
  }
  if (const auto held = held_.find(method); held != held_.end()) {
    held->second.emplace_back(sd_bus_message_ref(&message));
  } else {
    answer(message);
  }
  return true;
}

void FakeBluetoothd::answer(sd_bus_message& call) {
  const std::string method = sd_bus_message_get_member(&call);
  sd_bus_message* made = nullptr;
  if (auto& refusals = refusals_[method]; !refusals.empty()) {
    const Refusal& refusal = refusals.front();
    const sd_bus_error error{refusal.name.c_str(), refusal.text.c_str(), 0};
    check(sd_bus_message_new_method_error(&call, &made, &error), "make an error");
    const Message message(made);
    connection_->send(*message);
    refusals.pop_front();
    return;
  }
  check(sd_bus_message_new_method_return(&call, &made), "make a reply");
  const Message message(made);
  if (method == "GetManagedObjects") {
    check(sd_bus_message_open_container(made, 'a', "{oa{sa{sv}}}"), "open the objects");
    for (const auto& [path, interfaces] : objects_) {
      check(sd_bus_message_open_container(made, 'e', "oa{sa{sv}}"), "open an object");
      append(*made, ObjectPath{path});
      append(*made, interfaces);
      check(sd_bus_message_close_container(made), "close an object");
    }
    check(sd_bus_message_close_container(made), "close the objects");
  } else if (oddReply) {
    oddReply(*made);
  }
  connection_->send(*message);
}

void FakeBluetoothd::change(const std::string& path, const std::string& interface,
                            const Properties& properties) {
  for (const auto& [name, value] : properties) {
    objects_[path][interface].insert_or_assign(name, value);
  }
  const Message message =
      connection_->signal(path, "org.freedesktop.DBus.Properties", "PropertiesChanged");
  append(*message, interface);
  append(*message, properties);
  append(*message, std::vector<std::string>());
  connection_->send(*message);
}
