// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The services and characteristics of a simulated device: as its table lists them, and as the kit
/// sees them. Internal to the host.

#include <hosts/foundation/gatt_objects.h>

#include <memory>
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

/// The content of one notification: a value, no value, or an error in its place.
struct Value {
  std::shared_ptr<const NSData> data;
  std::shared_ptr<const NSError> error;
};

/// A characteristic of one link.
class Characteristic final : public hosts::OfLink<hosts::Characteristic, Link> {
 public:
  Characteristic(const CharacteristicEntry& entry, std::weak_ptr<Link> link)
      : OfLink(std::move(link), entry.uuid, hosts::describe(entry.uuid, entry.properties)) {}
};

/// A service of one link.
class Service final : public hosts::OfLink<hosts::Service, Link> {
 public:
  Service(std::shared_ptr<const ServiceEntry> entry, const std::weak_ptr<Link>& link)
      : OfLink(link, entry->uuid), entry_(std::move(entry)) {
    for (const auto& characteristic : entry_->characteristics) {
      all_.push_back(std::make_shared<Characteristic>(*characteristic, link));
    }
  }

  const std::shared_ptr<const ServiceEntry>& entry() const { return entry_; }
  /// Everything that the device has, discovered or not.
  const std::vector<std::shared_ptr<Characteristic>>& all() const { return all_; }

 private:
  std::shared_ptr<const ServiceEntry> entry_;
  std::vector<std::shared_ptr<Characteristic>> all_;
};

}  // namespace Zephly::simulated
