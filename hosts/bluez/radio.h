#pragma once
/// @file
/// The adapter in use, its scan, and the centrals on it. Internal to the host.

#include <hosts/bluez/adapter_choice.h>
#include <hosts/bluez/bluetooth.h>
#include <hosts/bluez/daemon.h>
#include <hosts/bluez/scan.h>
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
  /// The central goes.
  void forget();

  main_queue::MainQueue& queue() { return queue_; }
  Daemon& daemon() { return daemon_; }
  const Timing& timing() const { return options_.timing; }
  Notifications notifications() const { return options_.notifications; }

  CBManagerState state() const { return state_; }
  /// Path of the device, whose last part is `key`, on the adapter in use; empty while it is not
  /// known there or the adapter is not switched on.
  std::string devicePath(const std::string& key) const;
  /// Whether the path is below the adapter in use, which is switched on.
  bool isOurs(const std::string& path) const;
  /// The name under which the device advertises, as far as BlueZ lets it be known.
  std::optional<std::string> advertisedName(const std::string& path) const;
  /// For people: why links have ended when the radio went.
  std::string whyGone() const;
  /// Whether any central but this one is connected, or being connected, to the device.
  bool neededByOthers(const Central* central, const std::string& key) const;
  /// Attempt after attempt at this device fails although it is heard: people are told.
  void connectsInVain(const std::string& path);
  /// There is a connection to this device.
  void connected(const std::string& path);
  /// What the centrals need may have changed: begins or ends the scan.
  void updateScan();
  /// Has every device that is connected already reported as heard.
  void hearConnected();

  void daemonChanged() override;
  void objectChanged(const ObjectChange& change) override;
  void deviceHeard(const std::string& path) override;
  void valueArrived(const std::string& path, const Bytes& value) override;
  void disconnectionExplained(const std::string& path, const std::string& reason) override;

 private:
  void update();
  void report();
  void reportSoon();
  void reportNow();
  std::string situation() const;
  void noteName(const ObjectChange& change);
  bool isLinked(const std::string& path) const;
  std::vector<std::shared_ptr<Central>> centrals() const;

  main_queue::MainQueue& queue_;
  Options options_;
  std::shared_ptr<void> alive_ = std::make_shared<char>();
  AdapterChoice choice_;
  CBManagerState state_ = CBManagerState::unknown;
  std::string adapter_;    ///< path of the adapter in use; empty when there is none
  std::string unreached_;  ///< path of the device that is heard and cannot be connected; or empty
  std::string reported_;   ///< the last line for people
  main_queue::Timer reportTimer_;
  /// Advertised names by path of the device.
  std::map<std::string, std::optional<std::string>> names_;
  std::vector<std::weak_ptr<Central>> centrals_;
  Daemon daemon_;
  Scan scan_;
};

}  // namespace Zephly::bluez
