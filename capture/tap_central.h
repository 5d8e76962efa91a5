// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A central between the host's and the kit. Internal to the tap.

#include <capture/tap_notes.h>
#include <capture/tap_peripheral.h>
#include <zephly/platform/cb_central_manager.h>
#include <zephly/platform/host.h>

#include <memory>
#include <optional>
#include <vector>

namespace Zephly::capture {

/// The delegate of the host's central, and the central of the kit's delegate.
class TapCentral final : public CBCentralManager, public CBCentralManagerDelegate {
 public:
  static std::shared_ptr<CBCentralManager> create(Host& host, std::shared_ptr<TapNotes> notes,
                                                  std::weak_ptr<CBCentralManagerDelegate> delegate,
                                                  DispatchQueue* queue,
                                                  const std::optional<CBOptions>& options);

  CBManagerState state() const override { return inner_->state(); }
  std::string description() const override { return inner_->description(); }
  void scanForPeripheralsWithServices(const std::optional<std::vector<CBUUID>>& serviceUUIDs,
                                      const std::optional<CBOptions>& options) override;
  void connectPeripheral(const std::shared_ptr<CBPeripheral>& peripheral,
                         const std::optional<CBOptions>& options) override;

  void centralManagerDidUpdateState(const std::shared_ptr<CBCentralManager>& central) override;
  void centralManagerDidDiscoverPeripheral(const std::shared_ptr<CBCentralManager>& central,
                                           const std::shared_ptr<CBPeripheral>& peripheral,
                                           const CBAdvertisementData& advertisementData,
                                           int RSSI) override;
  void centralManagerDidConnectPeripheral(const std::shared_ptr<CBCentralManager>& central,
                                          const std::shared_ptr<CBPeripheral>& peripheral) override;
  void centralManagerDidFailToConnectPeripheral(
      const std::shared_ptr<CBCentralManager>& central,
      const std::shared_ptr<CBPeripheral>& peripheral,
      const std::shared_ptr<const NSError>& error) override;
  void centralManagerDidDisconnectPeripheral(const std::shared_ptr<CBCentralManager>& central,
                                             const std::shared_ptr<CBPeripheral>& peripheral,
                                             const std::shared_ptr<const NSError>& error) override;

 private:
  TapCentral(std::shared_ptr<TapNotes> notes, std::weak_ptr<CBCentralManagerDelegate> delegate);

  std::shared_ptr<CBCentralManager> self() {
    return std::static_pointer_cast<CBCentralManager>(shared_from_this());
  }
  std::shared_ptr<TapPeripheral> wrapperOf(const std::shared_ptr<CBPeripheral>& peripheral);

  std::shared_ptr<TapNotes> notes_;
  std::weak_ptr<CBCentralManagerDelegate> delegate_;  // the kit's
  std::shared_ptr<CBCentralManager> inner_;
  std::vector<std::shared_ptr<TapPeripheral>> peripherals_;
  // While an advertisement is passed on: the wrapper of its peripheral, and whether the kit has
  // requested a connection to it.
  const CBPeripheral* advertised_ = nullptr;
  bool requested_ = false;
};

}  // namespace Zephly::capture
