// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// When samples were taken, while their frames arrive. Of a whole capture timing::ClockFit knows
/// better.
///
///   ArrivalClock clock(Stream::ecg);
///   clock.beginLink();
///   const ArrivalClock::Frame frame = clock.frame(arrival);
///   use(frame.first + i * frame.period);    // of sample i of the frame
///
/// Samples are counted at their nominal rate, so that the jitter of the radio does not move them.
/// The count is corrected frame by frame towards the earliest arrivals: a frame arrives late and
/// never early. It falls back by a thousandth of the time at most, more than a strap's clock
/// deviates, and catches up by a hundredth; in the first five seconds of a link, whose frames are
/// often delayed, by a tenth. So the interval between two beats is wrong by 10 % at most in the
/// first five seconds of a link, and by 1 % later.
///
/// Frames that were only delayed move nothing: those that follow them are on time. If all frames
/// that arrive within a second are late by more than a quarter of a second, frames were lost: the
/// count jumps ahead, which leaves a gap between two samples.
///
/// Times increase from sample to sample. Not thread-safe.

#include <zephly/platform/export.h>
#include <zephly/protocol/streams.h>

#include <chrono>
#include <optional>

namespace Zephly::hosts {

/// The times of the samples of one stream, frame by frame.
class ZEPHLY_EXPORT ArrivalClock {
 public:
  using Nanoseconds = std::chrono::nanoseconds;

  /// The times of the samples of one frame.
  struct Frame {
    Nanoseconds first{};   ///< when its first sample was taken
    Nanoseconds period{};  ///< from one sample to the next
  };

  /// Of a stream with a rate.
  explicit ArrivalClock(Stream stream);

  /// A link was established: the count begins anew with the next frame.
  void beginLink();
  /// The next frame. `arrival` never decreases.
  Frame frame(Nanoseconds arrival);

 private:
  void begin(Nanoseconds first);

  Nanoseconds period_;
  Nanoseconds framePeriod_;
  std::optional<Nanoseconds> next_;       // of the first sample of the next frame
  Nanoseconds begun_{};                   // the first sample of this count
  std::optional<Nanoseconds> lateSince_;  // arrival of the first of the late frames
  Nanoseconds leastLate_{};               // of them
  std::optional<Nanoseconds> end_;        // no sample before it
};

}  // namespace Zephly::hosts
