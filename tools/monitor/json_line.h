// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Writes one JSON object on one line.
///
///   JsonLine(1200ms, "ecg").number("value", 0.1F).text();   // {"t":1.2,"event":"ecg","value":0.1}
///
/// A float is written with the fewest digits that give exactly this float again. NaN and
/// infinities, which JSON has no numbers for, become the strings "nan", "inf" and "-inf". Text that
/// is not UTF-8 is replaced by the replacement character.

#include <tools/common/json_object.h>
#include <zephly/protocol/strap_time.h>

#include <optional>
#include <string>
#include <string_view>

namespace Zephly::monitor {

class JsonLine {
 public:
  JsonLine(StrapTime time, std::string_view event);

  JsonLine& number(std::string_view key, float value);
  /// As a float; null without a value.
  JsonLine& number(std::string_view key, const std::optional<double>& value);
  JsonLine& boolean(std::string_view key, bool value);
  JsonLine& string(std::string_view key, std::string_view value);
  /// `json` is JSON already.
  JsonLine& raw(std::string_view key, std::string_view json);

  /// The whole line, its end included.
  std::string text() const;

 private:
  tools::JsonObject object_;
};

/// Seconds, exact to the nanosecond, without superfluous zeros: "1.012", "30".
std::string jsonSeconds(StrapTime time);

}  // namespace Zephly::monitor
