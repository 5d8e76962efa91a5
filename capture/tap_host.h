#pragma once
/// @file
/// Listens in between the host in use and the kit: everything that the host tells the kit is noted
/// as a Record first, and then passed on as it came.
///
///   SimulatedSource source(...);  // or any other host in use
///   TapHost tap({.now = [&] { return source.now(); },
///                .sink = [&](const Record& record) { writer.append(record); }});
///   const auto session = ::Zephly::Zephly::init(application);  // on the tap, and so on the host
///   ...
///   tap.end();  // the Ended record
///
/// The kit gets the same calls in the same order, with the same services and characteristics; its
/// centrals and peripherals are the tap's, each of which stands for one of the host's.
///
/// While it lives the kit's processor clock stands still between records: it answers what the
/// latest record says, so that who gives the records to a kit again can give it the same time.
///
/// One at a time, on the main queue's thread.

#include <capture/record.h>
#include <zephly/dsp/processor_clock.h>
#include <zephly/platform/host.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

namespace Zephly::capture {

class TapNotes;

struct TapOptions {
  /// Of Stamp::monotonic.
  std::function<std::chrono::nanoseconds()> now;
  /// Gets every record, in order. Must not call the kit or the host.
  std::function<void(const Record&)> sink;
  /// Of Stamp::wall; the system's clock when it is empty.
  std::function<std::chrono::nanoseconds()> wall = {};
};

class TapHost final : public Host {
 public:
  /// Becomes the host in use, in front of the one that was. Throws std::logic_error when there was
  /// none. That host must be alive whenever a central is created.
  explicit TapHost(TapOptions options);
  TapHost(const TapHost&) = delete;
  TapHost& operator=(const TapHost&) = delete;
  /// Nothing is noted any more; the processor clock is what it was before, and no host is in use.
  /// Centrals and peripherals that were given out go on passing everything through.
  ~TapHost() override;

  std::shared_ptr<CBCentralManager> createCentralManager(
      std::weak_ptr<CBCentralManagerDelegate> delegate, DispatchQueue* queue,
      const std::optional<CBOptions>& options) override;

  /// Notes the Ended record; what comes after it is passed on and not noted. Once.
  void end();

 private:
  Host* inner_;
  std::shared_ptr<TapNotes> notes_;
  ProcessorClock clockBefore_;
};

/// Nanoseconds since 1 January 1970, UTC, by the system's clock.
std::chrono::nanoseconds systemTime();

}  // namespace Zephly::capture
