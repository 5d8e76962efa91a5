#include <tools/monitor/options.h>

#include <tools/option_values.h>

#include <CLI/CLI.hpp>

#include <cmath>
#include <string>

namespace Zephly::monitor {

namespace {

using tools::addFlag;
using tools::addValue;

double speed(const std::string& text) {
  const auto number = tools::parseNumber<double>(text);
  if (!number || !std::isfinite(*number) || *number <= 0) {
    tools::rejectValue("--speed", "a number greater than 0", text);
  }
  return *number;
}

bluez::Notifications notifications(const std::string& text) {
  if (text == "signals") return bluez::Notifications::signals;
  if (text == "descriptors") return bluez::Notifications::descriptors;
  tools::rejectValue("--notifications", "signals or descriptors", text);
}

void addSimulatedOptions(CLI::App& command, Options& options, CLI::Option* simulated) {
  addValue(command, "--seed", "N",
           "The simulated strap's seed: same seed, same session (default 1)",
           [&](const std::string& text) { options.seed = tools::seedValue("--seed", text); })
      ->needs(simulated);
  addValue(command, "--speed", "X",
           "How much faster than the clock on the wall the simulation runs (default 1)",
           [&](const std::string& text) { options.speed = speed(text); })
      ->needs(simulated);
  addValue(
      command, "--recording", "FILE",
      "Let the simulated strap play a CSV file (columns ECG, RSP, skin temperature, "
      "accelerometer and gyroscope); ends with it",
      [&](const std::string& text) { options.recording = tools::fileValue("--recording", text); })
      ->needs(simulated);
  addValue(
      command, "--rate", "HZ", "Rows per second of the recording",
      [&](const std::string& text) { options.rowsPerSecond = tools::rowRateValue("--rate", text); })
      ->needs(simulated);
}

void addBluetoothOptions(CLI::App& command, Options& options, CLI::Option* simulated) {
  addValue(
      command, "--adapter", "hciN|ADDRESS",
      "The Bluetooth adapter (default: the first one that is switched on)",
      [&](const std::string& text) { options.adapter = tools::adapterValue("--adapter", text); })
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
           [&](const std::string& text) {
             options.duration = tools::secondsValue("--duration", text, tools::shortestDuration);
           });
  addFlag(command, "--json", options.json,
          "Write one JSON object a line (always so when standard output is no terminal)");
  addValue(command, "--diagnostics", "FILE", "Write the kit's own diagnostic lines to a file",
           [&](const std::string& text) {
             options.diagnostics = tools::fileValue("--diagnostics", text);
           });
  addFlag(command, "--require-all", options.requireAll,
          "Exit with 1 unless every kind of callback arrived and nothing was lost");
}

void checkTogether(const Options& options) {
  // CLI11 would leave out the name of what it does not show.
  if (options.simulated && !options.busAddress.empty()) {
    throw CLI::ValidationError("--simulated", "excludes --bus");
  }
  tools::checkRecording(options.recording.has_value(), options.rowsPerSecond.has_value());
}

}  // namespace Zephly::monitor
