// SPDX-License-Identifier: MIT
#include <tests/hosts/bluez/nonsense.h>

#include <array>
#include <vector>

namespace bluez_test {

namespace {

using fake_bluez::append;
using fake_bluez::check;
using fake_bluez::ObjectPath;
using fake_bluez::Odd;
using fake_bluez::Properties;

constexpr std::array interfaces = {"org.bluez.Adapter1", "org.bluez.Device1",
                                   "org.bluez.GattService1", "org.bluez.GattCharacteristic1",
                                   "org.example.Other"};
constexpr std::array names = {"Powered",   "Discovering", "Connected", "ServicesResolved",
                              "Name",      "RSSI",        "UUIDs",     "Value",
                              "Notifying", "Address",     "Roles",     "UUID",
                              "Flags",     "Service",     "Adapter",   "Nothing"};

template <class T, std::size_t size>
T one(Random& random, const std::array<T, size>& of) {
  return of[random() % size];
}

void open(sd_bus_message& message, char type, const char* contents) {
  check(sd_bus_message_open_container(&message, type, contents), "open a container");
}

void close(sd_bus_message& message) {
  check(sd_bus_message_close_container(&message), "close a container");
}

// Nested variants with a text in the innermost.
void nest(sd_bus_message& message, unsigned depth) {
  for (unsigned i = 0; i < depth; ++i) open(message, 'v', i + 1 < depth ? "v" : "s");
  append(message, std::string("deep"));
  for (unsigned i = 0; i < depth; ++i) close(message);
}

void writeLarge(sd_bus_message& message) {
  const std::vector<std::uint8_t> bytes(300'000, 7);
  check(sd_bus_message_append_array(&message, 'y', bytes.data(), bytes.size()), "append bytes");
}

void writeOne(sd_bus_message& message, Random& random) {
  const auto number = static_cast<std::uint32_t>(random());
  switch (random() % 10) {
    case 0:
      return append(message, std::string(one(random, names)));
    case 1:
      return append(message, ObjectPath{"/org/bluez/hci0"});
    case 2:
      return static_cast<void>(sd_bus_message_append_basic(&message, 'u', &number));
    case 3:
      return append(message, Properties{{one(random, names), oddValue(random)}});
    case 4:
      return append(message, std::vector<std::string>(random() % 4, one(random, interfaces)));
    case 5:
      return nest(message, 1 + number % 30);
    case 6:
      return static_cast<void>(sd_bus_message_append(&message, "(sbd)", "struct", 1, 0.5));
    case 7:
      return static_cast<void>(sd_bus_message_append(&message, "a{us}", 1, number, "number"));
    case 8:
      return random() % 20 == 0 ? writeLarge(message) : append(message, std::string());
    default:
      return static_cast<void>(sd_bus_message_append(&message, "aaas", 2, 1, 1, "x", 0));
  }
}

}  // namespace

fake_bluez::Writer nonsense(Random& random) {
  return [seed = random()](sd_bus_message& message) {
    Random own(seed);
    for (auto count = static_cast<unsigned>(own() % 4); count > 0; --count) {
      writeOne(message, own);
    }
  };
}

fake_bluez::Value oddValue(Random& random) {
  switch (random() % 9) {
    case 0:
      return random() % 2 == 0;
    case 1:
      return static_cast<std::int16_t>(random());
    case 2:
      return static_cast<std::uint32_t>(random());
    case 3:
      return std::string(one(random, names));
    case 4:
      return std::vector<std::string>{"not a UUID", ""};
    case 5:
      return fake_bluez::Bytes(random() % 600, 1);
    case 6:
      return ObjectPath{"/"};
    case 7:
      return Odd{"v", [depth = 1 + static_cast<unsigned>(random() % 25)](auto& message) {
                   nest(message, depth);
                 }};
    default:
      return Odd{"a{sv}", [](auto& message) { append(message, Properties{{"inner", true}}); }};
  }
}

fake_bluez::Writer plausibleChange(Random& random) {
  return [seed = random()](sd_bus_message& message) {
    Random own(seed);
    append(message, std::string(one(own, interfaces)));
    Properties changed;
    for (auto count = static_cast<unsigned>(own() % 3); count > 0; --count) {
      changed.insert_or_assign(one(own, names), oddValue(own));
    }
    append(message, changed);
    append(message, std::vector<std::string>(own() % 2, one(own, names)));
  };
}

fake_bluez::Writer plausibleAdded(Random& random, const std::string& path) {
  return [seed = random(), path](sd_bus_message& message) {
    Random own(seed);
    append(message, ObjectPath{path});
    append(message, fake_bluez::Interfaces{
                        {one(own, interfaces),
                         {{one(own, names), oddValue(own)}, {one(own, names), oddValue(own)}}}});
  };
}

fake_bluez::Writer plausibleRemoved(Random& random, const std::string& path) {
  return [seed = random(), path](sd_bus_message& message) {
    Random own(seed);
    append(message, ObjectPath{path});
    append(message, std::vector<std::string>(1 + own() % 2, one(own, interfaces)));
  };
}

}  // namespace bluez_test
