// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The network of one process. While time is simulated, the TCP sockets of the thread that drives
/// it are local ones: data is there as soon as it is sent, every run is the same, and no port is
/// used up.
///
///   auto client = Network::connect();   // to the server that listens, as from 127.0.0.1

#include <hosts/main_queue/file_descriptor.h>

#include <cstdint>

namespace schedules {

class Network {
 public:
  /// A connection, not blocking, to the latest server of this process; without one an empty
  /// descriptor.
  static Zephly::main_queue::FileDescriptor connect();
  /// Of the latest server.
  static std::uint16_t port();
};

}  // namespace schedules
