#include <tools/watch/source_options.h>

#include <tools/option_values.h>
#include <tools/watch/bluetooth_source.h>
#include <tools/watch/simulated_source.h>

#include <CLI/CLI.hpp>

#include <cmath>
#include <utility>

namespace Zephly::watch {

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

void addSimulatedOptions(CLI::App& command, SourceOptions& options, CLI::Option* simulated) {
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

void addBluetoothOptions(CLI::App& command, SourceOptions& options, CLI::Option* simulated) {
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

std::shared_ptr<const strap::Recording> load(const SourceOptions& options) {
  if (!options.recording) return nullptr;
  return std::make_shared<const strap::Recording>(
      strap::Recording::load(*options.recording, *options.rowsPerSecond));
}

SimulatedOptions simulatedOptions(const SourceOptions& options) {
  return {.seed = options.seed,
          .speed = options.speed,
          .duration = options.duration,
          .recording = load(options),
          .recordingName = options.recording.value_or("").filename().string()};
}

BluetoothOptions bluetoothOptions(const SourceOptions& options) {
  return {.adapter = options.adapter,
          .busAddress = options.busAddress,
          .notifications = options.notifications,
          .duration = options.duration};
}

}  // namespace

void addSourceOptions(CLI::App& command, SourceOptions& options) {
  CLI::Option* simulated =
      addFlag(command, "--simulated", options.simulated,
              "Watch a strap made of software instead of a real one over Bluetooth");
  addSimulatedOptions(command, options, simulated);
  addBluetoothOptions(command, options, simulated);
  addValue(command, "--duration", "S", "End after S seconds (of strap time when it is simulated)",
           [&](const std::string& text) {
             options.duration = tools::secondsValue("--duration", text, tools::shortestDuration);
           });
}

void checkTogether(const SourceOptions& options) {
  // CLI11 would leave out the name of what it does not show.
  if (options.simulated && !options.busAddress.empty()) {
    throw CLI::ValidationError("--simulated", "excludes --bus");
  }
  tools::checkRecording(options.recording.has_value(), options.rowsPerSecond.has_value());
}

std::unique_ptr<Source> makeSource(main_queue::MainQueue& queue, const SourceOptions& options,
                                   std::function<void(std::string_view)> report,
                                   std::function<void()> ended) {
  if (options.simulated) {
    return std::make_unique<SimulatedSource>(queue, simulatedOptions(options), std::move(ended));
  }
  return std::make_unique<BluetoothSource>(queue, bluetoothOptions(options), std::move(report),
                                           std::move(ended));
}

}  // namespace Zephly::watch
