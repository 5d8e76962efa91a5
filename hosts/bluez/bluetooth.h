// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The Bluetooth of a Linux machine: the host on BlueZ (`org.bluez` on the D-Bus system bus).
///
///   Zephly::main_queue::MainQueue queue;
///   Zephly::bluez::Bluetooth bluetooth(queue);  // from now on the host in use
///   auto session = Zephly::Zephly::init(application);
///   queue.run();
///
/// It needs the service bluetoothd (Debian package bluez) and the permission to use it (on stricter
/// systems, membership of the group bluetooth). What is missing is reported by one line and as the
/// state of the radio. The host works as soon as it is available: bus, service, adapter and power
/// may appear and disappear at any time.
///
/// Scans, connection requests and links survive that as far as possible: a scan continues on the
/// next powered adapter, a connection request is repeated until it succeeds, the loss of a link is
/// reported once, with the reason if BlueZ gives one.
///
/// The host does not block, except at its end, for at most Timing::leaveLimit. A short-lived thread
/// connects to the bus, so that a bus that does not answer delays nothing. Everything else
/// runs on the main queue and must be used from the thread that runs it.

#include <hosts/bluez/timing.h>
#include <hosts/main_queue/main_queue.h>
#include <zephly/platform/export.h>
#include <zephly/platform/host.h>

#include <csignal>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Zephly::bluez {

/// How bluetoothd passes on the values of a subscribed characteristic.
enum class Notifications {
  signals,      ///< as D-Bus signals, in one order for all characteristics
  descriptors,  ///< through one descriptor for each characteristic
};

/// Options of the host; all have defaults.
struct Options {
  /// The adapter to use: "hci0", or its address "00:1A:7D:DA:71:13". An adapter named by its number
  /// is recognised by its address when it comes back under another number. Empty: the first one
  /// that is powered.
  std::string adapter = {};
  /// D-Bus address of the bus; empty: the system bus.
  std::string busAddress = {};
  Notifications notifications = Notifications::signals;
  /// Signals that end the program: the host stops the scan and disconnects the strap, then the
  /// signal takes its default action. Empty for a program that handles them itself and destroys the
  /// host.
  std::vector<int> releaseOn = {SIGINT, SIGTERM};
  /// Gets one line for people whenever the state of the radio changes, and when a device that
  /// advertises cannot be connected: what is missing or does not work, and a command that helps.
  /// By default the lines go to console().
  std::function<void(std::string_view)> report = {};
  Timing timing = {};
};

/// The host in use while it lives.
class ZEPHLY_EXPORT Bluetooth final : public Host {
 public:
  /// Becomes the host in use (Host::use). The queue must outlive it.
  explicit Bluetooth(main_queue::MainQueue& queue, Options options = {});
  Bluetooth(const Bluetooth&) = delete;
  Bluetooth& operator=(const Bluetooth&) = delete;
  /// Host::leave. Stops the scan and disconnects the devices. Waits until the bus has read these
  /// requests, at most 3 s, but not until bluetoothd has acted on them. Centrals that outlive it
  /// report `unsupported`, do nothing and call no delegate any more.
  ~Bluetooth() override;

  std::shared_ptr<CBCentralManager> createCentralManager(
      std::weak_ptr<CBCentralManagerDelegate> delegate, DispatchQueue* queue,
      const std::optional<CBOptions>& options) override;

 private:
  class Implementation;
  std::unique_ptr<Implementation> implementation_;
};

}  // namespace Zephly::bluez
