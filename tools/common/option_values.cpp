// SPDX-License-Identifier: MIT
#include <tools/common/option_values.h>

#include <simulator/recording.h>
#include <zephly/protocol/strap_time.h>

#include <CLI/CLI.hpp>

#include <array>
#include <cctype>
#include <chrono>
#include <cmath>
#include <utility>

namespace Zephly::tools {

namespace {

// Without superfluous zeros: "0.000000001", "3600".
std::string plain(double number) {
  constexpr int nanosecond = 9;
  std::string text = CLI::detail::to_string(number);
  if (text.find('e') != std::string::npos) {
    std::array<char, 64> digits{};
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number,
                                   std::chars_format::fixed, nanosecond);
    text.assign(digits.data(), end.ptr);
    text.erase(text.find_last_not_of('0') + 1);
    if (text.back() == '.') text.pop_back();
  }
  return text;
}

constexpr double minute = 60;
constexpr double hour = 3600;

// Seconds: "90", "10m", "1h30m". Each unit once, the largest first.
std::optional<double> unitTime(std::string_view text) {
  if (const auto seconds = parseNumber<double>(text)) return seconds;
  constexpr std::array<std::pair<char, double>, 3> units = {{{'h', hour}, {'m', minute}, {'s', 1}}};
  double sum = 0;
  for (const auto& [letter, seconds] : units) {
    const std::size_t end = text.find(letter);
    if (end == std::string_view::npos) continue;
    const auto number = parseNumber<double>(text.substr(0, end));
    if (!number || *number < 0) return std::nullopt;
    sum += *number * seconds;
    text.remove_prefix(end + 1);
    if (text.empty()) return sum;
  }
  return std::nullopt;
}

// Seconds: "0:30", "1:30:00.5". Every part but the first is less than 60.
std::optional<double> clockTime(std::string_view text) {
  double sum = 0;
  for (int parts = 1; parts <= 3; ++parts) {
    const std::size_t end = text.find(':');
    const std::string_view part = text.substr(0, end);
    const bool last = end == std::string_view::npos;
    std::optional<double> number = parseNumber<std::uint32_t>(part);
    if (last) number = parseNumber<double>(part);
    if (!number || !(*number >= 0) || (parts > 1 && *number >= minute)) return std::nullopt;
    sum = sum * minute + *number;
    if (last) return sum;
    text.remove_prefix(end + 1);
  }
  return std::nullopt;
}

bool isAdapterNumber(std::string_view text) {
  constexpr std::string_view prefix = "hci";
  return text.substr(0, prefix.size()) == prefix &&
         parseNumber<std::uint16_t>(text.substr(prefix.size())).has_value();
}

// "00:1A:7D:DA:71:13"
bool isAddress(std::string_view text) {
  constexpr std::size_t length = 17;
  if (text.size() != length) return false;
  for (std::size_t i = 0; i < length; ++i) {
    const bool right =
        i % 3 == 2 ? text[i] == ':' : std::isxdigit(static_cast<unsigned char>(text[i])) != 0;
    if (!right) return false;
  }
  return true;
}

}  // namespace

void rejectValue(const std::string& option, const std::string& expected, const std::string& text) {
  throw CLI::ValidationError(option, "expected " + expected + ", got \"" + text + "\"");
}

std::uint64_t seedValue(const std::string& option, const std::string& text) {
  const auto number = parseNumber<std::uint64_t>(text);
  if (!number) rejectValue(option, "a whole number from 0 to 18446744073709551615", text);
  return *number;
}

StrapTime timeValue(const std::string& option, const std::string& text, double shortest) {
  const auto seconds = text.find(':') == std::string::npos ? unitTime(text) : clockTime(text);
  if (!seconds || !std::isfinite(*seconds) || *seconds < 0) {
    rejectValue(option, "a time like 90, 10m, 1h30m or 1:30:00", text);
  }
  if (*seconds < shortest) rejectValue(option, "a time greater than 0", text);
  if (*seconds > longestTime) rejectValue(option, "a time of at most 31 years", text);
  return std::chrono::duration_cast<StrapTime>(std::chrono::duration<double>(*seconds));
}

double rowRateValue(const std::string& option, const std::string& text) {
  const auto number = parseNumber<double>(text);
  if (!number || !(*number >= simulator::Recording::slowestRate &&
                   *number <= simulator::Recording::fastestRate)) {
    rejectValue(option,
                "a number of rows per second from " + plain(simulator::Recording::slowestRate) +
                    " to " + plain(simulator::Recording::fastestRate),
                text);
  }
  return *number;
}

std::string adapterValue(const std::string& option, const std::string& text) {
  if (!isAdapterNumber(text) && !isAddress(text)) {
    rejectValue(option, "hciN or an address like 00:1A:7D:DA:71:13", text);
  }
  return text;
}

std::filesystem::path fileValue(const std::string& option, const std::string& text) {
  if (text.empty()) rejectValue(option, "the name of a file", text);
  return text;
}

void checkRecording(bool recording, bool rate) {
  if (recording && !rate) {
    throw CLI::ValidationError("--recording", "needs --rate HZ, the file's rows per second");
  }
  if (rate && !recording) {
    throw CLI::ValidationError("--rate", "needs --recording FILE");
  }
}

CLI::Option* addValue(CLI::App& command, const std::string& name, const std::string& type,
                      const std::string& help,
                      const std::function<void(const std::string&)>& take) {
  // TakeAll hands over all values, so that the message about a second one is written here.
  const auto takeOnly = [name, take](const CLI::results_t& values) {
    if (values.size() != 1) throw CLI::ValidationError(name, exactlyOneValue);
    take(values.front());
    return true;
  };
  return command.add_option(name, takeOnly, help)
      ->type_name(type)
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
}

CLI::Option* addFlag(CLI::App& command, const std::string& name, bool& value,
                     const std::string& help) {
  return command.add_flag(name, value, help)->check([](const std::string& text) {
    return text == "true" ? std::string() : std::string("expected no value");
  });
}

}  // namespace Zephly::tools
