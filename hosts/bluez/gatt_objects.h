#pragma once
/// @file
/// What the kit sees of a device's services and characteristics. Internal to the host.

#include <zephly/platform/cb_peripheral.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Zephly::bluez {

class Link;

/// A characteristic as one link shows it; dead with its link, but harmless.
class Characteristic final : public CBCharacteristic {
 public:
  /// `flags` as BlueZ lists them: "notify", "read".
  Characteristic(std::string path, const CBUUID& uuid, std::string flags, std::weak_ptr<Link> link)
      : path_(std::move(path)), uuid_(uuid), flags_(std::move(flags)), link_(std::move(link)) {}

  CBUUID UUID() const override { return uuid_; }
  std::shared_ptr<const NSData> value() const override { return value_; }
  std::string description() const override {
    return "<CBCharacteristic: " + uuid_.UUIDString() + ", properties = " + flags_ + ">";
  }

  const std::string& path() const { return path_; }
  bool belongsTo(const Link& link) const { return link_.lock().get() == &link; }
  void setValue(std::shared_ptr<const NSData> value) { value_ = std::move(value); }

  /// Whether its values are wanted.
  bool subscribed() const { return subscribed_; }
  void setSubscribed(bool subscribed) { subscribed_ = subscribed; }

 private:
  std::string path_;
  CBUUID uuid_;
  std::string flags_;
  std::weak_ptr<Link> link_;
  std::shared_ptr<const NSData> value_;
  bool subscribed_ = false;
};

/// A service as one link shows it; dead with its link, but harmless.
class Service final : public CBService {
 public:
  using List = std::optional<std::vector<std::shared_ptr<CBCharacteristic>>>;

  Service(std::string path, const CBUUID& uuid, std::weak_ptr<Link> link)
      : path_(std::move(path)), uuid_(uuid), link_(std::move(link)) {}

  CBUUID UUID() const override { return uuid_; }
  List characteristics() const override { return discovered_; }

  const std::string& path() const { return path_; }
  bool belongsTo(const Link& link) const { return link_.lock().get() == &link; }
  void setDiscovered(List list) { discovered_ = std::move(list); }

 private:
  std::string path_;
  CBUUID uuid_;
  std::weak_ptr<Link> link_;
  List discovered_;
};

}  // namespace Zephly::bluez
