// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A device in the reach of the simulated radio: an advertiser and a GATT server whose every answer
/// can be scripted.
///
///   Device& device = radio.addDevice({.name = "Zephly", .rssi = -71});
///   addStrapProfile(device);
///   device.nextConnects(2, ConnectBehaviour::fails("Peer is busy."));   // then succeeds again
///   device.setServiceDiscovery({.latency = 3s});
///   device.setSubscription(ecgCharacteristicUUID(), {.error = "Not permitted."});
///   ...
///   device.loseLink("The connection has timed out unexpectedly.");
///
/// Created by Radio::addDevice, lives as long as the radio. What it does to the other side arrives
/// with the next step of the scheduler's clock (a step of 0 is enough).

#include <hosts/simulated/scheduler.h>
#include <zephly/platform/cb_uuid.h>
#include <zephly/platform/export.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Zephly::simulated {

class Central;
class Link;
class Peripheral;
class Radio;
struct CharacteristicEntry;
struct ServiceEntry;
struct Value;

/// The outcome of an attempt to connect.
struct ConnectBehaviour {
  enum class Outcome { succeeds, fails, never };

  Outcome outcome = Outcome::succeeds;
  Duration latency = std::chrono::milliseconds(20);  ///< from the attempt to its outcome
  std::string error;                                 ///< text of the failure

  static ConnectBehaviour succeeds(Duration latency = std::chrono::milliseconds(20)) {
    return {Outcome::succeeds, latency, {}};
  }
  static ConnectBehaviour fails(std::string error,
                                Duration latency = std::chrono::milliseconds(20)) {
    return {Outcome::fails, latency, std::move(error)};
  }
  static ConnectBehaviour never() { return {Outcome::never, Duration{}, {}}; }
};

/// How a discovery of services or characteristics is answered.
struct DiscoveryAnswer {
  enum class List {
    complete,  ///< what the device has
    empty,     ///< present, but nothing in it
    absent,    ///< no list at all, which breaks the host's contract: for tests of that
  };

  Duration latency = std::chrono::milliseconds(5);  ///< from the request to the answer
  int times = 1;                                    ///< 0 never answers, 2 answers twice
  std::optional<std::string> error = std::nullopt;  ///< comes with the answer
  List list = List::complete;                       ///< also when there is an error

  static DiscoveryAnswer never() { return {.times = 0}; }
  /// As a stack answers that found nothing because something went wrong.
  static DiscoveryAnswer fails(std::string error) {
    return {.error = std::move(error), .list = List::empty};
  }
};

/// How a request to subscribe or unsubscribe is answered.
struct SubscriptionAnswer {
  Duration latency = std::chrono::milliseconds(5);  ///< from the request to the answer
  int times = 1;                                    ///< 0 never answers, 2 answers twice
  std::optional<std::string> error = std::nullopt;  ///< refuses: the subscription stays as it was
  /// When the subscription begins (or ends), measured from the request; empty: right before the
  /// answer, or after `latency` when there is none.
  std::optional<Duration> effectAfter = std::nullopt;

  /// Begins, but is not confirmed.
  static SubscriptionAnswer silent() { return {.times = 0}; }
  static SubscriptionAnswer refuses(std::string error) { return {.error = std::move(error)}; }
  /// Values may flow at once, `latency` before the confirmation.
  static SubscriptionAnswer lateConfirmation(Duration latency) {
    return {.latency = latency, .effectAfter = Duration{}};
  }
};

/// One characteristic in a device's table.
struct CharacteristicOptions {
  CBUUID uuid;
  std::string properties = "notify";  ///< as its description shows them
};

/// One service in a device's table.
struct ServiceOptions {
  CBUUID uuid;
  std::vector<CharacteristicOptions> characteristics = {};
};

/// The initial properties of a device.
struct DeviceOptions {
  /// Its advertised name: none, or any bytes.
  std::optional<std::string> name = std::nullopt;
  /// Between two advertisements, greater than 0 (std::invalid_argument otherwise).
  Duration advertisingInterval = std::chrono::milliseconds(100);
  /// Signal strength in dBm; 127 means that it is not known.
  int rssi = -60;
  bool inRange = true;
  bool advertisesWhileConnected = false;
  /// Service identifiers in its advertisements, for scans with a filter.
  std::vector<CBUUID> advertisedServices = {};
  ConnectBehaviour connect = ConnectBehaviour::succeeds();
  /// Discovered in this order, and their characteristics in theirs.
  std::vector<ServiceOptions> services = {};
};

/// One device, and the script of its answers.
class ZEPHLY_EXPORT Device {
 public:
  Device(const Device&) = delete;
  Device& operator=(const Device&) = delete;
  ~Device();

  // Advertising ------------------------------------------------------------------------------

  /// Takes effect with the next advertisement.
  void setName(std::optional<std::string> name);
  const std::optional<std::string>& name() const { return name_; }
  void setRssi(int rssi);
  /// Out of range it neither advertises nor connects, and links are lost with an error. Connection
  /// requests stay pending and are attempted when it is back.
  void setInRange(bool inRange);
  bool inRange() const { return inRange_; }
  void setAdvertisesWhileConnected(bool advertises);

