// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Recorded services and characteristics, and the requests of the kit for them. Internal to the
/// replay's host.

#include <hosts/foundation/gatt_objects.h>

namespace Zephly::replay {

/// A characteristic within one connection.
class Characteristic final : public hosts::Characteristic {
 public:
  using hosts::Characteristic::Characteristic;

  /// The kit subscribes (true) or unsubscribes.
  void request(bool enabled) {
    requested_ = true;
    subscribed_ = subscribed_ || enabled;
  }
  /// Whether it has done either.
  bool requested() const { return requested_; }
  /// Whether it has ever subscribed.
  bool subscribed() const { return subscribed_; }

 private:
  bool requested_ = false;
  bool subscribed_ = false;
};

/// A service within one connection.
class Service final : public hosts::Service {
 public:
  using hosts::Service::Service;

  /// The kit starts the discovery of its characteristics.
  void request() { requested_ = true; }
  bool requested() const { return requested_; }

 private:
  bool requested_ = false;
};

}  // namespace Zephly::replay
