// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A simulated strap on the simulated radio: sends the frames of a simulator::FrameSource through a
/// simulated device.
///
///   Device& device = radio.addDevice({.name = peripheralName});
///   addStrapProfile(device);
///   StrapDevice strap(device, source);
///   strap.loseLinkAt(30s, "The connection has timed out unexpectedly.", 5s);
///   scheduler.advance(1min);
///   strap.counts(Stream::ecg).samplesSent;   // what must have been delivered
///
/// The strap is switched on when the object is created: strap time 0 is the scheduler's time then.
/// Every frame is taken out of the source at its time, and sent if a central is subscribed to its
/// stream; otherwise it is lost, as on a real strap. Each frame is one event of the scheduler and
/// one notification.

#include <hosts/simulated/device.h>
#include <hosts/simulated/scheduler.h>
#include <simulator/frame.h>
#include <simulator/training_plan.h>
#include <simulator/transmitter.h>
#include <zephly/platform/export.h>
#include <zephly/protocol/streams.h>

#include <optional>
#include <string>
#include <vector>

namespace Zephly::simulated {

/// Carries one source on one device while it lives.
class ZEPHLY_EXPORT StrapDevice : private simulator::Carrier {
 public:
  using Counts = simulator::Transmitter::Counts;

  /// `device` has the strap's five characteristics already, or gets them before frames are due.
  /// Both must outlive this object. Takes the device's subscription observer.
  StrapDevice(Device& device, simulator::FrameSource& source);
  StrapDevice(const StrapDevice&) = delete;
  StrapDevice& operator=(const StrapDevice&) = delete;
  /// Switches the strap off; the device stays.
  ~StrapDevice() override;

  /// Since the strap was switched on.
  StrapTime strapTime() const;

  /// Plans a loss of the link at `time`: reported with an error if a text is given, and the device
  /// is out of range for `absence`. Without a link at that time only the absence happens. May be
  /// called any number of times; a time that has passed means now.
  void loseLinkAt(StrapTime time, std::optional<std::string> error = std::nullopt,
                  Duration absence = Duration{});

  /// Plans every loss of the link that the plan names, for as long as this object lives. Once.
  void loseLinksOf(simulator::TrainingPlan plan);

  const Counts& counts(Stream stream) const { return transmitter_.counts(stream); }
  /// All streams together.
  Counts totals() const { return transmitter_.totals(); }
  /// True from the moment when all five streams were subscribed to for the first time.
  bool wasFullySubscribed() const { return transmitter_.wasFullySubscribed(); }

 private:
  bool isSubscribed(Stream stream) const override;
  bool carry(simulator::Frame frame) override;
  void planLossAfter(StrapTime time);
  void schedule();
  void sendDueFrames();
  void subscriptionChanged();

  Device& device_;
  simulator::Transmitter transmitter_;
  Time switchedOn_;
  std::optional<Scheduler::EventId> nextEvent_;
  std::vector<Scheduler::EventId> planned_;
  simulator::TrainingPlan plan_ = simulator::TrainingPlan::quiet();
};

}  // namespace Zephly::simulated
