// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// One connection between a central and a device, from its beginning to its end, with the
/// discovered services, the subscriptions and the pending answers. Internal to the host.

#include <hosts/foundation/uuid_filter.h>
#include <hosts/simulated/device.h>
#include <hosts/simulated/gatt_objects.h>
#include <zephly/platform/cb_peripheral.h>

#include <memory>
#include <optional>
#include <vector>

namespace Zephly::simulated {

class Peripheral;

/// One connection between a central and a device, from its beginning to its end.
class Link : public std::enable_shared_from_this<Link> {
 public:
  using ServiceList = std::optional<std::vector<std::shared_ptr<CBService>>>;

  Link(Device& device, std::weak_ptr<Peripheral> peripheral);

  std::shared_ptr<Peripheral> peripheral() const { return peripheral_.lock(); }
  bool alive() const { return alive_; }
  /// From now on it ignores requests and answers none. Values under way are still delivered, until
  /// the peripheral has reported the end of the link.
  void end();

  const ServiceList& services() const { return discovered_; }
  void discoverServices(const hosts::UUIDFilter& filter);
  void discoverCharacteristics(const hosts::UUIDFilter& filter,
                               const std::shared_ptr<CBService>& service);
  void setNotifyValue(bool enabled, const std::shared_ptr<CBCharacteristic>& characteristic);

  bool isSubscribed(const CBUUID& characteristic) const;
  /// Sends on every subscribed characteristic of that identifier; false when there is none.
  bool send(const CBUUID& characteristic, const Value& value);

 private:
  void reportServices(const DiscoveryAnswer& answer, const hosts::UUIDFilter& filter);
  void reportCharacteristics(const DiscoveryAnswer& answer, const hosts::UUIDFilter& filter,
                             const std::shared_ptr<Service>& service);
  void reportSubscription(const SubscriptionAnswer& answer,
                          const std::shared_ptr<Characteristic>& characteristic);
  void applySubscription(bool enabled, const std::shared_ptr<Characteristic>& characteristic);
  void deliver(const std::shared_ptr<Characteristic>& characteristic, const Value& value);
  std::shared_ptr<Service> serviceOf(const std::shared_ptr<const ServiceEntry>& entry);

  Device& device_;  ///< valid while alive_
  std::weak_ptr<Peripheral> peripheral_;
  bool alive_ = true;
  std::vector<std::shared_ptr<Service>> known_;
  ServiceList discovered_;
  std::vector<std::shared_ptr<Characteristic>> subscribed_;
};

}  // namespace Zephly::simulated
