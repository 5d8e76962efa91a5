// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A device as one central sees it: its name, the request to connect to it, and the link while
/// there is one. Internal to the host.

#include <hosts/foundation/gatt_objects.h>
#include <hosts/simulated/device.h>
#include <hosts/simulated/link.h>

#include <memory>
#include <optional>
#include <string>

namespace Zephly::simulated {

class Central;

/// A device as one central sees it.
class Peripheral final : public hosts::LinkedPeripheral<Link> {
 public:
  Peripheral(Device& device, std::weak_ptr<Central> central);

  bool isOf(const Device& device) const { return device_ == &device; }
  bool isOf(const Central& central) const { return central_.lock().get() == &central; }

  /// The central requests a connection.
  void request();
  /// Starts an attempt for a pending request when radio and device are available.
  void resume();
  /// Interrupts the attempt; the request stays pending.
  void suspend();
  /// Starts a new attempt in place of one that would never complete.
  void restartIdleAttempt();
  /// The link is lost; a later event reports it to the central's delegate.
  void linkLost(const std::optional<std::string>& error);
  /// The central or the radio is being destroyed: ends link and request, reports nothing more.
  void retire();

 private:
  enum class Stage { idle, requested, connected };

  std::shared_ptr<Peripheral> self() {
    return std::static_pointer_cast<Peripheral>(shared_from_this());
  }
  std::weak_ptr<Peripheral> weakSelf() { return self(); }
  void attemptEnded(const ConnectBehaviour& behaviour);
  void reportDisconnection(const std::shared_ptr<Link>& link,
                           const std::optional<std::string>& error);

  Device* device_;  ///< null once retired
  std::weak_ptr<Central> central_;
  Stage stage_ = Stage::idle;  ///< as last reported to the delegate
  bool attempting_ = false;
  std::optional<Scheduler::EventId> outcome_;  ///< of the attempt; empty when it never completes
};

}  // namespace Zephly::simulated
