// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Values of D-Bus messages, in the few types that BlueZ uses.
///
/// A reader requests the type that it expects, and gets null when the other side has sent another
/// one. So an invalid message of a broken service is ignored.
///
///   if (const bool* powered = find<bool>(properties, "Powered")) ...

#include <hosts/main_queue/file_descriptor.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace Zephly::bluez {

struct Value;

using Bytes = std::vector<std::uint8_t>;
using Strings = std::vector<std::string>;
/// Names (or object paths) to values. Values of D-Bus variants are stored unwrapped.
using Dictionary = std::map<std::string, Value>;
/// A file descriptor that came with a message, closed with the last copy of the value.
using Descriptor = std::shared_ptr<main_queue::FileDescriptor>;

/// A path to be sent as D-Bus type `o`; one that is received is a std::string.
struct ObjectPath {
  std::string path;

  friend bool operator==(const ObjectPath&, const ObjectPath&) = default;
};

/// A value to be sent as a D-Bus variant; a received one is stored unwrapped.
struct Variant {
  std::shared_ptr<const Value> value;

  friend bool operator==(const Variant&, const Variant&) = default;
};

/// One value. Received: every integer is std::int64_t, every string, path and signature
/// std::string, and what has none of these shapes is std::monostate. Sent: every shape but
/// std::monostate and double; a Dictionary as a{sv}.
struct Value {
  using Shape =
      std::variant<std::monostate, bool, std::int64_t, std::uint16_t, std::uint32_t, double,
                   std::string, ObjectPath, Bytes, Strings, Dictionary, Descriptor, Variant>;

  Value() = default;
  Value(bool value) : shape(value) {}
  Value(std::int64_t value) : shape(value) {}
  Value(std::uint16_t value) : shape(value) {}
  Value(std::uint32_t value) : shape(value) {}
  Value(double value) : shape(value) {}
  Value(const char* value) : shape(std::string(value)) {}
  Value(std::string value) : shape(std::move(value)) {}
  Value(ObjectPath value) : shape(std::move(value)) {}
  Value(Bytes value) : shape(std::move(value)) {}
  Value(Strings value) : shape(std::move(value)) {}
  Value(Dictionary value) : shape(std::move(value)) {}
  Value(Descriptor value) : shape(std::move(value)) {}
  Value(Variant value) : shape(std::move(value)) {}

  friend bool operator==(const Value&, const Value&) = default;

  Shape shape;
};

/// `value` as a variant.
inline Value variantOf(Value value) {
  return Variant{std::make_shared<const Value>(std::move(value))};
}

/// The arguments of a call or a signal, or what a call returned, in order.
using Arguments = std::vector<Value>;

/// The value in the shape T, or null when it has another.
template <class T>
const T* as(const Value& value) {
  return std::get_if<T>(&value.shape);
}

/// The same for the entry `name`; null too when there is none.
template <class T>
const T* find(const Dictionary& dictionary, const std::string& name) {
  const auto found = dictionary.find(name);
  return found == dictionary.end() ? nullptr : as<T>(found->second);
}

/// The same for the argument at `index`.
template <class T>
const T* at(const Arguments& arguments, std::size_t index) {
  return index < arguments.size() ? as<T>(arguments[index]) : nullptr;
}

}  // namespace Zephly::bluez
