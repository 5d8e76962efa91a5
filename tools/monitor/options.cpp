#include <tools/monitor/options.h>

#include <strap/recording.h>

#include <CLI/CLI.hpp>

#include <charconv>
#include <chrono>
#include <cmath>
#include <regex>
#include <string>
#include <string_view>
#include <system_error>

namespace Zephly::monitor {

namespace {

// The whole text as a number, whatever the locale; empty when it is none.
template <class Number>
std::optional<Number> parseNumber(std::string_view text) {
  Number number{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

[[noreturn]] void reject(const std::string& option, const std::string& expected,
                         const std::string& text) {
  throw CLI::ValidationError(option, "expected " + expected + ", got \"" + text + "\"");
}

std::string plain(double number) {
  std::string text = std::to_string(number);
  text.erase(text.find_last_not_of('0') + 1);
  if (text.back() == '.') text.pop_back();
  return text;
}

std::uint64_t seed(const std::string& text) {
  const auto number = parseNumber<std::uint64_t>(text);
  if (!number) reject("--seed", "a whole number from 0 to 18446744073709551615", text);
  return *number;
}

double speed(const std::string& text) {
  const auto number = parseNumber<double>(text);
  if (!number || !std::isfinite(*number) || *number <= 0) {
    reject("--speed", "a number greater than 0", text);
  }
  return *number;
}

strap::StrapTime duration(const std::string& text) {
  const auto number = parseNumber<double>(text);
  // NaN fails both comparisons.
  if (!number || !(*number >= 1e-9 && *number <= Options::longestDuration)) {
    reject("--duration",
           "a number of seconds from 0.000000001 to " + plain(Options::longestDuration), text);
  }
  return std::chrono::duration_cast<strap::StrapTime>(std::chrono::duration<double>(*number));
}

double rate(const std::string& text) {
  const auto number = parseNumber<double>(text);
  if (!number ||
      !(*number >= strap::Recording::slowestRate && *number <= strap::Recording::fastestRate)) {
    reject("--rate",
           "a number of rows per second from " + plain(strap::Recording::slowestRate) + " to " +
               plain(strap::Recording::fastestRate),
           text);
  }
  return *number;
}

std::filesystem::path file(const std::string& option, const std::string& text) {
  if (text.empty()) reject(option, "the name of a file", text);
  return text;
}

// "hci0", or an address as bluetoothctl prints it.
std::string adapter(const std::string& text) {
  static const std::regex name("hci[0-9]{1,5}|([0-9A-Fa-f]{2}:){5}[0-9A-Fa-f]{2}");
  if (!std::regex_match(text, name)) {
    reject("--adapter", "hciN or an address like 00:1A:7D:DA:71:13", text);
  }
  return text;
}

bluez::Notifications notifications(const std::string& text) {
  if (text == "signals") return bluez::Notifications::signals;
  if (text == "descriptors") return bluez::Notifications::descriptors;
  reject("--notifications", "signals or descriptors", text);
}

// The types in the help text are the placeholders of the values.
template <class Convert>
CLI::Option* addValue(CLI::App& command, const std::string& name, const std::string& type,
                      const std::string& help, Convert convert) {
  return command.add_option_function<std::string>(name, convert, help)->type_name(type);
}

CLI::Option* addFlag(CLI::App& command, const std::string& name, bool& value,
                     const std::string& help) {
  return command.add_flag(name, value, help)->disable_flag_override();
}

void addSimulatedOptions(CLI::App& command, Options& options, CLI::Option* simulated) {
  addValue(command, "--seed", "N",
           "The simulated strap's seed: same seed, same session (default 1)",
           [&](const std::string& text) { options.seed = seed(text); })
      ->needs(simulated);
  addValue(command, "--speed", "X",
           "How much faster than the clock on the wall the simulation runs (default 1)",
           [&](const std::string& text) { options.speed = speed(text); })
      ->needs(simulated);
  addValue(command, "--recording", "FILE",
           "Let the simulated strap play a CSV file (columns ECG, RSP, skin temperature, "
           "accelerometer and gyroscope); ends with it",
           [&](const std::string& text) { options.recording = file("--recording", text); })
      ->needs(simulated);
  addValue(command, "--rate", "HZ", "Rows per second of the recording",
           [&](const std::string& text) { options.rowsPerSecond = rate(text); })
      ->needs(simulated);
}

void addBluetoothOptions(CLI::App& command, Options& options, CLI::Option* simulated) {
  addValue(command, "--adapter", "hciN|ADDRESS",
           "The Bluetooth adapter (default: the first one that is switched on)",
           [&](const std::string& text) { options.adapter = adapter(text); })
      ->excludes(simulated);
  addValue(command, "--notifications", "signals|descriptors",
           "How the strap's data come from bluetoothd (default: signals)",
           [&](const std::string& text) { options.notifications = notifications(text); })
      ->excludes(simulated);
  // Without a group it is not in the help text.
  addValue(command, "--bus", "ADDRESS", "D-Bus address of another bus than the system's",
           [&](const std::string& text) { options.busAddress = text; })
      ->group("");
}

}  // namespace

void addOptions(CLI::App& command, Options& options) {
  CLI::Option* simulated =
      addFlag(command, "--simulated", options.simulated,
              "Watch a strap made of software instead of a real one over Bluetooth");
  addSimulatedOptions(command, options, simulated);
  addBluetoothOptions(command, options, simulated);
  addValue(command, "--duration", "S", "End after S seconds (of strap time when it is simulated)",
           [&](const std::string& text) { options.duration = duration(text); });
  addFlag(command, "--json", options.json,
          "Write one JSON object a line (always so when standard output is no terminal)");
  addValue(command, "--diagnostics", "FILE", "Write the kit's own diagnostic lines to a file",
           [&](const std::string& text) { options.diagnostics = file("--diagnostics", text); });
  addFlag(command, "--require-all", options.requireAll,
          "Exit with 1 unless every kind of callback arrived and nothing was lost");
}

void checkTogether(const Options& options) {
  // CLI11 would leave out the name of what it does not show.
  if (options.simulated && !options.busAddress.empty()) {
    throw CLI::ValidationError("--simulated", "excludes --bus");
  }
  if (options.recording && !options.rowsPerSecond) {
    throw CLI::ValidationError("--recording", "needs --rate HZ, the file's rows per second");
  }
  if (options.rowsPerSecond && !options.recording) {
    throw CLI::ValidationError("--rate", "needs --recording FILE, whose rows per second it tells");
  }
}

}  // namespace Zephly::monitor
