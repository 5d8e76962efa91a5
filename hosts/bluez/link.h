// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// One connection between a central and a device, from its beginning to its end, with the
/// discovered services and the subscriptions. Internal to the host.

#include <hosts/bluez/bluetooth.h>
#include <hosts/bluez/bus.h>
#include <hosts/bluez/gatt_objects.h>
#include <hosts/bluez/notification_reader.h>
#include <hosts/foundation/uuid_filter.h>

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
  using ServiceList = std::optional<std::vector<std::shared_ptr<CBService>>>;

  /// To the device at `path`.
  Link(Radio& radio, std::weak_ptr<Peripheral> peripheral, std::string path);

  const std::string& path() const { return path_; }
  /// Called once; `resolved`: bluetoothd knows the services already.
  void begin(bool resolved);
  /// bluetoothd knows the services.
  void servicesResolved();
  /// The device has got another service. If it passes the filter of a discovery that has been
  /// answered already, the link is given up: the list was incomplete, and the next link has all.
  void serviceAdded(const std::string& path);
  /// Delivers the values that have arrived and were not read yet.
  void drain();
  /// Ends the subscriptions with bluetoothd. It would renew them by itself on the next connection,
  /// before the kit has subscribed.
  void unsubscribe();
  /// From now on no reply and no value is delivered.
  void end();

  const ServiceList& services() const { return discovered_; }
  void discoverServices(const hosts::UUIDFilter& filter);
  void discoverCharacteristics(const hosts::UUIDFilter& filter,
                               const std::shared_ptr<CBService>& service);
  void setNotifyValue(bool enabled, const std::shared_ptr<CBCharacteristic>& characteristic);

  void valueArrived(const std::string& path, const Bytes& value);

 private:
  using ReplyHandler = std::function<void(Link&, const Reply&)>;

  void waitForServices(std::chrono::milliseconds left);
  void answerServices();
  void reportServices(const hosts::UUIDFilter& filter);
  void reportCharacteristics(const hosts::UUIDFilter& filter,
                             const std::shared_ptr<Service>& service);
  void reportSubscription(const std::shared_ptr<Characteristic>& characteristic,
                          const Reply& reply);
  void start(const std::shared_ptr<Characteristic>& characteristic, int attemptsLeft);
  void acquire(const std::shared_ptr<Characteristic>& characteristic);
  void stop(const std::shared_ptr<Characteristic>& characteristic);
  void readNotifications(const std::string& path);
  void call(const Characteristic& characteristic, const std::string& method,
            const Arguments& arguments, ReplyHandler handler);
  std::shared_ptr<Service> serviceAt(const std::string& path);
  std::shared_ptr<Characteristic> characteristicAt(const std::string& path);

  Radio& radio_;  ///< valid while alive_
  std::weak_ptr<Peripheral> peripheral_;
  std::string path_;
  bool alive_ = true;
  bool resolved_ = false;
  std::vector<hosts::UUIDFilter> pending_;  ///< discoveries without an answer yet
  main_queue::Timer discoveryTimer_;
  ServiceList discovered_;
  std::vector<hosts::UUIDFilter> answered_;  ///< filters of the discoveries that were answered
  bool outdated_ = false;                    ///< `discovered_` lacks a service
  // By path.
  std::map<std::string, std::shared_ptr<Service>> services_;
  std::map<std::string, std::shared_ptr<Characteristic>> characteristics_;
  std::map<std::string, NotificationReader> readers_;
  std::map<std::string, main_queue::Timer> pauses_;
};

}  // namespace Zephly::bluez
