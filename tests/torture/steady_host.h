#pragma once
/// @file
/// A host that allocates nothing while a session runs, except lists and texts that it returns by
/// value: allocations that fail are the kit's.
///
///   SteadyHost host;
///   auto session = Zephly::Zephly::init(application);
///   host.turnOn();
///   host.connect();
///   host.deliver(Stream::ecg, value);
///
/// Each call makes one callback to the kit; exceptions of the kit propagate to the test.

#include <hosts/foundation/error.h>
#include <simulator/frame.h>
#include <zephly/platform/core_bluetooth.h>
#include <zephly/platform/host.h>

#include <array>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace torture {

class SteadyHost : public Zephly::Host {
 public:
  SteadyHost();
  ~SteadyHost() override;
  SteadyHost(const SteadyHost&) = delete;
  SteadyHost& operator=(const SteadyHost&) = delete;

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
  void deliver(Zephly::simulator::Stream stream, const std::shared_ptr<const NSData>& value);
  void deliverError(Zephly::simulator::Stream stream);

  /// The session's requests so far.
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
  class Characteristic;
  class Peripheral;
  class Service;

  std::shared_ptr<CBPeripheralDelegate> handler() const;

  Requests requests_;
  std::weak_ptr<CBCentralManagerDelegate> delegate_;
  std::shared_ptr<Central> central_;
  std::shared_ptr<Peripheral> peripheral_;
  std::shared_ptr<Service> service_;
  std::array<std::shared_ptr<Characteristic>, Zephly::simulator::allStreams.size()>
      characteristics_;
  CBAdvertisementData advertisement_;
  std::shared_ptr<const NSError> error_ =
      Zephly::hosts::Error::of("The connection \"has timed out\" unexpectedly.\n");
};

}  // namespace torture
