// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The options that choose the source of a session: a strap, a simulation or a capture.
///
///   SourceOptions options;
///   addSourceOptions(command, options);       // before parsing
///   checkTogether(options);                   // after it
///   loadRecording(options);                   // before anything is opened
///   const auto source = makeSource(queue, options, hostLine, [&] { queue.stop(); });
///

#include <hosts/bluez/bluetooth.h>
#include <hosts/main_queue/main_queue.h>
#include <simulator/recording.h>
#include <tools/watch/source.h>
#include <zephly/protocol/strap_time.h>

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
  std::optional<std::filesystem::path> replay;  ///< a capture
  bool fast = false;                            ///< plays the capture as fast as possible
  StrapTime from{};                             ///< the moment of the capture at which to begin
  std::optional<StrapTime> duration;            ///< empty: until it is ended
  std::optional<std::filesystem::path> recording;
  std::optional<double> rowsPerSecond;                 ///< of the recording
  std::shared_ptr<const simulator::Recording> loaded;  ///< see loadRecording()
  bluez::Options bluetooth;                            ///< of a real strap
};

/// Whether a command can play a capture in place of watching a strap.
enum class Captures { refused, offered };

/// Declares the options on `command`; parsing writes them into `options`, which must live as long.
/// A wrong value ends the parsing with a CLI::ParseError of one line.
void addSourceOptions(CLI::App& command, SourceOptions& options,
                      Captures captures = Captures::refused);

/// The same for a command that plays a capture and nothing else: FILE, --speed and --fast.
void addCaptureOptions(CLI::App& command, SourceOptions& options);

/// Checks the options against each other; throws CLI::ValidationError.
void checkTogether(const SourceOptions& options);

/// Reads the recording, if there is one, which can take seconds. Call it before files are opened
/// and signals are watched: while it reads, a signal ends the program at once and leaves nothing
/// behind. Throws std::exception when the recording cannot be read.
void loadRecording(SourceOptions& options);

/// The chosen source. `report` gets the host's lines for people, `ended` is called once, on the
/// queue, when the source has ended. Throws std::exception when the capture cannot be read, and
/// std::logic_error when the recording has not been loaded.
std::unique_ptr<Source> makeSource(main_queue::MainQueue& queue, const SourceOptions& options,
                                   std::function<void(std::string_view)> report,
                                   std::function<void()> ended);

}  // namespace Zephly::watch
