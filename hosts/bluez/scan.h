#pragma once
/// @file
/// The scan on one adapter: for LE devices of every kind, each advertisement reported, kept going
/// for as long as it is wanted.

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

  /// Scans on this adapter, which is switched on, in place of any other; empty: on none.
  void on(const std::string& adapter);
  /// bluetoothd or the adapter has gone, and the scan with it.
  void lost();
  /// bluetoothd says whether the adapter of the scan looks for devices.
  void discoveringIs(bool discovering);

 private:
  void start();
  bool already(const Reply& reply) const;
  void failed();

  Daemon& daemon_;
  Timing timing_;
  Retry retry_;
  std::string adapter_;  ///< empty when none is wanted
  bool running_ = false;
  std::uint64_t attempt_ = 0;  ///< so that answers to an earlier one are not taken for its own
};

}  // namespace Zephly::bluez
