// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A host without behaviour: a central, and one strap with the five characteristics. Each function
/// makes one callback to the kit, and propagates the kit's exceptions.
///
///   fake::StrapHost host;
///   auto session = Zephly::Zephly::init(application);
///   host.turnOn();
///   host.connect();
///   host.deliver(Stream::ecg, value);
///
/// While a session runs, this host allocates only the lists and texts that it has to return by
/// value, so that allocations and their failures are those of the kit. In contrast,
/// tests/support/fake_bluetooth.h records every request as text.

#include <hosts/foundation/error.h>
#include <hosts/foundation/gatt_objects.h>
#include <simulator/frame.h>
#include <zephly/platform/core_bluetooth.h>
#include <zephly/platform/host.h>
#include <zephly/protocol/streams.h>

#include <array>
#include <memory>
#include <optional>
#include <string>

namespace fake {

/// The current host during its lifetime.
class StrapHost : public Zephly::Host {
 public:
  StrapHost();
  ~StrapHost() override;
  StrapHost(const StrapHost&) = delete;
  StrapHost& operator=(const StrapHost&) = delete;

  /// Callbacks go to the session that was created last.
  std::shared_ptr<CBCentralManager> createCentralManager(
      std::weak_ptr<CBCentralManagerDelegate> delegate, DispatchQueue* queue,
      const std::optional<CBOptions>& options) override;

  void turnOn();
  void discover();
  void connect();
  /// With an error of that text. One of up to 15 bytes is copied without an allocation.
  void disconnect(const std::string& text);
  void failToConnect();
  void discoverServices();
  void discoverCharacteristics();
  /// The answer to a subscription, with an error.
  void refuseSubscription();
  void deliver(Zephly::Stream stream, const std::shared_ptr<const NSData>& value);
  void deliverError(Zephly::Stream stream);

  /// The number of requests of each kind so far.
  struct Requests {
    int scans = 0;
    int connections = 0;
    int serviceDiscoveries = 0;
    int characteristicDiscoveries = 0;
    int subscriptions = 0;
  };
  const Requests& requests() const { return requests_; }

 private:
  class Central;
  class Peripheral;

  Requests requests_;
  std::weak_ptr<CBCentralManagerDelegate> delegate_;
  std::shared_ptr<Central> central_;
  std::shared_ptr<Peripheral> peripheral_;
  std::shared_ptr<Zephly::hosts::Service> service_;
  std::array<std::shared_ptr<Zephly::hosts::Characteristic>, Zephly::allStreams.size()>
      characteristics_;
  CBAdvertisementData advertisement_;
  std::shared_ptr<const NSError> error_ =
      Zephly::hosts::Error::of("The connection \"has timed out\" unexpectedly.\n");
};

}  // namespace fake
