// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Records between the host in use and the kit: every report of the host is passed to the sink as a
/// Record first, and then to the kit unchanged.
///
///   const SimulatedStrap strap(queue);  // or any other host
///   TapHost tap({.now = [&] { return sinceTheSessionBegan(); },
///                .sink = [&](const Record& record) { writer.append(record); }});
///   const auto session = Zephly::Zephly::init(application);  // on the tap, and so on the host
///   ...
///   tap.end();  // the Ended record
///
/// The kit receives the same calls in the same order, with the same services and characteristics.
/// Its centrals and peripherals are the tap's, each of which wraps one of the host's.
///
/// While a tap is alive, the kit's processor clock is frozen between records: it returns the time
/// of the latest record, so that a replay can return the same. A tap that only watches does not
/// touch it.
///
/// One tap at a time in a process. To be used on the main queue's thread only.

#include <capture/record.h>
#include <zephly/platform/export.h>
#include <zephly/platform/host.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

namespace Zephly::capture {

class TapNotes;

/// The clocks of a tap, and the function that receives its records.
struct TapOptions {
  /// The clock of Stamp::monotonic. Required.
  std::function<std::chrono::nanoseconds()> now;
  /// Receives every record, in order. Required. Must not call the kit or the host.
  std::function<void(const Record&)> sink;
  /// The clock of Stamp::wall; empty for the system's.
  std::function<std::chrono::nanoseconds()> wall = {};
  /// False: the session keeps its processor clock, as without a tap. A replay of such records may
  /// differ in the two resets of the respiration chain.
  bool freezeProcessorClock = true;
};

/// The host in use while it exists; it uses the host that was in use before.
class ZEPHLY_EXPORT TapHost final : public Host {
 public:
  /// Becomes the host in use and wraps the host before, which must be alive whenever a central is
  /// created. Throws std::logic_error when no host was in use.
  explicit TapHost(TapOptions options);
  TapHost(const TapHost&) = delete;
  TapHost& operator=(const TapHost&) = delete;
  /// Ends the recording, restores the processor clock and leaves no host in use. Centrals and
  /// peripherals of the tap that are still alive go on passing every call through.
  ~TapHost() override;

  std::shared_ptr<CBCentralManager> createCentralManager(
      std::weak_ptr<CBCentralManagerDelegate> delegate, DispatchQueue* queue,
      const std::optional<CBOptions>& options) override;

  /// Records Ended. Later reports are passed on and not recorded; a second call does nothing.
  void end();

 private:
  Host* inner_;
  std::shared_ptr<TapNotes> notes_;
};

/// Nanoseconds since 1 January 1970, UTC, by the system's clock.
ZEPHLY_EXPORT std::chrono::nanoseconds systemTime();

}  // namespace Zephly::capture
