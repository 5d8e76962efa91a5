// SPDX-License-Identifier: MIT
// Arbitrary messages of a bluetoothd to the host on BlueZ: object trees and properties of any
// shape, expected and unexpected answers, signals in any order, services and buses that appear and
// disappear. The whole host runs (daemon, radio, scan, peripheral, link, feed) on a fake bus behind
// bus.h; an auditor makes every request and checks every callback.
//
// Time is not simulated: each time limit is either zero or infinite.
//
// Not covered: bus.cpp, which turns D-Bus messages into these values by sdbus-c++ and is tested on
// a real bus in tests/hosts/bluez, and the export of objects, which the host does not use.

#include <hosts/bluez/bluetooth.h>
#include <hosts/bluez/names.h>
#include <hosts/bluez/object_tree.h>
#include <tests/support/fake_bluez/auditor.h>
#include <zephly/ble/gatt_profile.h>
#include <fuzz/dbus/lying_bus.h>
#include <fuzz/support/input.h>
#include <fuzz/support/require.h>
#include <fuzz/support/target.h>

#include <gtest/gtest.h>

#include <sys/socket.h>

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace {

using namespace Zephly::bluez;
using namespace std::chrono_literals;
using bluez_test::Auditor;
using fuzz::Input;
using fuzz::LyingBus;
using fuzz::require;

constexpr const char* owner = ":1.7";
constexpr const char* adapter = "/org/bluez/hci0";
const std::string device = std::string(adapter) + "/dev_AA_BB_CC_DD_EE_01";
const std::string service = device + "/service000a";
constexpr std::array suffixes = {"/char000b", "/char000e", "/char0011", "/char0014", "/char0017"};

std::string anyPath(Input& input) {
  const unsigned choice = input.below(12);
  if (choice < 5) return service + suffixes.at(choice);
  switch (choice) {
    case 5:
      return adapter;
    case 6:
    case 7:
      return device;
    case 8:
      return service;
    case 9:
      return std::string(adapter) + "/dev_AA_BB_CC_DD_EE_02";
    case 10:
      return "/org/bluez/hci1";
    default:
      return input.text(24);
  }
}

const char* anyInterface(Input& input) {
  constexpr std::array all = {adapterInterface, deviceInterface, serviceInterface,
                              characteristicInterface, "org.example.Other"};
  return all.at(input.below(all.size()));
}

const char* anyProperty(Input& input) {
  constexpr std::array all = {"Powered", "Discovering", "Connected", "ServicesResolved", "Name",
                              "RSSI",    "UUIDs",       "Value",     "Notifying",        "Address",
                              "Roles",   "UUID",        "Flags",     "Service",          "Nothing"};
  return all.at(input.below(all.size()));
}

// Values of every type that can be received, with limited nesting.
Value anyValue(Input& input, int depth = 0) {
  switch (input.below(depth < 3 ? 10 : 8)) {
    case 0:
      return {};
    case 1:
    case 2:
      return input.coin();
    case 3:
      return input.number<std::int64_t>();
    case 4:
      return input.real<double>();
    case 5:
      return input.coin() ? input.text(40) : anyPath(input);
    case 6:
      return input.bytes(40);
    case 7: {
      Strings strings(input.below(4));
      for (std::string& one : strings) one = input.coin() ? input.text(40) : anyInterface(input);
      return strings;
    }
    default: {
      Dictionary dictionary;
      for (unsigned count = input.below(5); count > 0; --count) {
        const unsigned kind = input.below(3);
        const std::string name = kind == 0   ? anyPath(input)
                                 : kind == 1 ? anyInterface(input)
                                             : anyProperty(input);
        dictionary[name] = anyValue(input, depth + 1);
      }
      return dictionary;
    }
  }
}

Arguments anyArguments(Input& input) {
  Arguments arguments(input.below(4));
  for (Value& one : arguments) one = anyValue(input);
  return arguments;
}

/// The objects of a bluetoothd that knows the strap.
class Service {
 public:
  bool powered = true;
  bool connected = false;
  bool resolved = false;

  Dictionary properties(const std::string& path, const std::string& interface) const {
    if (interface == adapterInterface) {
      return {{"Address", "00:1A:7D:DA:71:13"}, {"Powered", powered}, {"Discovering", powered}};
    }
    if (interface == deviceInterface) {
      return {{"Address", "AA:BB:CC:DD:EE:01"}, {"Name", "Zephly"},
              {"Connected", connected},         {"ServicesResolved", resolved},
              {"RSSI", std::int64_t{-60}},      {"UUIDs", Strings{"180D", "no identifier"}}};
    }
    if (interface == serviceInterface)
      return {{"UUID", CBUUID::UUIDWithString("180D").UUIDString()}};
    return {{"UUID", identifierOf(path)}, {"Flags", Strings{"notify"}}, {"Notifying", false}};
  }

  Dictionary tree() const {
    Dictionary objects;
    const auto put = [&](const std::string& path, const char* interface) {
      objects[path] = Dictionary{{interface, properties(path, interface)}};
    };
    put(adapter, adapterInterface);
    put(device, deviceInterface);
    if (!resolved) return objects;
    put(service, serviceInterface);
    for (const char* suffix : suffixes) put(service + suffix, characteristicInterface);
    return objects;
  }

 private:
  static std::string identifierOf(const std::string& path) {
    for (std::size_t i = 0; i < suffixes.size(); ++i) {
      if (path.ends_with(suffixes.at(i)))
        return Zephly::characteristicUUID(Zephly::allStreams.at(i)).UUIDString();
    }
    return Zephly::characteristicUUID(Zephly::allStreams.front()).UUIDString();
  }
};

class World {
 public:
  explicit World(Input& input) : flags_(input.byte()) {
    LyingBus::refuse(false);
    openHost();
    openSession();
  }
  ~World() {
    host_.reset();
    poll(4);
  }
  World(const World&) = delete;
  World& operator=(const World&) = delete;

  void step(Input& input) {
    {
      const auto auditor = auditor_;  // may be replaced
      const Auditor::Calling calling(*auditor);
      act(input);
    }
    poll(input.below(4));
  }

 private:
  void openHost() {
    const auto limit = [this](unsigned bit) {
      return (flags_ & (1U << bit)) != 0 ? std::chrono::milliseconds(1h) : 0ms;
    };
    Options options;
    options.releaseOn = {};
    options.report = [](std::string_view) {};
    options.notifications =
        (flags_ & 1U) != 0 ? Notifications::descriptors : Notifications::signals;
    if ((flags_ & 2U) != 0) options.adapter = "hci0";
    options.timing.firstPause = limit(2);
    options.timing.longestPause = limit(2);
    options.timing.stalledAttemptLimit = limit(3);
    options.timing.discoveryLimit = 1h;
    options.timing.discoveryCheck = limit(4);
    options.timing.settleTime = limit(5);
    options.timing.reportDelay = limit(6);
    host_.reset();
    host_ = std::make_unique<Bluetooth>(queue_, std::move(options));
  }

  void openSession() {
    central_.reset();
    auditor_ = std::make_shared<Auditor>();
    auditor_->self = auditor_;
    central_ = CBCentralManager::init(auditor_, nullptr, std::nullopt);
  }

  void poll(unsigned turns) {
    for (; turns > 0; --turns) queue_.poll();
  }

  void act(Input& input) {
    const unsigned operation = input.below(24);
    if (operation == 0) return openSession();
    if (operation == 1) {
      openHost();
      return openSession();
    }
    if (operation == 2) return LyingBus::refuse(input.coin());
    LyingBus* const bus = LyingBus::current();
    if (bus == nullptr) return;
    if (operation == 3) return bus->lose();
    if (operation < 11) return answer(input, *bus);
    switch (operation) {
      case 11:
        return changeOwner(input, *bus);
      case 12:
        return say(*bus, anyPath(input), propertiesInterface, "PropertiesChanged",
                   anyArguments(input));
      case 13:
        return say(*bus, "/", objectManagerInterface,
                   input.coin() ? "InterfacesAdded" : "InterfacesRemoved", anyArguments(input));
      case 14:
      case 15:
        return changeProperties(input, *bus);
      case 16:
        return addInterface(input, *bus);
      case 17:
        return removeInterface(input, *bus);
      case 18:
        return say(*bus, device, deviceInterface, "Disconnected",
                   {Value(input.text(8)), anyValue(input)});
      case 19:
        return sendPacket(input);
      case 20:
        service_.powered = input.coin();
        return changed(*bus, adapter, adapterInterface, {{"Powered", service_.powered}});
      case 21:
      case 22:
        return link(input, *bus);
      default:
        return say(*bus, service + suffixes.at(input.below(5)), propertiesInterface,
                   "PropertiesChanged",
                   {characteristicInterface, Dictionary{{"Value", input.bytes(40)}}, Strings()});
    }
  }

  void say(LyingBus& bus, const std::string& path, const char* interface, const char* member,
           Arguments arguments) {
    bus.say({owner, path, interface, member, std::move(arguments)}, bluezService);
  }
  void changed(LyingBus& bus, const std::string& path, const char* interface, Dictionary values) {
    say(bus, path, propertiesInterface, "PropertiesChanged",
        {interface, std::move(values), Strings()});
  }

  // Mostly a correct answer; otherwise an error or any value.
  void answer(Input& input, LyingBus& bus) {
    if (bus.calls().empty()) return;
    const unsigned kind = input.below(8);
    const std::size_t index =
        kind < 5 ? 0 : input.byte() % bus.calls().size();  // out of order for a wrong answer
    if (kind == 6) return bus.answer(index, {anyArguments(input), {}, {}});
    if (kind == 7) {
      constexpr std::array names = {"org.bluez.Error.Failed", "org.bluez.Error.InProgress",
                                    "org.bluez.Error.AlreadyConnected",
                                    "org.freedesktop.DBus.Error.AccessDenied",
                                    "org.freedesktop.DBus.Error.NoReply"};
      const char* name = names.at(input.below(names.size()));
      return bus.answer(index, {anyArguments(input), name, input.text(12)});
    }
    // All objects, with occasional changes.
    for (unsigned left = kind == 0 ? 20 : 1; left > 0 && index < bus.calls().size(); --left) {
      bus.answer(index, honestAnswer(bus, bus.calls().at(index), kind == 1 ? &input : nullptr));
    }
  }

  Reply honestAnswer(LyingBus& bus, const LyingBus::Call& call, Input* lies) {
    const std::string& method = call.destination.method;
    const std::string path = call.destination.path;
    Arguments values;
    if (method == "GetNameOwner") values = {owner};
    if (method == "GetManagedObjects") values = {service_.tree()};
    if (method == "GetAll") {
      const auto* interface = at<std::string>(call.arguments, 0);
      values = {service_.properties(path, interface == nullptr ? deviceInterface : *interface)};
    }
    if (method == "AcquireNotify") values = {openFeed(), std::int64_t{23}};
    if (method == "Connect") connect(bus, true);
    if (method == "Disconnect") connect(bus, false);
    if (lies != nullptr && !values.empty()) tamper(*lies, values.front());
    return {values, {}, {}};
  }

  // Another value somewhere in a dictionary.
  void tamper(Input& input, Value& value) {
    auto* all = std::get_if<Dictionary>(&value.shape);
    if (all == nullptr || all->empty()) {
      value = anyValue(input);
      return;
    }
    auto place = std::next(all->begin(), input.byte() % static_cast<std::ptrdiff_t>(all->size()));
    switch (input.below(4)) {
      case 0:
        all->erase(place);
        break;
      case 1:
        place->second = anyValue(input);
        break;
      default:
        tamper(input, place->second);
    }
  }

  void connect(LyingBus& bus, bool connected) {
    service_.connected = connected;
    service_.resolved = false;
    changed(bus, device, deviceInterface, {{"Connected", connected}, {"ServicesResolved", false}});
  }

  void link(Input& input, LyingBus& bus) {
    switch (input.below(4)) {
      case 0:
        return connect(bus, input.coin());
      case 1:
        service_.resolved = input.coin();
        return changed(bus, device, deviceInterface, {{"ServicesResolved", service_.resolved}});
      case 2:
        return changed(bus, device, deviceInterface, {{"RSSI", std::int64_t{-50}}});
      default:
        return changed(bus, device, deviceInterface, {{"Name", input.coin() ? "Zephly" : "other"}});
    }
  }

  void changeOwner(Input& input, LyingBus& bus) {
    const unsigned kind = input.below(3);
    const std::string now = kind == 0 ? "" : kind == 1 ? owner : ":1.8";
    bus.say({busName, busPath, busName, "NameOwnerChanged", {bluezService, owner, now}}, busName);
  }

  void changeProperties(Input& input, LyingBus& bus) {
    const char* interface = anyInterface(input);
    Dictionary values;
    for (unsigned count = input.below(4); count > 0; --count) {
      const char* name = anyProperty(input);
      values[name] = anyValue(input);
    }
    Strings gone(input.below(3));
    for (std::string& one : gone) one = anyProperty(input);
    say(bus, anyPath(input), propertiesInterface, "PropertiesChanged", {interface, values, gone});
  }

  void addInterface(Input& input, LyingBus& bus) {
    const std::string path = anyPath(input);
    const char* interface = anyInterface(input);
    Value all = service_.properties(path, interface);
    if (input.coin()) tamper(input, all);
    say(bus, "/", objectManagerInterface, "InterfacesAdded", {path, Dictionary{{interface, all}}});
  }

  void removeInterface(Input& input, LyingBus& bus) {
    const std::string path = anyPath(input);
    say(bus, "/", objectManagerInterface, "InterfacesRemoved",
        {path, Strings{anyInterface(input), anyInterface(input)}});
  }

  Value openFeed() {
    std::array<int, 2> ends{};
    const int kind = SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC;
    require(::socketpair(AF_UNIX, kind, 0, ends.data()) == 0, "a pair of sockets");
    feeds_.emplace_back(ends[0]);
    return std::make_shared<Zephly::main_queue::FileDescriptor>(ends[1]);
  }

  void sendPacket(Input& input) {
    if (feeds_.empty()) return;
    const auto place = feeds_.begin() + input.byte() % static_cast<std::ptrdiff_t>(feeds_.size());
    if (input.below(4) == 0) {
      feeds_.erase(place);
      return;
    }
    const auto bytes = input.bytes(40);
    static_cast<void>(::send(place->get(), bytes.data(), bytes.size(), MSG_NOSIGNAL));
  }

  unsigned flags_;
  Zephly::main_queue::MainQueue queue_;
  Service service_;
  std::vector<Zephly::main_queue::FileDescriptor> feeds_;
  std::unique_ptr<Bluetooth> host_;
  std::shared_ptr<Auditor> auditor_;
  std::shared_ptr<CBCentralManager> central_;
};

// The mirror of the objects alone: applying a change twice has no further effect.
void runTree(Input& input) {
  ObjectTree tree;
  while (!input.empty()) {
    switch (input.below(6)) {
      case 0:
        static_cast<void>(tree.replace(anyArguments(input)));
        break;
      case 1:
        static_cast<void>(tree.add({anyPath(input), anyValue(input, 1)}));
        break;
      case 2:
        static_cast<void>(tree.remove({anyPath(input), anyValue(input)}));
        break;
      case 3: {
        const Arguments change = {anyInterface(input), anyValue(input), anyValue(input)};
        const std::string path = anyPath(input);
        static_cast<void>(tree.change(path, change));
        const auto again = tree.change(path, change);
        // NaN counts as changed each time: it does not equal its copy.
        require(!again || again->empty() || change != Arguments(change),
                "what is known already changes nothing");
        break;
      }
      case 4: {
        const std::string path = anyPath(input);
        const char* interface = anyInterface(input);
        static_cast<void>(tree.refresh(path, interface, {{anyProperty(input), anyValue(input)}}));
        break;
      }
      default: {
        const auto gone = tree.clear();
        for (const ObjectChange& change : gone) {
          require(change.kind == ObjectChange::Kind::removed, "everything goes");
        }
        require(tree.clear().empty(), "nothing is left");
      }
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // A violation found by the auditor ends the program.
  GTEST_FLAG_SET(throw_on_failure, true);
  Input input(data, size);
  if (input.below(8) == 0) {
    runTree(input);
    return 0;
  }
  World world(input);
  while (!input.empty()) world.step(input);
  return 0;
}
