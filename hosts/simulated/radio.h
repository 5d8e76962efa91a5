// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A Bluetooth radio inside the process, with any number of devices in its reach: the host for
/// tests and for work without hardware.
///
///   using namespace Zephly::simulated;
///   Scheduler scheduler;
///   Radio radio(scheduler);  // from now on the host in use
///   Device& strap = radio.addDevice({.name = "Zephly"});
///   addStrapProfile(strap);
///   auto session = Zephly::Zephly::init(application);
///   scheduler.advance(1s);   // found, connected, subscribed
///   strap.notify(temperatureCharacteristicUUID(), {0x43, 0x3A, 0, 0});
///   scheduler.advance(0s);   // delivered
///
/// Delegates are only called by events of the scheduler, even for what takes no time: never from
/// inside the call that requested it, and never two at once. Use it from one thread.
///
/// Any number of centrals share the radio, each with its own scan, its own links and its own
/// CBPeripheral for a device; a CBPeripheral stays the same object for as long as its central
/// lives.

#include <hosts/simulated/device.h>
#include <hosts/simulated/scheduler.h>
#include <zephly/platform/export.h>
#include <zephly/platform/host.h>

#include <memory>
#include <optional>
#include <vector>

namespace Zephly::simulated {

class Central;

/// The radio, which is the current host during its lifetime.
class ZEPHLY_EXPORT Radio final : public Host {
 public:
  /// Becomes the host in use (Host::use). `state` is the first state reported to every central;
  /// until then its state is unknown. The scheduler must outlive the radio.
  explicit Radio(Scheduler& scheduler, CBManagerState state = CBManagerState::poweredOn);
  Radio(const Radio&) = delete;
  Radio& operator=(const Radio&) = delete;
  /// Host::leave. Destroys the devices; centrals that outlive the radio report `unsupported`, do
  /// nothing and call no delegate any more.
  ~Radio() override;

  std::shared_ptr<CBCentralManager> createCentralManager(
      std::weak_ptr<CBCentralManagerDelegate> delegate, DispatchQueue* queue,
      const std::optional<CBOptions>& options) override;

  /// Changes the state and reports each change to each central, once and in order. Leaving
  /// `poweredOn` ends all scans and all links: first the state is reported, then the end of each
  /// link, with an error. Connection requests, also those made meanwhile, stay pending until the
  /// radio is on again; a scan has to be requested again. Setting the present state does nothing.
  void setState(CBManagerState state);
  CBManagerState state() const { return state_; }

  /// A new device, which lives as long as the radio. It begins to advertise at once when it is in
  /// range.
  Device& addDevice(DeviceOptions options = {});

  Scheduler& scheduler() { return scheduler_; }

 private:
  friend class Central;
  friend class Device;

  /// True when an advertisement now would reach a central.
  bool scanned();
  void updateAdvertising();
  std::vector<std::shared_ptr<Central>> liveCentrals();

  Scheduler& scheduler_;
  CBManagerState state_;
  std::vector<std::unique_ptr<Device>> devices_;
  std::vector<std::weak_ptr<Central>> centrals_;
};

}  // namespace Zephly::simulated
