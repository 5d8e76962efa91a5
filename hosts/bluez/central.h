// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The kit's view of the radio. Internal to the host.

#include <hosts/bluez/object_tree.h>
#include <hosts/bluez/value.h>
#include <hosts/foundation/uuid_filter.h>
#include <zephly/platform/cb_central_manager.h>

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Zephly::bluez {

class Peripheral;
class Radio;

/// One central on the adapter. A device is known by its key, the last part of its path, which is
/// the same on every adapter: "dev_C4_11_22_33_44_55".
class Central final : public CBCentralManager {
 public:
  /// Without a radio (null) it behaves as one whose radio has been destroyed.
  Central(Radio* radio, std::weak_ptr<CBCentralManagerDelegate> delegate);
  Central(const Central&) = delete;
  Central& operator=(const Central&) = delete;
  ~Central() override;

  CBManagerState state() const override { return state_; }
  void scanForPeripheralsWithServices(const std::optional<std::vector<CBUUID>>& serviceUUIDs,
                                      const std::optional<CBOptions>& options) override;
  void connectPeripheral(const std::shared_ptr<CBPeripheral>& peripheral,
                         const std::optional<CBOptions>& options) override;

  /// Null after retire().
  Radio* radio() const { return radio_; }
  std::shared_ptr<CBCentralManagerDelegate> delegate() const { return delegate_.lock(); }
  /// Whether a scan was requested, or a requested device has to be found.
  bool needsScan() const;
  /// Whether it is connected, or being connected, to the device.
  bool needs(const std::string& key) const;
  bool isLinked(const std::string& key) const;
  /// Owns a peripheral while it has a request or a link, or releases it.
  void keep(const std::shared_ptr<Peripheral>& peripheral, bool kept);

  /// Takes over the radio's state by a later turn.
  void radioChangesSoon();
  /// The radio's state or adapter has changed.
  void radioChanged();
  void deviceAdvertised(const std::string& key, const std::string& path);
  void deviceChanged(const std::string& key, const ObjectChange& change);
  void serviceAdded(const std::string& key, const std::string& path);
  void valueArrived(const std::string& key, const std::string& path, const Bytes& value);
  void disconnectionExplained(const std::string& key, const std::string& reason);
  /// The radio is being destroyed: releases the devices.
  void retire();

 private:
  std::weak_ptr<Central> weakSelf() {
    return std::static_pointer_cast<Central>(weak_from_this().lock());
  }
  std::shared_ptr<Peripheral> peripheral(const std::string& key) const;
  std::vector<std::shared_ptr<Peripheral>> keptOnes() const;

  Radio* radio_;
  std::weak_ptr<CBCentralManagerDelegate> delegate_;
  CBManagerState state_;  ///< as last reported to the delegate
  bool scanning_ = false;
  hosts::UUIDFilter filter_;
  std::map<std::string, std::shared_ptr<Peripheral>> kept_;
  /// All that the application may still hold.
  std::map<std::string, std::weak_ptr<Peripheral>> known_;
};

}  // namespace Zephly::bluez
