// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The options of `zephly strap`.

#include <hosts/bluez/bluetooth.h>
#include <zephly/ble/gatt_profile.h>
#include <zephly/protocol/strap_time.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace Zephly::peripheral {

struct Options {
  /// Longest advertised name in bytes: what one field of 31 bytes of advertising data can hold.
  static constexpr std::size_t longestName = 29;

  bluez::Options bluetooth;  ///< adapter and bus
  std::string name = std::string(peripheralName);
  bool setAlias = false;  ///< also sets the adapter's own name
  std::uint64_t seed = 1;
  std::optional<std::filesystem::path> recording;
  std::optional<double> rowsPerSecond;  ///< of the recording
  bool training = false;                ///< the wearer trains; otherwise is at rest
  std::vector<StrapTime> lossTimes;
  std::optional<StrapTime> absence;  ///< after each of lossTimes
  std::optional<StrapTime> duration;
  bool frames = false;  ///< prints every frame

  static constexpr StrapTime usualAbsence = std::chrono::seconds(1);
};

/// Declares the options on `command`; parsing writes them into `options`, which must live as long.
/// A wrong value ends the parsing with a CLI::ParseError of one line.
void addOptions(CLI::App& command, Options& options);

/// Checks the options against each other; throws CLI::ValidationError.
void checkTogether(const Options& options);

/// Whether the text is UTF-8 as D-Bus accepts it: well formed and without a NUL.
bool isUtf8(const std::string& text);

}  // namespace Zephly::peripheral
