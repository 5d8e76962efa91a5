// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The base of the objects in which a host shows a device to the kit: characteristics, services and
/// the peripheral. A host adds what it has to know about them itself.
///
///   class Characteristic final : public Zephly::hosts::OfLink<Zephly::hosts::Characteristic, Link>
///   {
///     ...
///   };
///
/// The kit may keep any of them after the link has ended. They then still give the values that they
/// had, and requests on them have no effect.

#include <zephly/platform/cb_peripheral.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Zephly::hosts {

/// The description of a characteristic, which the kit prints: "<CBCharacteristic: 46366E80-...,
/// properties = notify, read>".
inline std::string describe(const CBUUID& uuid, const std::string& properties) {
  return "<CBCharacteristic: " + uuid.UUIDString() + ", properties = " + properties + ">";
}

/// A characteristic with its last value.
class Characteristic : public CBCharacteristic {
 public:
  Characteristic(const CBUUID& uuid, std::string description)
      : uuid_(uuid), description_(std::move(description)) {}

  CBUUID UUID() const final { return uuid_; }
  std::shared_ptr<const NSData> value() const final { return value_; }
  std::string description() const final { return description_; }

  void setValue(std::shared_ptr<const NSData> value) { value_ = std::move(value); }

 private:
  CBUUID uuid_;
  std::string description_;
  std::shared_ptr<const NSData> value_;
};

/// A service with the characteristics that were discovered on it.
class Service : public CBService {
 public:
  /// Empty until the discovery has been answered.
  using List = std::optional<std::vector<std::shared_ptr<CBCharacteristic>>>;

  explicit Service(const CBUUID& uuid) : uuid_(uuid) {}

  CBUUID UUID() const final { return uuid_; }
  List characteristics() const final { return characteristics_; }

  void setCharacteristics(List characteristics) { characteristics_ = std::move(characteristics); }

 private:
  CBUUID uuid_;
  List characteristics_;
};

/// A characteristic or service (`Base`) of one link: requests on it are for that link only, and are
/// ignored after its end.
template <class Base, class Link>
class OfLink : public Base {
 public:
  bool belongsTo(const Link& link) const { return link_.lock().get() == &link; }

 protected:
  template <class... Arguments>
  explicit OfLink(std::weak_ptr<Link> link, Arguments&&... arguments)
      : Base(std::forward<Arguments>(arguments)...), link_(std::move(link)) {}

 private:
  std::weak_ptr<Link> link_;
};

/// A device as one central sees it: its advertised name, and the delegate that the kit has set.
class Peripheral : public CBPeripheral {
 public:
  std::optional<std::string> name() const final { return name_; }
  void setDelegate(std::weak_ptr<CBPeripheralDelegate> delegate) final {
    delegate_ = std::move(delegate);
  }

  void setName(std::optional<std::string> name) { name_ = std::move(name); }
  /// Null when the kit has set none, or has destroyed it.
  std::shared_ptr<CBPeripheralDelegate> delegate() const { return delegate_.lock(); }

 private:
  std::optional<std::string> name_;
  std::weak_ptr<CBPeripheralDelegate> delegate_;
};

/// A peripheral that passes every request on to its link, and ignores it while it has none. `Link`
/// has the operations of CBPeripheral.
template <class Link>
class LinkedPeripheral : public Peripheral {
 public:
  void discoverServices(const std::optional<std::vector<CBUUID>>& serviceUUIDs) final {
    if (link_) link_->discoverServices(serviceUUIDs);
  }
  std::optional<std::vector<std::shared_ptr<CBService>>> services() const final {
    if (!link_) return std::nullopt;
    return link_->services();
  }
  void discoverCharacteristics(const std::optional<std::vector<CBUUID>>& characteristicUUIDs,
                               const std::shared_ptr<CBService>& service) final {
    if (link_) link_->discoverCharacteristics(characteristicUUIDs, service);
  }
  void setNotifyValue(bool enabled, const std::shared_ptr<CBCharacteristic>& characteristic) final {
    if (link_) link_->setNotifyValue(enabled, characteristic);
  }

  bool isLinked() const { return link_ != nullptr; }
  /// False as soon as the end of the link has been reported.
  bool holds(const Link& link) const { return link_.get() == &link; }

 protected:
  std::shared_ptr<Link> link_;  ///< from the connection until its end is reported
};

}  // namespace Zephly::hosts
