// SPDX-License-Identifier: MIT
#include <tools/watch/source_options.h>

#include <tools/common/bluetooth_options.h>
#include <tools/common/option_values.h>
#include <tools/watch/bluetooth_source.h>
#include <tools/watch/replay_source.h>
#include <tools/watch/simulated_source.h>

#include <CLI/CLI.hpp>

#include <cmath>
#include <stdexcept>
#include <utility>
#include <vector>

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

void takeCapture(SourceOptions& options, const std::string& name, const std::string& text) {
  options.replay = tools::fileValue(name, text);
}

CLI::Option* addSpeed(CLI::App& command, SourceOptions& options, const std::string& help) {
  return addValue(command, "--speed", "X", help,
                  [&](const std::string& text) { options.speed = speed(text); });
}

CLI::Option* addFast(CLI::App& command, SourceOptions& options, CLI::Option* speedOption) {
  return addFlag(command, "--fast", options.fast, "Play as fast as possible")
      ->excludes(speedOption);
}

void addSimulatedOptions(CLI::App& command, SourceOptions& options, CLI::Option* simulated) {
  addValue(command, "--seed", "N",
           "The seed of the simulation: same seed, same session (default 1)",
           [&](const std::string& text) { options.seed = tools::seedValue("--seed", text); })
      ->needs(simulated);
  addValue(
      command, "--recording", "FILE",
      "Play the signals of a CSV file of at most 1 GiB, then end; needs --rate",
      [&](const std::string& text) { options.recording = tools::fileValue("--recording", text); })
      ->needs(simulated);
  addValue(
      command, "--rate", "HZ", "Rows per second of the recording",
      [&](const std::string& text) { options.rowsPerSecond = tools::rowRateValue("--rate", text); })
      ->needs(simulated);
}

// `others`: the options that choose another source than Bluetooth.
void addBluetoothSourceOptions(CLI::App& command, SourceOptions& options,
                               const std::vector<CLI::Option*>& others) {
  CLI::Option* adapter = tools::addBluetoothOptions(command, options.bluetooth);
  CLI::Option* notifications = tools::addNotificationsOption(command, options.bluetooth);
  for (CLI::Option* other : others) {
    adapter->excludes(other);
    notifications->excludes(other);
  }
}

SimulatedOptions simulatedOptions(const SourceOptions& options) {
  if (options.recording && !options.loaded) {
    throw std::logic_error("the recording has not been loaded");
  }
  return {.seed = options.seed,
          .speed = options.speed.value_or(1),
          .duration = options.duration,
          .recording = options.loaded,
          .recordingName = options.recording.value_or("").filename().string()};
}

bluez::Options bluetoothOptions(const SourceOptions& options,
                                std::function<void(std::string_view)> report) {
  bluez::Options bluetooth = options.bluetooth;
  // The command handles the signals itself and calls finish().
  bluetooth.releaseOn = {};
  bluetooth.report = std::move(report);
  return bluetooth;
}

ReplayOptions replayOptions(const SourceOptions& options) {
  ReplayOptions replay{.file = *options.replay, .from = options.from, .duration = options.duration};
  replay.speed = options.fast ? std::nullopt : std::optional(options.speed.value_or(1));
  return replay;
}

}  // namespace

void addSourceOptions(CLI::App& command, SourceOptions& options, Captures captures) {
  CLI::Option* simulated = addFlag(command, "--simulated", options.simulated,
                                   "Use a simulated strap instead of a real one");
  std::vector<CLI::Option*> others = {simulated};
  addSimulatedOptions(command, options, simulated);
  if (captures == Captures::refused) {
    addSpeed(command, options, "Simulate X times as fast as real time (default 1)")
        ->needs(simulated);
  } else {
    CLI::Option* replay =
        addValue(command, "--replay", "FILE", "Play a capture (.zcap) instead of watching a strap",
                 [&](const std::string& text) { takeCapture(options, "--replay", text); })
            ->excludes(simulated);
    // It goes with either; checkTogether() checks that one of them is given.
    CLI::Option* speed =
        addSpeed(command, options, "Simulate or play X times as fast as real time (default 1)");
    CLI::Option* fast = addFast(command, options, speed)->needs(replay);
    addValue(command, "--from", "TIME",
             "Begin at this moment of the capture: 90, 10m, 1h30m or 1:30:00",
             [&](const std::string& text) { options.from = tools::timeValue("--from", text, 0); })
        ->needs(replay)
        ->excludes(fast);
    others.push_back(replay);
  }
  addBluetoothSourceOptions(command, options, others);
  addValue(command, "--duration", "TIME",
           "End after TIME: 90, 10m, 1h30m or 1:30:00 (strap time when it is simulated" +
               std::string(captures == Captures::offered ? " or replayed)" : ")"),
           [&](const std::string& text) {
             options.duration = tools::timeValue("--duration", text, tools::shortestDuration);
           });
}

void addCaptureOptions(CLI::App& command, SourceOptions& options) {
  addValue(command, "FILE", "", "The capture (.zcap)", [&](const std::string& text) {
    takeCapture(options, "FILE", text);
  })->required();
  CLI::Option* speed = addSpeed(command, options, "Play X times as fast as recorded (default 1)");
  addFast(command, options, speed);
}

void checkTogether(const SourceOptions& options) {
  const bool real = !options.simulated && !options.replay;
  if (options.speed && real) {
    throw CLI::ValidationError("--speed", "requires --simulated or --replay");
  }
  // Not by excludes(): CLI11's message leaves out the name of an option without a group.
  if (!real && !options.bluetooth.busAddress.empty()) {
    throw CLI::ValidationError(options.simulated ? "--simulated" : "--replay", "excludes --bus");
  }
  tools::checkRecording(options.recording.has_value(), options.rowsPerSecond.has_value());
}

void loadRecording(SourceOptions& options) {
  if (!options.recording) return;
  options.loaded = std::make_shared<const simulator::Recording>(
      simulator::Recording::load(*options.recording, *options.rowsPerSecond));
}

std::unique_ptr<Source> makeSource(main_queue::MainQueue& queue, const SourceOptions& options,
                                   std::function<void(std::string_view)> report,
                                   std::function<void()> ended) {
  if (options.replay) {
    return std::make_unique<ReplaySource>(queue, replayOptions(options), std::move(ended));
  }
  if (options.simulated) {
    return std::make_unique<SimulatedSource>(queue, simulatedOptions(options), std::move(ended));
  }
  return std::make_unique<BluetoothSource>(queue, bluetoothOptions(options, std::move(report)),
                                           options.duration, std::move(ended));
}

}  // namespace Zephly::watch
