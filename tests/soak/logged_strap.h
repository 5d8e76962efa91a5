// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A simulated strap that records its frames in a ledger, and loses its link on request.
///
///   LoggedStrap strap(device, source, ledger);
///   strap.loseLink(3s);                  // now, for three seconds
///   strap.loseLinkWithNextFrame(0s);     // at the moment at which a frame was sent

#include <hosts/simulated/device.h>
#include <hosts/simulated/scheduler.h>
#include <simulator/frame.h>
#include <simulator/transmitter.h>
#include <tests/soak/ledger.h>
#include <zephly/protocol/streams.h>

#include <cstdint>
#include <optional>

namespace soak {

namespace simulated = ::Zephly::simulated;

/// Faults that are caused on purpose, to check that the soak test detects them.
enum class Fault { none, dropFrame, repeatFrame, leakMemory, leakDescriptor };

class LoggedStrap : private simulator::Carrier {
 public:
  /// Refers to all its arguments. The strap is switched on at the scheduler's time 0.
  LoggedStrap(simulated::Device& device, simulator::FrameSource& source, Ledger& ledger,
              Fault fault);
  LoggedStrap(const LoggedStrap&) = delete;
  LoggedStrap& operator=(const LoggedStrap&) = delete;
  ~LoggedStrap() override;

  /// Ends the link. The strap is out of range for `absence`.
  void loseLink(simulated::Duration absence);
  /// The same, while the next frame is in transit.
  void loseLinkWithNextFrame(simulated::Duration absence) { lossWithFrame_ = absence; }
  /// Stops sending.
  void switchOff();

  /// All five streams are subscribed to.
  bool subscribed() const;
  bool connected() const { return device_.connected(); }
  std::uint64_t connections() const { return device_.connections(); }
  std::uint64_t framesUnsubscribed() const { return transmitter_.totals().framesUnsubscribed; }

 private:
  bool isSubscribed(Zephly::Stream stream) const override;
  bool carry(simulator::Frame frame) override;
  void doWrong(const simulator::Frame& frame);
  void schedule();

  simulated::Device& device_;
  Ledger& ledger_;
  Fault fault_;
  simulator::Transmitter transmitter_;
  std::optional<simulated::Duration> lossWithFrame_;
  std::optional<simulated::Scheduler::EventId> nextEvent_;
  simulated::Scheduler::EventId return_;
};

}  // namespace soak
