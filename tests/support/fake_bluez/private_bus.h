// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A private dbus-daemon for one test, in a temporary directory: a child process that ends with the
/// test, also when the test crashes.
///
///   PrivateBus bus;
///   bus.start();
///   connectTo(bus.address());
///   bus.stop();   // kills it
///   bus.start();  // again, at the same address

#include <sys/types.h>

#include <string>

namespace fake_bluez {

class PrivateBus {
 public:
  /// Creates the directory. The daemon does not run yet.
  PrivateBus();
  PrivateBus(const PrivateBus&) = delete;
  PrivateBus& operator=(const PrivateBus&) = delete;
  ~PrivateBus();

  /// Starts the daemon, and returns when it listens.
  void start();
  /// Kills the daemon.
  void stop();
  /// Suspends the daemon, and lets it continue.
  void freeze(bool frozen);
  bool running() const { return process_ > 0; }

  /// Whether the bus permits calls to org.bluez. Takes effect at the next start() or reload.
  void allow(bool allowed);
  /// Makes a running daemon read its configuration again, and returns when it has.
  void reload();

  std::string address() const { return "unix:path=" + directory_ + "/bus"; }

 private:
  void configure();

  std::string directory_;
  bool allowed_ = true;
  pid_t process_ = -1;
};

}  // namespace fake_bluez
