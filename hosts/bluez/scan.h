// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The scan on one adapter: for LE devices of every kind, each advertisement reported, restarted
/// whenever it ends by itself.

#include <hosts/bluez/daemon.h>
#include <hosts/bluez/retry.h>

#include <cstdint>
#include <string>

namespace Zephly::bluez {

/// One scan, on one adapter at a time.
class Scan {
 public:
  Scan(main_queue::MainQueue& queue, Daemon& daemon, const Timing& timing)
      : daemon_(daemon), timing_(timing), retry_(queue, timing) {}

  /// Scans on this adapter, which must be powered, instead of the previous one. Empty: stops.
  void on(const std::string& adapter);
  /// bluetoothd or the adapter is gone, and the scan with it: nothing to stop.
  void lost();
  /// The property Discovering of the scan's adapter has changed.
  void discoveringIs(bool discovering);

 private:
  void start();
  bool already(const Reply& reply) const;
  void failed();

  Daemon& daemon_;
  Timing timing_;
  Retry retry_;
  std::string adapter_;  ///< path; empty when there is nothing to scan for
  bool running_ = false;
  std::uint64_t attempt_ = 0;  ///< number of the latest; replies to earlier ones are dropped
};

}  // namespace Zephly::bluez
