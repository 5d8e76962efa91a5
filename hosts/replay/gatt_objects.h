#pragma once
/// @file
/// Recorded services and characteristics, and the requests of the kit for them. Internal to the
/// replay's host.

#include <zephly/platform/cb_peripheral.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Zephly::replay {

/// A characteristic within one connection. May outlive it; requests then have no effect.
class Characteristic final : public CBCharacteristic {
 public:
  Characteristic(const CBUUID& uuid, std::string description)
      : uuid_(uuid), description_(std::move(description)) {}

  CBUUID UUID() const override { return uuid_; }
  std::shared_ptr<const NSData> value() const override { return value_; }
  std::string description() const override { return description_; }

  void setValue(std::shared_ptr<const NSData> value) { value_ = std::move(value); }

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
  CBUUID uuid_;
  std::string description_;
  std::shared_ptr<const NSData> value_;
  bool requested_ = false;
  bool subscribed_ = false;
};

/// A service within one connection. May outlive it; requests then have no effect.
class Service final : public CBService {
 public:
  using List = std::vector<std::shared_ptr<CBCharacteristic>>;

  explicit Service(const CBUUID& uuid) : uuid_(uuid) {}

  CBUUID UUID() const override { return uuid_; }
  std::optional<List> characteristics() const override { return characteristics_; }

  void setCharacteristics(List characteristics) { characteristics_ = std::move(characteristics); }

  /// The kit starts the discovery of its characteristics.
  void request() { requested_ = true; }
  bool requested() const { return requested_; }

 private:
  CBUUID uuid_;
  std::optional<List> characteristics_;
  bool requested_ = false;
};

}  // namespace Zephly::replay
