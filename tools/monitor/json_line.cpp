// SPDX-License-Identifier: MIT
#include <tools/monitor/json_line.h>

#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>

namespace Zephly::monitor {

namespace {

std::string nonFinite(float value) {
  if (std::isnan(value)) return "\"nan\"";
  return value > 0 ? "\"inf\"" : "\"-inf\"";
}

}  // namespace

std::string jsonSeconds(StrapTime time) {
  constexpr std::int64_t second = 1'000'000'000;
  const std::int64_t nanoseconds = time.count();
  std::string text = nanoseconds < 0 ? "-" : "";
  const std::int64_t magnitude = nanoseconds < 0 ? -nanoseconds : nanoseconds;
  text += std::to_string(magnitude / second);
  if (magnitude % second == 0) return text;
  // The leading 1 keeps the zeros after the point; substr() removes it.
  const std::string fraction = std::to_string(second + magnitude % second).substr(1);
  return text + "." + fraction.substr(0, fraction.find_last_not_of('0') + 1);
}

JsonLine::JsonLine(StrapTime time, std::string_view event) {
  raw("t", jsonSeconds(time));
  string("event", event);
}

JsonLine& JsonLine::number(std::string_view name, float value) {
  if (!std::isfinite(value)) return raw(name, nonFinite(value));
  std::array<char, 32> digits{};
  const auto result = std::to_chars(digits.data(), digits.data() + digits.size(), value);
  return raw(name, {digits.data(), static_cast<std::size_t>(result.ptr - digits.data())});
}

JsonLine& JsonLine::number(std::string_view name, const std::optional<double>& value) {
  return value ? number(name, static_cast<float>(*value)) : raw(name, "null");
}

JsonLine& JsonLine::boolean(std::string_view name, bool value) {
  object_.add(name, value);
  return *this;
}

JsonLine& JsonLine::string(std::string_view name, std::string_view value) {
  object_.add(name, value);
  return *this;
}

JsonLine& JsonLine::raw(std::string_view name, std::string_view json) {
  object_.raw(name, json);
  return *this;
}

std::string JsonLine::text() const { return object_.text() + "\n"; }

}  // namespace Zephly::monitor
