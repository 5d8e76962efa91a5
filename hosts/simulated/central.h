// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The kit's view of the simulated radio. Internal to the host.

#include <hosts/simulated/peripheral.h>
#include <zephly/platform/cb_central_manager.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Zephly::simulated {

class Radio;

/// One central on the radio.
class Central final : public CBCentralManager {
 public:
  Central(Radio& radio, std::weak_ptr<CBCentralManagerDelegate> delegate);
  Central(const Central&) = delete;
  Central& operator=(const Central&) = delete;
  ~Central() override;

  CBManagerState state() const override { return state_; }
  void scanForPeripheralsWithServices(const std::optional<std::vector<CBUUID>>& serviceUUIDs,
                                      const std::optional<CBOptions>& options) override;
  void connectPeripheral(const std::shared_ptr<CBPeripheral>& peripheral,
                         const std::optional<CBOptions>& options) override;

  std::shared_ptr<CBCentralManagerDelegate> delegate() const { return delegate_.lock(); }
  bool scanning() const { return scanning_; }
  /// In the order of their first advertisements.
  const std::vector<std::shared_ptr<Peripheral>>& peripherals() const { return peripherals_; }

  /// Changes the state and reports it by a later event; several calls in their order.
  void postState(CBManagerState state);
  /// The device has advertised. Reported by a later event.
  void advertised(Device& device, const CBAdvertisementData& advertisement, int rssi);
  /// The radio is being destroyed.
  void retire();

 private:
  std::weak_ptr<Central> weakSelf() {
    return std::static_pointer_cast<Central>(shared_from_this());
  }
  void reportState(CBManagerState state);
  void reportDiscovery(const std::shared_ptr<Peripheral>& peripheral,
                       const CBAdvertisementData& advertisement, int rssi);
  std::shared_ptr<Peripheral> peripheralOf(Device& device);

  Radio* radio_;  ///< null after retire()
  std::weak_ptr<CBCentralManagerDelegate> delegate_;
  CBManagerState state_ = CBManagerState::unknown;  ///< as last reported to the delegate
  bool scanning_ = false;
  hosts::UUIDFilter filter_;
  std::vector<std::shared_ptr<Peripheral>> peripherals_;
};

}  // namespace Zephly::simulated
