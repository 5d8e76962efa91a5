// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The central of a replay: holds the recorded state and the requests of the kit. Internal to the
/// replay's host.

#include <hosts/replay/peripheral.h>
#include <zephly/platform/cb_central_manager.h>

#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace Zephly::replay {

/// Does not refer to its host, which it may outlive.
class Central final : public CBCentralManager {
 public:
  explicit Central(std::weak_ptr<CBCentralManagerDelegate> delegate)
      : delegate_(std::move(delegate)) {}

  CBManagerState state() const override { return state_; }

  void scanForPeripheralsWithServices(const std::optional<std::vector<CBUUID>>& /*serviceUUIDs*/,
                                      const std::optional<CBOptions>& /*options*/) override {
    if (state_ == CBManagerState::poweredOn) scanning_ = true;
  }

  void connectPeripheral(const std::shared_ptr<CBPeripheral>& peripheral,
                         const std::optional<CBOptions>& /*options*/) override {
    if (const auto own = std::dynamic_pointer_cast<Peripheral>(peripheral)) own->request();
  }

  std::shared_ptr<CBCentralManagerDelegate> delegate() const { return delegate_.lock(); }
  bool scanning() const { return scanning_; }

  void setState(CBManagerState state) {
    state_ = state;
    if (state != CBManagerState::poweredOn) scanning_ = false;
  }

 private:
  std::weak_ptr<CBCentralManagerDelegate> delegate_;
  CBManagerState state_ = CBManagerState::unknown;
  bool scanning_ = false;
};

}  // namespace Zephly::replay
