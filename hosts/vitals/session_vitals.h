// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Beats, breaths and vitals of a running session.
///
///   const SimulatedStrap strap(queue);                             // or another host
///   SessionVitals vitals(receiver, [&] { return sinceTheBegin(); });  // wraps it
///   const auto session = Zephly::Zephly::init(application);
///   queue.run();
///
/// It stands between the host in use and the kit, as a capture::TapHost that only watches: the kit
/// receives the same calls, and the application the same callbacks. So it sees the raw respiration,
/// which the kit passes on only after its filters. One of it, or one TapHost, at a time in a
/// process.
///
/// The results have the times at which the samples were taken, on the clock of `now`: samples are
/// counted at their nominal rate from the arrival of their frames, so that the jitter of the radio
/// does not move a beat (arrival_clock.h). The interval between two beats is wrong by 10 % at most
/// in the first five seconds of a link, by 1 % later, and usually by less than 0.1 %. Contact is
/// that of the kit's LeadoffDetector. When the link is lost, what is held back is reported, and
/// detection begins anew with the next link. The second in which that happens ends then.
///
/// To be used on the main queue's thread only. The receiver is called there, before the callbacks
/// for the same frame, and must not call the kit or the host.

#include <vitals/vitals.h>
#include <zephly/platform/export.h>

#include <chrono>
#include <functional>
#include <memory>

namespace Zephly::hosts {

/// A host around another one, which computes vitals from the frames that pass it.
class ZEPHLY_EXPORT SessionVitals {
 public:
  using Clock = std::function<std::chrono::nanoseconds()>;

  /// Becomes the host in use and wraps the one before, which must be alive whenever a session is
  /// created. Does not own `receiver`. `now` must not decrease. Throws std::logic_error when no
  /// host is in use.
  SessionVitals(vitals::Receiver& receiver, Clock now);
  ~SessionVitals();
  SessionVitals(const SessionVitals&) = delete;
  SessionVitals& operator=(const SessionVitals&) = delete;

  /// Reports what is held back. Later samples begin anew.
  void finish();

 private:
  class State;
  std::unique_ptr<State> state_;
};

}  // namespace Zephly::hosts
