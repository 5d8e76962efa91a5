// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A peripheral between the host's and the kit. Internal to the tap.

#include <capture/tap_notes.h>
#include <zephly/platform/cb_peripheral.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Zephly::capture {

/// The delegate of the host's peripheral, and the peripheral of the kit's delegate.
class TapPeripheral final : public CBPeripheral, public CBPeripheralDelegate {
 public:
  TapPeripheral(std::shared_ptr<TapNotes> notes, std::shared_ptr<CBPeripheral> inner);

  /// The host's peripheral.
  const std::shared_ptr<CBPeripheral>& inner() const { return inner_; }
  /// Whether this object holds the only reference to the host's peripheral.
  bool alone() const { return inner_.use_count() == 1; }
  /// Its number; assigned by the first call.
  ObjectId id();

  std::optional<std::string> name() const override { return inner_->name(); }
  std::string description() const override { return inner_->description(); }
  void setDelegate(std::weak_ptr<CBPeripheralDelegate> delegate) override;
  void discoverServices(const std::optional<std::vector<CBUUID>>& serviceUUIDs) override;
  std::optional<std::vector<std::shared_ptr<CBService>>> services() const override;
  void discoverCharacteristics(const std::optional<std::vector<CBUUID>>& characteristicUUIDs,
                               const std::shared_ptr<CBService>& service) override;
  void setNotifyValue(bool enabled,
                      const std::shared_ptr<CBCharacteristic>& characteristic) override;

  void peripheralDidDiscoverServices(const std::shared_ptr<CBPeripheral>& peripheral,
                                     const std::shared_ptr<const NSError>& error) override;
  void peripheralDidDiscoverCharacteristicsForService(
      const std::shared_ptr<CBPeripheral>& peripheral, const std::shared_ptr<CBService>& service,
      const std::shared_ptr<const NSError>& error) override;
  void peripheralDidUpdateNotificationStateForCharacteristic(
      const std::shared_ptr<CBPeripheral>& peripheral,
      const std::shared_ptr<CBCharacteristic>& characteristic,
      const std::shared_ptr<const NSError>& error) override;
  void peripheralDidUpdateValueForCharacteristic(
      const std::shared_ptr<CBPeripheral>& peripheral,
      const std::shared_ptr<CBCharacteristic>& characteristic,
      const std::shared_ptr<const NSError>& error) override;

 private:
  std::shared_ptr<TapPeripheral> self() {
    return std::static_pointer_cast<TapPeripheral>(shared_from_this());
  }

  std::shared_ptr<TapNotes> notes_;
  std::shared_ptr<CBPeripheral> inner_;
  ObjectId id_ = 0;                               // 0: none yet
  std::weak_ptr<CBPeripheralDelegate> delegate_;  // the kit's
};

}  // namespace Zephly::capture
