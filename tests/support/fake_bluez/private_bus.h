// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A dbus-daemon of the test's own, in a directory of its own: a child process that ends with the
/// test, however the test ends.
///
///   PrivateBus bus;
///   bus.start();
///   connectTo(bus.address());
///   bus.stop();   // as when it dies
///   bus.start();  // again, at the same address

#include <sys/types.h>

#include <string>

namespace fake_bluez {

class PrivateBus {
 public:
  /// Makes the directory; nothing listens at the address yet.
  PrivateBus();
  PrivateBus(const PrivateBus&) = delete;
  PrivateBus& operator=(const PrivateBus&) = delete;
  ~PrivateBus();

  /// Returns when it listens.
  void start();
  /// Kills it.
  void stop();
  /// It does nothing any more, until it does.
  void freeze(bool frozen);
  bool running() const { return process_ > 0; }

  /// Whether calls to org.bluez are let through. Counts from the next start() or reload on.
  void allow(bool allowed);
  /// Makes a running daemon read its configuration again. Returns when it has.
  void reload();

  std::string address() const { return "unix:path=" + directory_ + "/bus"; }

 private:
  void configure();

  std::string directory_;
  bool allowed_ = true;
  pid_t process_ = -1;
};

}  // namespace fake_bluez
