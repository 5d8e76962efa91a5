// SPDX-License-Identifier: MIT
#include <hosts/bluez/bus_message.h>

#include <hosts/bluez/sdbus_version.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <variant>

namespace Zephly::bluez {

namespace {

using sdbus_version::Next;
using sdbus_version::peek;

template <class... Cases>
struct Overloaded : Cases... {
  using Cases::operator()...;
};
template <class... Cases>
Overloaded(Cases...) -> Overloaded<Cases...>;

// Reading ----------------------------------------------------------------------------------------

Value readValue(sdbus::Message& message);

// A signature as both versions of the library take it: 1 as a string, 2 as characters.
const char* characters(const std::string& signature) { return signature.c_str(); }

template <class T>
T readBasic(sdbus::Message& message) {
  T value{};
  message >> value;
  return value;
}

Bytes readBytes(sdbus::Message& message) {
  Bytes bytes;
  message >> bytes;
  return bytes;
}

Value readDictionary(sdbus::Message& message, const std::string& entry) {
  Dictionary dictionary;
  bool named = true;
  message.enterContainer(characters(entry));
  const std::string contents = entry.substr(1, entry.size() - 2);
  while (peek(message).type != '\0') {
    message.enterDictEntry(characters(contents));
    Value key = readValue(message);
    Value value = readValue(message);
    message.exitDictEntry();
    if (auto* name = std::get_if<std::string>(&key.shape)) {
      dictionary.insert_or_assign(std::move(*name), std::move(value));
    } else {
      named = false;
    }
  }
  // Reading to the end has set the mark that a last reading failed.
  message.clearFlags();
  message.exitContainer();
  return named ? Value(std::move(dictionary)) : Value();
}

Value readArray(sdbus::Message& message, const std::string& element) {
  if (element == "y") return readBytes(message);
  if (!element.empty() && element.front() == '{') return readDictionary(message, element);
  const bool texts = element == "s" || element == "o" || element == "g";
  Strings strings;
  message.enterContainer(characters(element));
  while (peek(message).type != '\0') {
    Value value = readValue(message);
    if (auto* text = std::get_if<std::string>(&value.shape)) strings.push_back(std::move(*text));
  }
  message.clearFlags();
  message.exitContainer();
  return texts ? Value(std::move(strings)) : Value();
}

Value readStruct(sdbus::Message& message, const std::string& contents) {
  message.enterStruct(characters(contents));
  while (peek(message).type != '\0') readValue(message);
  message.clearFlags();
  message.exitStruct();
  return {};
}

Value readVariant(sdbus::Message& message, const std::string& contents) {
  message.enterVariant(characters(contents));
  Value value = readValue(message);
  message.exitVariant();
  return value;
}

Value readValue(sdbus::Message& message) {
  const Next next = peek(message);
  switch (next.type) {
    case 'b':
      return readBasic<bool>(message);
    case 'y':
      return std::int64_t{readBasic<std::uint8_t>(message)};
    case 'n':
      return std::int64_t{readBasic<std::int16_t>(message)};
    case 'q':
      return std::int64_t{readBasic<std::uint16_t>(message)};
    case 'i':
      return std::int64_t{readBasic<std::int32_t>(message)};
    case 'u':
      return std::int64_t{readBasic<std::uint32_t>(message)};
    case 'x':
      return readBasic<std::int64_t>(message);
    case 't':
      return static_cast<std::int64_t>(readBasic<std::uint64_t>(message));
    case 'd':
      return readBasic<double>(message);
    case 's':
      return readBasic<std::string>(message);
    case 'o':
      return std::string(readBasic<sdbus::ObjectPath>(message));
    case 'g':
      return std::string(readBasic<sdbus::Signature>(message));
    case 'h': {
      auto descriptor = readBasic<sdbus::UnixFd>(message);
      return std::make_shared<main_queue::FileDescriptor>(descriptor.release());
    }
    case 'a':
      return readArray(message, next.contents);
    case 'r':
      return readStruct(message, next.contents);
    case 'v':
      return readVariant(message, next.contents);
    default:
      throw sdbus_version::error("org.freedesktop.DBus.Error.InvalidSignature", "unknown type");
  }
}

// Writing ----------------------------------------------------------------------------------------

const char* signatureOf(const Value& value) {
  return std::visit(
      Overloaded{[](bool) { return "b"; }, [](std::int64_t) { return "x"; },
                 [](std::uint16_t) { return "q"; }, [](std::uint32_t) { return "u"; },
                 [](const std::string&) { return "s"; }, [](const ObjectPath&) { return "o"; },
                 [](const Bytes&) { return "ay"; }, [](const Strings&) { return "as"; },
                 [](const Dictionary&) { return "a{sv}"; }, [](const Descriptor&) { return "h"; },
                 [](const Variant&) { return "v"; },
                 [](const auto&) -> const char* {
                   throw sdbus_version::error("org.freedesktop.DBus.Error.InvalidArgs",
                                              "a value of this shape cannot be sent");
                 }},
      value.shape);
}

void writeVariant(sdbus::Message& message, const Value& value) {
  message.openVariant(signatureOf(value));
  writeValue(message, value);
  message.closeVariant();
}

}  // namespace

Arguments readAll(sdbus::Message& message) {
  Arguments arguments;
  try {
    while (peek(message).type != '\0') arguments.push_back(readValue(message));
  } catch (const sdbus::Error&) {
    return arguments;
  }
  return arguments;
}

void writeValue(sdbus::Message& message, const Value& value) {
  std::visit(
      Overloaded{[&](bool flag) { message << flag; },
                 [&](std::int64_t number) { message << number; },
                 [&](std::uint16_t number) { message << number; },
                 [&](std::uint32_t number) { message << number; },
                 [&](const std::string& text) { message << text; },
                 [&](const ObjectPath& path) { message << sdbus::ObjectPath(path.path); },
                 [&](const Bytes& bytes) { message << bytes; },
                 [&](const Strings& strings) { message << strings; },
                 [&](const Dictionary& dictionary) {
                   message.openContainer("{sv}");
                   for (const auto& [name, entry] : dictionary) {
                     message.openDictEntry("sv");
                     message << name;
                     writeVariant(message, entry);
                     message.closeDictEntry();
                   }
                   message.closeContainer();
                 },
                 [&](const Descriptor& descriptor) { message << sdbus::UnixFd(descriptor->get()); },
                 [&](const Variant& variant) { writeVariant(message, *variant.value); },
                 [&](const auto&) { static_cast<void>(signatureOf(value)); }},
      value.shape);
}

void writeAll(sdbus::Message& message, const Arguments& arguments) {
  for (const Value& value : arguments) writeValue(message, value);
}

}  // namespace Zephly::bluez
