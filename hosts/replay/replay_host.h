// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The host that reports the records of a capture to the kit, one by one.
///
///   ReplayHost host;                                  // from now on the host in use
///   auto session = Zephly::Zephly::init(application);
///   while (const auto record = reader.next()) host.deliver(*record);
///   host.divergences().count;                         // 0: the kit requested all of it
///
/// While the host is alive, the kit's processor clock returns the processor time of the record that
/// is being delivered, or was delivered last. One at a time in a process; to be used on the main
/// queue's thread only.

#include <capture/record.h>
#include <hosts/replay/central.h>
#include <hosts/replay/peripheral.h>
#include <zephly/dsp/processor_clock.h>
#include <zephly/platform/host.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace Zephly::replay {

/// Records that answer a request that the kit has not made: it is a different version of the kit
/// than the one that was recorded.
struct Divergences {
  std::uint64_t count = 0;
  std::string first;                     ///< a description; empty when there was none
  std::chrono::nanoseconds firstTime{};  ///< Stamp::monotonic of its record
};

/// The host in use while it exists.
class ReplayHost final : public Host {
 public:
  /// Becomes the host in use and replaces the kit's processor clock, which is 0 until the first
  /// record.
  ReplayHost();
  ReplayHost(const ReplayHost&) = delete;
  ReplayHost& operator=(const ReplayHost&) = delete;
  /// Leaves no host in use and restores the clock. A central that outlives the host is
  /// `unsupported` and does nothing.
  ~ReplayHost() override;

  /// Records are delivered to the central that was created last.
  std::shared_ptr<CBCentralManager> createCentralManager(
      std::weak_ptr<CBCentralManagerDelegate> delegate, DispatchQueue* queue,
      const std::optional<CBOptions>& options) override;

  /// Makes the call of the kit that the record describes. Must not be called from inside a call of
  /// the kit or of a delegate.
  ///
  /// Throws Contradiction, and calls nothing, when the record contradicts those before it: it
  /// refers to an object that was never reported, or to a connection that does not exist. A record
  /// that the kit has not requested is delivered and counted.
  void deliver(const capture::Record& record);

  const Divergences& divergences() const { return divergences_; }

 private:
  void report(const capture::StateChanged& what);
  void report(const capture::Discovered& what);
  void report(const capture::Connected& what);
  void report(const capture::FailedToConnect& what);
  void report(const capture::Disconnected& what);
  void report(const capture::ServicesDiscovered& what);
  void report(const capture::CharacteristicsDiscovered& what);
  void report(const capture::SubscriptionChanged& what);
  void report(const capture::Value& what);
  void report(const capture::Ended& what);

  template <class Call>
  void callCentral(const Call& call);
  std::shared_ptr<Peripheral> peripheral(capture::ObjectId id) const;
  void diverge(const std::string& what);

  std::weak_ptr<Central> central_;
  std::map<capture::ObjectId, std::shared_ptr<Peripheral>> peripherals_;
  Divergences divergences_;
  std::chrono::nanoseconds time_{};  // of the record that is being delivered
  std::uint64_t processorTime_ = 0;  // of the same, microseconds
  bool diverged_ = false;            // the record has been counted
  ProcessorClock clockBefore_;
};

}  // namespace Zephly::replay
