#pragma once
/// @file
/// One connection between a central and a device, from its beginning to its end: what was
/// discovered and what is subscribed. Internal to the host.

#include <hosts/bluez/bluetooth.h>
#include <hosts/bluez/bus.h>
#include <hosts/bluez/feed.h>
#include <hosts/bluez/gatt_objects.h>
#include <zephly/platform/cb_peripheral.h>

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Zephly::bluez {

class Peripheral;
class Radio;

/// One connection to one device.
class Link : public std::enable_shared_from_this<Link> {
 public:
  using Filter = std::optional<std::vector<CBUUID>>;
  using ServiceList = std::optional<std::vector<std::shared_ptr<CBService>>>;

  /// To the device at `path`.
  Link(Radio& radio, std::weak_ptr<Peripheral> peripheral, std::string path);

  const std::string& path() const { return path_; }
  /// From now on; `resolved` tells whether bluetoothd knows the services already.
  void begin(bool resolved);
  /// bluetoothd knows the services.
  void servicesResolved();
  /// The device has a service more. After the answer to a discovery that asked for such a one the
  /// link is given up: whoever asked would never learn of it, and the next link shows it.
  void serviceAdded(const std::string& path);
  /// Delivers what has arrived and was not yet taken.
  void drain();
  /// Ends the subscriptions with bluetoothd, which would take them up again by itself with the next
  /// connection, before anybody has asked.
  void unsubscribe();
  /// From now on nothing is answered or delivered.
  void end();

  const ServiceList& services() const { return discovered_; }
  void discoverServices(const Filter& filter);
  void discoverCharacteristics(const Filter& filter, const std::shared_ptr<CBService>& service);
  void setNotifyValue(bool enabled, const std::shared_ptr<CBCharacteristic>& characteristic);

  void valueArrived(const std::string& path, const Bytes& value);

 private:
  using ReplyHandler = std::function<void(Link&, const Reply&)>;

  void waitForServices(std::chrono::milliseconds left);
  void answerServices();
  void tellServices(const Filter& filter);
  void tellCharacteristics(const Filter& filter, const std::shared_ptr<Service>& service);
  void tellSubscription(const std::shared_ptr<Characteristic>& characteristic, const Reply& reply);
  void start(const std::shared_ptr<Characteristic>& characteristic, int attemptsLeft);
  void acquire(const std::shared_ptr<Characteristic>& characteristic);
  void stop(const std::shared_ptr<Characteristic>& characteristic);
  void takeFeed(const std::string& path);
  void call(const Characteristic& characteristic, const std::string& method,
            const Arguments& arguments, ReplyHandler handler);
  std::shared_ptr<Service> serviceAt(const std::string& path);
  std::shared_ptr<Characteristic> characteristicAt(const std::string& path);

  Radio& radio_;  ///< valid while alive_
  std::weak_ptr<Peripheral> peripheral_;
  std::string path_;
  bool alive_ = true;
  bool resolved_ = false;
  std::vector<Filter> asked_;  ///< discoveries that wait for their answer
  main_queue::Timer discoveryTimer_;
  ServiceList discovered_;
  std::vector<Filter> answered_;  ///< what `discovered_` was asked with
  bool outdated_ = false;         ///< `discovered_` lacks a service
  // By path.
  std::map<std::string, std::shared_ptr<Service>> services_;
  std::map<std::string, std::shared_ptr<Characteristic>> characteristics_;
  std::map<std::string, Feed> feeds_;
  std::map<std::string, main_queue::Timer> pauses_;
};

}  // namespace Zephly::bluez
