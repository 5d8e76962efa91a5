#pragma once
/// @file
/// The host that tells the kit what is in a capture, record by record, and nothing else.
///
///   ReplayHost host;                                  // from now on the host in use
///   auto session = ::Zephly::Zephly::init(application);
///   while (const auto record = reader.next()) host.deliver(*record);
///   host.divergences().count;                         // 0: the kit has asked for all of it
///
/// While it lives the kit's processor clock stands at what the capture says: it is that of the
/// record which is being delivered, or was delivered last. One at a time in a process; to be used
/// on the main queue's thread only.

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

/// Records that answer what the kit has not asked for: it is another kit than the one that was
/// there when the capture was made.
struct Divergences {
  std::uint64_t count = 0;
  std::string first;                     ///< what, for people; empty when there was none
  std::chrono::nanoseconds firstTime{};  ///< Stamp::monotonic of its record
};

class ReplayHost final : public Host {
 public:
  /// Becomes the host in use and takes the kit's processor clock, which stands at 0.
  ReplayHost();
  ReplayHost(const ReplayHost&) = delete;
  ReplayHost& operator=(const ReplayHost&) = delete;
  /// Gives both back. A central that outlives it is `unsupported` and does nothing.
  ~ReplayHost() override;

  /// The capture is told to the central that was created last.
  std::shared_ptr<CBCentralManager> createCentralManager(
      std::weak_ptr<CBCentralManagerDelegate> delegate, DispatchQueue* queue,
      const std::optional<CBOptions>& options) override;

  /// Tells the kit what the record says. Not from inside a call of the kit or of a delegate.
  ///
  /// Throws Contradiction, and tells nothing, when the record cannot be true after those before it:
  /// it names what was never told of, or tells of a connection that is none. What the kit has not
  /// asked for is told all the same and counted; only without a central there is nobody to tell.
  void deliver(const capture::Record& record);

  const Divergences& divergences() const { return divergences_; }

 private:
  void tell(const capture::StateChanged& what);
  void tell(const capture::Discovered& what);
  void tell(const capture::Connected& what);
  void tell(const capture::FailedToConnect& what);
  void tell(const capture::Disconnected& what);
  void tell(const capture::ServicesDiscovered& what);
  void tell(const capture::CharacteristicsDiscovered& what);
  void tell(const capture::SubscriptionChanged& what);
  void tell(const capture::Value& what);
  void tell(const capture::Ended& what);

  template <class Call>
  void callCentral(const Call& call);
  std::shared_ptr<Peripheral> peripheral(capture::ObjectId id) const;
  void diverge(const std::string& what);

  std::weak_ptr<Central> central_;
  std::map<capture::ObjectId, std::shared_ptr<Peripheral>> peripherals_;
  Divergences divergences_;
  std::chrono::nanoseconds time_{};  // of the record that is delivered
  bool diverged_ = false;            // it was counted
  ProcessorClock clockBefore_;
};

}  // namespace Zephly::replay
