// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Checks the values of options. A wrong value ends the parsing with a CLI::ValidationError of one
/// line with the expected and the given value.

#include <capture/format.h>
#include <zephly/protocol/strap_time.h>

#include <charconv>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace Zephly::tools {

/// Longest time that an option accepts, in seconds; a 64-bit count of nanoseconds holds it.
inline constexpr double longestTime = capture::longestTime;
/// Shortest value of --duration, in seconds.
inline constexpr double shortestDuration = 1e-9;

/// The whole text as a number, independent of the locale; empty when it is not a number.
template <class Number>
std::optional<Number> parseNumber(std::string_view text) {
  Number number{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

/// The message for an option without its value, or with a second one.
inline constexpr const char* exactlyOneValue = "expected exactly one value, and once only";

[[noreturn]] void rejectValue(const std::string& option, const std::string& expected,
                              const std::string& text);

std::uint64_t seedValue(const std::string& option, const std::string& text);
/// A time from `shortest` to longestTime, both in seconds: "90", "1.5", "10m", "1h30m", "0:30" (a
/// minute has 60 s, so this is 30 s) or "1:30:00".
StrapTime timeValue(const std::string& option, const std::string& text, double shortest);
/// Rows per second of a recording.
double rowRateValue(const std::string& option, const std::string& text);
/// A Bluetooth adapter: "hci0", or an address in BlueZ's form, in upper or lower case.
std::string adapterValue(const std::string& option, const std::string& text);
std::filesystem::path fileValue(const std::string& option, const std::string& text);

/// --recording and --rate need each other. Throws CLI::ValidationError otherwise.
void checkRecording(bool recording, bool rate);

/// Declares an option and passes its value to `take`; `type` is the value's name in the help text.
CLI::Option* addValue(CLI::App& command, const std::string& name, const std::string& type,
                      const std::string& help, const std::function<void(const std::string&)>& take);
CLI::Option* addFlag(CLI::App& command, const std::string& name, bool& value,
                     const std::string& help);

}  // namespace Zephly::tools
