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
///   strap.notify(batteryCharacteristicUUID(), {0x20, 0x03, 0x01});  // 80 %, charging
///   scheduler.advance(0s);   // delivered
///
/// Everything that a delegate is told comes out of the scheduler, also what takes no time: nothing
/// is ever called from inside the call that asked for it, nor two things at once. Use it from one
/// thread.
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

/// The air, and the host in use while it lives.
class ZEPHLY_EXPORT Radio final : public Host {
 public:
  /// Becomes the host in use (Host::use). `state` is what every central is told at first; until
  /// then its state is unknown. The scheduler must outlive the radio.
  explicit Radio(Scheduler& scheduler, CBManagerState state = CBManagerState::poweredOn);
  Radio(const Radio&) = delete;
  Radio& operator=(const Radio&) = delete;
  /// Host::leave. Devices go with the radio; centrals that outlive it report `unsupported`, do
  /// nothing and are told nothing any more.
  ~Radio() override;

  std::shared_ptr<CBCentralManager> createCentralManager(
      std::weak_ptr<CBCentralManagerDelegate> delegate, DispatchQueue* queue,
      const std::optional<CBOptions>& options) override;

  /// Changes the state; each central is told each change, once and in order. Leaving `poweredOn`
  /// ends all scans and all links: first the state is told, then the end of each link, with an
  /// error. Connection requests stand and are taken up again when the radio is on, those made
  /// meanwhile too; a scan has to be asked for again. Setting the state that it has does nothing.
  void setState(CBManagerState state);
  CBManagerState state() const { return state_; }

  /// A new device, which lives as long as the radio. It begins to advertise at once when it is in
  /// range.
  Device& addDevice(DeviceOptions options = {});

  Scheduler& scheduler() { return scheduler_; }

 private:
  friend class Central;
  friend class Device;

  /// True when an advertisement now would reach somebody.
  bool hears();
  void updateAdvertising();
  std::vector<std::shared_ptr<Central>> liveCentrals();

  Scheduler& scheduler_;
  CBManagerState state_;
  std::vector<std::unique_ptr<Device>> devices_;
  std::vector<std::weak_ptr<Central>> centrals_;
};

}  // namespace Zephly::simulated
