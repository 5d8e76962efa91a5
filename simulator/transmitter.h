// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Takes the frames of a strap at their times, passes those with a subscriber to the carrier, and
/// counts sent and lost frames.
///
///   Transmitter transmitter(strap, carrier);
///   transmitter.sendDue(now);
///   waitUntil(transmitter.nextFrameTime());

#include <simulator/frame.h>
#include <zephly/platform/export.h>

#include <cstdint>
#include <optional>

namespace Zephly::simulator {

/// Delivers notifications to the subscribers: a simulated device, or a Bluetooth adapter.
class ZEPHLY_EXPORT Carrier {
 public:
  virtual ~Carrier() = default;

  virtual bool isSubscribed(Stream stream) const = 0;
  /// Notifies the subscribers of the frame's stream; false when it cannot.
  virtual bool carry(Frame frame) = 0;

 protected:
  Carrier() = default;
  Carrier(const Carrier&) = default;
  Carrier& operator=(const Carrier&) = default;
};

/// One source on one carrier. Both must outlive it.
class ZEPHLY_EXPORT Transmitter {
 public:
  /// What became of the frames of one stream.
  struct Counts {
    std::uint64_t framesSent = 0;          ///< notified to a subscriber
    std::uint64_t samplesSent = 0;         ///< measured values in them (samplesPerFrame)
    std::uint64_t framesUnsubscribed = 0;  ///< sent without a subscriber
    friend bool operator==(const Counts&, const Counts&) = default;
  };

  Transmitter(FrameSource& source, Carrier& carrier) : source_(source), carrier_(carrier) {}

  /// When there is something to do next; empty while there is nothing to send.
  std::optional<StrapTime> nextFrameTime() const { return source_.nextFrameTime(); }
  /// Sends every frame that is due at `now`; those without a subscriber are lost.
  void sendDue(StrapTime now);
  /// Takes the frames before `until` out unsent, at most `limit` of them, and returns their number.
  /// They are not among the counts.
  std::uint64_t skip(StrapTime until, std::uint64_t limit);
  /// To be called when a subscription has changed. Notifies the source when all five streams are
  /// subscribed to for the first time; true in that case, when nextFrameTime() may be another one.
  bool subscriptionsChanged(StrapTime now);

  const Counts& counts(Stream stream) const;
  /// All streams together.
  Counts totals() const;
  /// True from the moment when all five streams were subscribed to for the first time.
  bool wasFullySubscribed() const { return wasFullySubscribed_; }

 private:
  FrameSource& source_;
  Carrier& carrier_;
  bool wasFullySubscribed_ = false;
  PerStream<Counts> counts_{};
};

}  // namespace Zephly::simulator
