// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The adapter in use, its scan, and the centrals on it. Internal to the host.

#include <hosts/bluez/adapter_choice.h>
#include <hosts/bluez/bluetooth.h>
#include <hosts/bluez/daemon.h>
#include <hosts/bluez/scan.h>
#include <hosts/bluez/status.h>
#include <zephly/platform/cb_central_manager.h>

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Zephly::bluez {

class Central;

/// Follows bluetoothd on behalf of all centrals.
class Radio final : public DaemonListener {
 public:
  Radio(main_queue::MainQueue& queue, Options options);
  Radio(const Radio&) = delete;
  Radio& operator=(const Radio&) = delete;
  /// Retires the centrals.
  ~Radio() override;

  std::shared_ptr<Central> createCentral(std::weak_ptr<CBCentralManagerDelegate> delegate);
  /// A central has been destroyed.
  void forget();

  main_queue::MainQueue& queue() { return queue_; }
  Daemon& daemon() { return daemon_; }
  const Timing& timing() const { return options_.timing; }
  Notifications notifications() const { return options_.notifications; }

  CBManagerState state() const { return state_; }
  /// Path of the device whose last part is `key`, on the adapter in use; empty while BlueZ does not
  /// know it there or the adapter is switched off.
  std::string devicePath(const std::string& key) const;
  /// Whether the path is below the adapter in use, which is switched on.
  bool isOurs(const std::string& path) const;
  /// The advertised name of the device, as far as BlueZ shows it.
  std::optional<std::string> advertisedName(const std::string& path) const;
  /// Text of the error with which links end when the adapter becomes unusable.
  std::string lossReason() const;
  /// Whether any central other than this one is connected, or being connected, to the device.
  bool neededByOthers(const Central* central, const std::string& key) const;
  /// Several attempts in a row to connect this device have stalled although it advertises: adds
  /// that to the status line.
  void reportUnreachable(const std::string& path);
  /// This device has been connected.
  void connected(const std::string& path);
  /// Starts or stops the scan, after any change of what the centrals need.
  void updateScan();
  /// Reports every device that is connected already as if it had advertised: connected devices do
  /// not advertise, and a scan would never find them.
  void reportConnectedDevices();

  void daemonChanged() override;
  void objectChanged(const ObjectChange& change) override;
  void deviceAdvertised(const std::string& path) override;
  void valueArrived(const std::string& path, const Bytes& value) override;
  void disconnectionExplained(const std::string& path, const std::string& reason) override;

 private:
  void update();
  std::string status() const;
  void report(const std::string& line) const;
  void noteName(const ObjectChange& change);
  bool isLinked(const std::string& path) const;
  std::vector<std::shared_ptr<Central>> centrals() const;

  main_queue::MainQueue& queue_;
  Options options_;
  std::shared_ptr<void> alive_ = std::make_shared<char>();
  AdapterChoice choice_;
  CBManagerState state_ = CBManagerState::unknown;
  std::string adapter_;      ///< path of the adapter in use; empty when there is none
  std::string unreachable_;  ///< path of a device that advertises but cannot be connected; or empty
  StatusReport statusReport_;
  /// Advertised names by path of the device.
  std::map<std::string, std::optional<std::string>> names_;
  std::vector<std::weak_ptr<Central>> centrals_;
  Daemon daemon_;
  Scan scan_;
};

}  // namespace Zephly::bluez