  // Connecting -------------------------------------------------------------------------------

  /// For every attempt from now on. An attempt that would never complete is restarted.
  void setConnectBehaviour(ConnectBehaviour behaviour);
  /// For the next `count` attempts, then that of setConnectBehaviour applies again. Further calls
  /// append. An attempt that would never complete is restarted.
  void nextConnects(int count, const ConnectBehaviour& behaviour);

  /// Ends every link. The loss is reported to the centrals, with an error if a text is given, after
  /// the values that were notified before. Does nothing without a link.
  void loseLink(const std::optional<std::string>& error = std::nullopt);

  /// True while at least one central is connected.
  bool connected() const { return !links_.empty(); }
  /// Connections made so far, over all centrals.
  std::uint64_t connections() const { return connections_; }

  // The GATT server --------------------------------------------------------------------------

  void addService(ServiceOptions service);
  /// Replaces all services; takes effect on links that discover them from now on.
  void setServices(std::vector<ServiceOptions> services);

  void setServiceDiscovery(DiscoveryAnswer answer);
  /// For the characteristics of every service.
  void setCharacteristicDiscovery(DiscoveryAnswer answer);
  /// For one service only; takes precedence over the one for all.
  void setCharacteristicDiscovery(const CBUUID& service, DiscoveryAnswer answer);
  /// For every characteristic.
  void setSubscription(SubscriptionAnswer answer);
  /// For one characteristic only; takes precedence over the one for all.
  void setSubscription(const CBUUID& characteristic, SubscriptionAnswer answer);

  /// Sends a value of any length, 0 included, to every central that is subscribed. True when there
  /// is at least one: then it will be delivered. A device that has several characteristics of one
  /// identifier sends on all of them. std::invalid_argument when it has none.
  bool notify(const CBUUID& characteristic, std::vector<std::uint8_t> value);
  /// The same, but the central gets an error in place of the value.
  bool notifyError(const CBUUID& characteristic, std::string text);
  /// The same, but the value is absent.
  bool notifyAbsent(const CBUUID& characteristic);

  /// True while at least one central is subscribed.
  bool isSubscribed(const CBUUID& characteristic) const;
  /// How many notify... calls for the characteristic returned true.
  std::uint64_t sent(const CBUUID& characteristic) const;

  /// Called, with the identifier, whenever a subscription began or ended on request: from the
  /// scheduler, before the confirmation. Replaces the one before; empty for none.
  void setSubscriptionObserver(std::function<void(const CBUUID&)> observer);

  Scheduler& scheduler();

 private:
  friend class Central;
  friend class Link;
  friend class Peripheral;
  friend class Radio;

  Device(Radio& radio, DeviceOptions options);

  ConnectBehaviour takeConnectBehaviour();
  void restartIdleAttempts();
  void linkBegan(const std::shared_ptr<Link>& link);
  void linkEnded(const Link& link);

  // Schedules or drops the next advertisement after anything on which it depends has changed.
  void updateAdvertising();
  void advertise();
  std::vector<std::shared_ptr<Peripheral>> peripherals() const;

  const DiscoveryAnswer& characteristicAnswer(const CBUUID& service) const;
  const SubscriptionAnswer& subscriptionAnswer(const CBUUID& characteristic) const;
  void subscriptionChanged(const CBUUID& characteristic);
  bool hasCharacteristic(const CBUUID& characteristic) const;
  bool send(const CBUUID& characteristic, const Value& value);

  Radio& radio_;
  std::optional<std::string> name_;
  Duration advertisingInterval_;
  int rssi_;
  bool inRange_;
  bool advertisesWhileConnected_;
  std::vector<CBUUID> advertisedServices_;

  std::optional<Time> advertisingSince_;
  std::optional<Time> lastAdvertisement_;
  std::optional<Scheduler::EventId> nextAdvertisement_;

  ConnectBehaviour connectBehaviour_;
  std::deque<ConnectBehaviour> nextConnects_;
  std::vector<std::shared_ptr<Link>> links_;
  std::uint64_t connections_ = 0;

  std::vector<std::shared_ptr<const ServiceEntry>> services_;
  DiscoveryAnswer serviceAnswer_;
  DiscoveryAnswer characteristicAnswer_;
  std::map<CBUUID, DiscoveryAnswer> characteristicAnswers_;
  SubscriptionAnswer subscriptionAnswer_;
  std::map<CBUUID, SubscriptionAnswer> subscriptionAnswers_;
  std::map<CBUUID, std::uint64_t> sent_;
  std::function<void(const CBUUID&)> subscriptionObserver_;
};

/// The service that addStrapProfile adds; the kit does not look at service identifiers.
ZEPHLY_EXPORT const CBUUID& strapServiceUUID();

/// Adds one service with the strap's characteristics, in the order given; by default in one that is
/// not the order of the profile.
ZEPHLY_EXPORT void addStrapProfile(Device& device);
ZEPHLY_EXPORT void addStrapProfile(Device& device, const std::vector<CBUUID>& order);

}  // namespace Zephly::simulated
