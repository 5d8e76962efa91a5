// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Values that the fake service sends, valid and invalid ones, and received messages as text.
/// Shares nothing with the code under test.

#include <systemd/sd-bus.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <variant>
#include <vector>

namespace fake_bluez {

using Bytes = std::vector<std::uint8_t>;

struct ObjectPath {
  std::string text;
};

/// Appends any arguments to a message.
using Writer = std::function<void(sd_bus_message&)>;

/// A value of a type that no property of the real service has.
struct Odd {
  std::string signature;
  Writer write;
};

using Value = std::variant<bool, std::int16_t, std::uint16_t, std::uint32_t, std::string,
                           std::vector<std::string>, Bytes, ObjectPath, Odd>;
using Properties = std::map<std::string, Value>;
using Interfaces = std::map<std::string, Properties>;

struct MessageUnref {
  void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};
using Message = std::unique_ptr<sd_bus_message, MessageUnref>;

/// std::system_error for a negative result of the bus library; the result otherwise.
int check(int result, const char* what);

void append(sd_bus_message& message, const std::string& text);
void append(sd_bus_message& message, const ObjectPath& path);
void append(sd_bus_message& message, const std::vector<std::string>& texts);
/// As a variant.
void append(sd_bus_message& message, const Value& value);
/// As a{sv}.
void append(sd_bus_message& message, const Properties& properties);
/// As a{sa{sv}}.
void append(sd_bus_message& message, const Interfaces& interfaces);

/// The arguments of a message in one line: "/path {DuplicateData=true Transport=le}".
std::string textOf(sd_bus_message& message);

}  // namespace fake_bluez
