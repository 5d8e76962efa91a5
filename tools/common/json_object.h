// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Writes JSON, member by member.
///
///   JsonArray losses;
///   losses.add(JsonObject().add("t", 1.5).add("reason", std::optional<std::string>()));
///   JsonObject().add("losses", losses).text();   // {"losses":[{"t":1.5,"reason":null}]}
///
/// Numbers have the fewest digits that give exactly this double again; those that are not finite
/// become null. Text that is not UTF-8 gets the replacement character.
///
/// Only text is kept. A tree of the JSON library's objects allocates memory in its destructor,
/// which ends the program when there is none.

#include <concepts>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace Zephly::tools {

/// Text in quotes, escaped.
std::string jsonString(std::string_view text);
std::string jsonNumber(double number);

inline std::string jsonValue(std::string_view text) { return jsonString(text); }
inline std::string jsonValue(const std::string& text) { return jsonString(text); }
inline std::string jsonValue(const char* text) { return jsonString(text); }
inline std::string jsonValue(std::same_as<bool> auto value) { return value ? "true" : "false"; }
inline std::string jsonValue(std::floating_point auto number) { return jsonNumber(number); }
template <std::integral Number>
requires(!std::same_as<Number, bool>) std::string jsonValue(Number number) {
  return std::to_string(number);
}

class JsonArray;
class JsonObject;
std::string jsonValue(const JsonArray& array);
std::string jsonValue(const JsonObject& object);

/// null in place of no value.
template <class Value>
std::string jsonValue(const std::optional<Value>& value) {
  return value ? jsonValue(*value) : "null";
}

class JsonArray {
 public:
  template <class Value>
  JsonArray& add(const Value& value) {
    if (!elements_.empty()) elements_ += ',';
    elements_ += jsonValue(value);
    return *this;
  }

  std::string text() const { return "[" + elements_ + "]"; }

 private:
  std::string elements_;
};

class JsonObject {
 public:
  /// `name` needs no escapes, and is not in the object yet.
  template <class Value>
  JsonObject& add(std::string_view name, const Value& value) {
    return raw(name, jsonValue(value));
  }

  /// `json` is JSON already.
  JsonObject& raw(std::string_view name, std::string_view json);

  std::string text() const { return "{" + members_ + "}"; }

 private:
  std::string members_;
};

}  // namespace Zephly::tools
