// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The pauses and time limits of the host. The defaults suit BlueZ; tests shorten them.

#include <chrono>

namespace Zephly::bluez {

/// All of the host's pauses and limits.
struct Timing {
  /// Before a failed operation is tried again; doubled with every further failure.
  std::chrono::milliseconds firstPause{100};
  /// The pause grows no longer than this.
  std::chrono::milliseconds longestPause{5'000};
  /// For the bus to accept a connection and the rules of the signals.
  std::chrono::milliseconds busLimit{5'000};
  /// For the reply to an ordinary call.
  std::chrono::milliseconds callLimit{30'000};
  /// For the reply to a connection attempt. bluetoothd gives up on a silent device after 42 s.
  std::chrono::milliseconds connectLimit{90'000};
  /// An attempt that is still under way so long after an advertisement of the device is repeated:
  /// now and then bluetoothd does not notice that the device is back, and waits until it gives up.
  std::chrono::milliseconds stalledAttemptLimit{5'000};
  /// For the reply to a subscription, which waits for the device. bluetoothd gives up after 30 s.
  std::chrono::milliseconds subscribeLimit{60'000};
  /// From the connection until the services are known. bluetoothd gives up after 32 s.
  std::chrono::milliseconds discoveryLimit{60'000};
  /// Interval at which bluetoothd is asked meanwhile, in case its signal was lost.
  std::chrono::milliseconds discoveryCheck{5'000};
  /// A device that this host has not connected (a restarted bluetoothd shows the previous
  /// connection for half a second) gets this long to be resolved before a connection is requested.
  std::chrono::milliseconds settleTime{2'000};
  /// At the end, for the bus (not for any device) to accept the last calls. It accepts them at
  /// once unless the machine stalls; without them the device would stay connected for nothing.
  std::chrono::milliseconds leaveLimit{3'000};
  /// What is missing is reported when it has been missing for this long.
  std::chrono::milliseconds reportDelay{1'000};
};

}  // namespace Zephly::bluez
