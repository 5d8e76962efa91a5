// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The services and characteristics of a device, as the kit sees them. Internal to the host.

#include <hosts/foundation/gatt_objects.h>

#include <memory>
#include <string>
#include <utility>

namespace Zephly::bluez {

class Link;

/// A characteristic of one link.
class Characteristic final : public hosts::OfLink<hosts::Characteristic, Link> {
 public:
  /// `flags` as BlueZ lists them: "notify, read".
  Characteristic(std::string path, const CBUUID& uuid, const std::string& flags,
                 std::weak_ptr<Link> link)
      : OfLink(std::move(link), uuid, hosts::describe(uuid, flags)), path_(std::move(path)) {}

  const std::string& path() const { return path_; }

  /// Whether the kit has asked for its values.
  bool subscribed() const { return subscribed_; }
  void setSubscribed(bool subscribed) { subscribed_ = subscribed; }

 private:
  std::string path_;
  bool subscribed_ = false;
};

/// A service of one link.
class Service final : public hosts::OfLink<hosts::Service, Link> {
 public:
  Service(std::string path, const CBUUID& uuid, std::weak_ptr<Link> link)
      : OfLink(std::move(link), uuid), path_(std::move(path)) {}

  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

}  // namespace Zephly::bluez
