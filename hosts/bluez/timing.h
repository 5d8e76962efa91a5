#pragma once
/// @file
/// How long the host waits for what. The defaults suit BlueZ; tests shorten them.

#include <chrono>

namespace Zephly::bluez {

/// All of the host's pauses and limits.
struct Timing {
  /// Before something that failed is tried again; doubled with every further failure.
  std::chrono::milliseconds firstPause{100};
  /// The pause grows no longer than this.
  std::chrono::milliseconds longestPause{5'000};
  /// For the reply to an ordinary call.
  std::chrono::milliseconds callLimit{30'000};
  /// For the reply to a connection attempt. bluetoothd gives up on a silent device after 42 s.
  std::chrono::milliseconds connectLimit{90'000};
  /// An attempt that has not come to its end so long after the device was heard is made anew: now
  /// and then bluetoothd's waits for a device that has been there for long, until it gives up.
  std::chrono::milliseconds heardLimit{5'000};
  /// For the reply to a subscription, which waits for the device. bluetoothd gives up after 30 s.
  std::chrono::milliseconds subscribeLimit{60'000};
  /// From the connection until the services are known. bluetoothd gives up after 32 s.
  std::chrono::milliseconds discoveryLimit{60'000};
  /// Until then bluetoothd is asked again and again, in case that its signal was missed.
  std::chrono::milliseconds discoveryCheck{5'000};
  /// A device that is connected without our doing (a restarted bluetoothd shows the connection of
  /// before for half a second) gets this long to be resolved before a connection is asked for.
  std::chrono::milliseconds settleTime{2'000};
  /// At the end, for the bus (not for any device) to take over the farewell. It takes it at once,
  /// but on a machine that stalls; without it the device would stay connected to nobody.
  std::chrono::milliseconds leaveLimit{3'000};
  /// What is missing is told to people when it has been missing for this long.
  std::chrono::milliseconds reportDelay{1'000};
};

}  // namespace Zephly::bluez
