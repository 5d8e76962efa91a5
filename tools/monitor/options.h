#pragma once
/// @file
/// What `zephly monitor` can be told on the command line.

#include <platforms/bluez/bluetooth.h>
#include <strap/frame.h>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

namespace CLI {
class App;
}

namespace Zephly::monitor {

struct Options {
  bool simulated = false;
  std::uint64_t seed = 1;
  double speed = 1;                          ///< strap time over wall time
  std::optional<strap::StrapTime> duration;  ///< empty: until it is ended
  std::optional<std::filesystem::path> recording;
  std::optional<double> rowsPerSecond;  ///< of the recording
  std::string adapter;                  ///< for Bluetooth; empty: any
  std::string busAddress;               ///< for Bluetooth; empty: the system bus
  bluez::Notifications notifications = bluez::Options().notifications;
  bool json = false;
  std::optional<std::filesystem::path> diagnostics;  ///< gets every diagnostic line
  bool requireAll = false;
};

/// Declares the options on `command`; parsing writes them into `options`, which must live as long.
/// A value that cannot be accepted ends the parsing with a CLI::ParseError of one line.
void addOptions(CLI::App& command, Options& options);

/// What only the options together tell; throws CLI::ValidationError.
void checkTogether(const Options& options);

}  // namespace Zephly::monitor
