#pragma once
/// @file
/// The Bluetooth of a Linux machine: the host on BlueZ (`org.bluez` on the D-Bus system bus).
///
///   Zephly::main_queue::MainQueue queue;
///   Zephly::bluez::Bluetooth bluetooth(queue);  // from now on the host in use
///   auto session = Zephly::Zephly::init(application);
///   queue.run();
///
/// It needs the service bluetoothd (Debian package bluez) and the permission to speak to it (on
/// stricter systems, membership of the group bluetooth). What is missing is told by one line and as
/// the radio's state, and everything begins to work by itself when it is there: bus, service,
/// adapter and power may come and go at any time.
///
/// Scans, connection requests and links survive that as far as they can: a scan goes on with the
/// next powered adapter, a connection request is made anew until it succeeds, a link that is lost
/// is told once, with the reason as far as BlueZ gives one.
///
/// No thread is started, and nothing waits: all of it lives on the main queue, and belongs to the
/// thread that runs it. (Connecting to the bus waits for the bus's greeting.)

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

/// How the values of a subscribed characteristic come from bluetoothd.
enum class Notifications {
  signals,      ///< as D-Bus signals, in one order for all characteristics
  descriptors,  ///< each characteristic through a descriptor of its own
};

/// How the host is set up; everything has a default.
struct Options {
  /// The adapter to use: "hci0", or its address "00:1A:7D:DA:71:13". An adapter named by its number
  /// is recognised by its address when it comes back under another number. Empty: the first one
  /// that is powered.
  std::string adapter = {};
  /// D-Bus address of the bus; empty: the system bus.
  std::string busAddress = {};
  Notifications notifications = Notifications::signals;
  /// Signals that end the program: the scan is stopped and the strap released before the signal
  /// does its default. Empty for a program that handles them itself and destroys the host.
  std::vector<int> releaseOn = {SIGINT, SIGTERM};
  /// Gets one line for people whenever the state of the radio changes, and when attempts to connect
  /// a device that is heard lead nowhere: what is missing or does not work and what to do about it.
  /// Without one, the lines go to console().
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
  /// Host::leave. Stops the scan and releases the devices, without waiting for either. Centrals
  /// that outlive it report `unsupported`, do nothing and are told nothing any more.
  ~Bluetooth() override;

  std::shared_ptr<CBCentralManager> createCentralManager(
      std::weak_ptr<CBCentralManagerDelegate> delegate, DispatchQueue* queue,
      const std::optional<CBOptions>& options) override;

 private:
  class Implementation;
  std::unique_ptr<Implementation> implementation_;
};

}  // namespace Zephly::bluez
