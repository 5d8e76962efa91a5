#pragma once
/// @file
/// What a command can be told about the strap that it watches: which one, or which simulation.
///
///   SourceOptions options;
///   addSourceOptions(command, options);       // before parsing
///   checkTogether(options);                   // after it
///   const auto source = makeSource(queue, options, hostLine, [&] { queue.stop(); });
///
/// A command says whether a capture can be played in place of a strap.

#include <hosts/bluez/bluetooth.h>
#include <hosts/main_queue/main_queue.h>
#include <simulator/frame.h>
#include <tools/watch/source.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace CLI {
class App;
}

namespace Zephly::watch {

struct SourceOptions {
  bool simulated = false;
  std::uint64_t seed = 1;
  std::optional<double> speed;  ///< strap time or recorded time over wall time; empty: 1
  std::optional<std::filesystem::path> replay;   ///< a capture
  bool fast = false;                             ///< plays the capture as fast as the machine goes
  std::optional<simulator::StrapTime> duration;  ///< empty: until it is ended
  std::optional<std::filesystem::path> recording;
  std::optional<double> rowsPerSecond;  ///< of the recording
  std::string adapter;                  ///< for Bluetooth; empty: any
  std::string busAddress;               ///< for Bluetooth; empty: the system bus
  bluez::Notifications notifications = bluez::Options().notifications;
};

/// Whether a command can play a capture in place of watching a strap.
enum class Captures { refused, offered };

/// Declares the options on `command`; parsing writes them into `options`, which must live as long.
/// A value that cannot be accepted ends the parsing with a CLI::ParseError of one line.
void addSourceOptions(CLI::App& command, SourceOptions& options,
                      Captures captures = Captures::refused);

/// The same for a command that plays a capture and nothing else: FILE, --speed and --fast.
void addCaptureOptions(CLI::App& command, SourceOptions& options);

/// What only the options together tell; throws CLI::ValidationError.
void checkTogether(const SourceOptions& options);

/// The source that was chosen. `report` gets the host's lines for people, `ended` is called once,
/// on the queue, when the source has come to its end. Throws std::exception when the recording
/// or the capture cannot be read.
std::unique_ptr<Source> makeSource(main_queue::MainQueue& queue, const SourceOptions& options,
                                   std::function<void(std::string_view)> report,
                                   std::function<void()> ended);

}  // namespace Zephly::watch
