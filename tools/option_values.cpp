#include <tools/option_values.h>

#include <strap/recording.h>

#include <CLI/CLI.hpp>

#include <array>
#include <chrono>
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

}  // namespace

void rejectValue(const std::string& option, const std::string& expected, const std::string& text) {
  throw CLI::ValidationError(option, "expected " + expected + ", got \"" + text + "\"");
}

std::uint64_t seedValue(const std::string& option, const std::string& text) {
  const auto number = parseNumber<std::uint64_t>(text);
  if (!number) rejectValue(option, "a whole number from 0 to 18446744073709551615", text);
  return *number;
}

strap::StrapTime secondsValue(const std::string& option, const std::string& text, double shortest) {
  const auto number = parseNumber<double>(text);
  // NaN fails both comparisons.
  if (!number || !(*number >= shortest && *number <= longestTime)) {
    rejectValue(option, "a number of seconds from " + plain(shortest) + " to " + plain(longestTime),
                text);
  }
  return std::chrono::duration_cast<strap::StrapTime>(std::chrono::duration<double>(*number));
}

double rowRateValue(const std::string& option, const std::string& text) {
  const auto number = parseNumber<double>(text);
  if (!number ||
      !(*number >= strap::Recording::slowestRate && *number <= strap::Recording::fastestRate)) {
    rejectValue(option,
                "a number of rows per second from " + plain(strap::Recording::slowestRate) +
                    " to " + plain(strap::Recording::fastestRate),
                text);
  }
  return *number;
}

std::filesystem::path fileValue(const std::string& option, const std::string& text) {
  if (text.empty()) rejectValue(option, "the name of a file", text);
  return text;
}

void addValue(CLI::App& command, const std::string& name, const std::string& type,
              const std::string& help, const std::function<void(const std::string&)>& take) {
  command.add_option_function<std::string>(name, take, help)->type_name(type);
}

void addFlag(CLI::App& command, const std::string& name, bool& value, const std::string& help) {
  command.add_flag(name, value, help)->disable_flag_override();
}

}  // namespace Zephly::tools
