#pragma once
/// @file
/// What the kit sees of a simulated device's services and characteristics. Internal to the host.

#include <zephly/platform/cb_peripheral.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Zephly::simulated {

class Link;

/// A characteristic in a device's table.
struct CharacteristicEntry {
  CBUUID uuid;
  std::string properties;
};

/// A service in a device's table.
struct ServiceEntry {
  CBUUID uuid;
  std::vector<std::shared_ptr<const CharacteristicEntry>> characteristics;
};

/// What one notification brings: a value, no value, or an error in its place.
struct Value {
  std::shared_ptr<const NSData> data;
  std::shared_ptr<const NSError> error;
};

/// A characteristic as one link shows it; dead with its link, but harmless.
class Characteristic final : public CBCharacteristic {
 public:
  Characteristic(std::shared_ptr<const CharacteristicEntry> entry, std::weak_ptr<Link> link)
      : entry_(std::move(entry)), link_(std::move(link)) {}

  CBUUID UUID() const override { return entry_->uuid; }
  std::shared_ptr<const NSData> value() const override { return value_; }
  std::string description() const override {
    return "<CBCharacteristic: " + entry_->uuid.UUIDString() +
           ", properties = " + entry_->properties + ">";
  }

  const std::shared_ptr<const CharacteristicEntry>& entry() const { return entry_; }
  bool belongsTo(const Link& link) const { return link_.lock().get() == &link; }
  void setValue(std::shared_ptr<const NSData> value) { value_ = std::move(value); }

 private:
  std::shared_ptr<const CharacteristicEntry> entry_;
  std::weak_ptr<Link> link_;
  std::shared_ptr<const NSData> value_;
};

/// A service as one link shows it; dead with its link, but harmless.
class Service final : public CBService {
 public:
  using List = std::optional<std::vector<std::shared_ptr<CBCharacteristic>>>;

  Service(std::shared_ptr<const ServiceEntry> entry, const std::weak_ptr<Link>& link)
      : entry_(std::move(entry)), link_(link) {
    for (const auto& characteristic : entry_->characteristics) {
      all_.push_back(std::make_shared<Characteristic>(characteristic, link));
    }
  }

  CBUUID UUID() const override { return entry_->uuid; }
  List characteristics() const override { return discovered_; }

  const std::shared_ptr<const ServiceEntry>& entry() const { return entry_; }
  bool belongsTo(const Link& link) const { return link_.lock().get() == &link; }
  /// Everything that the device has, discovered or not.
  const std::vector<std::shared_ptr<Characteristic>>& all() const { return all_; }
  void setDiscovered(List list) { discovered_ = std::move(list); }

 private:
  std::shared_ptr<const ServiceEntry> entry_;
  std::weak_ptr<Link> link_;
  std::vector<std::shared_ptr<Characteristic>> all_;
  List discovered_;
};

}  // namespace Zephly::simulated
