// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Opens the bus at an address with sd-bus, the library below sdbus-c++. For sdbus_1.cpp and
/// sdbus_2.cpp only.

#include <systemd/sd-bus.h>

#include <memory>
#include <string>

namespace Zephly::bluez {

/// Sends what is queued and closes the connection.
struct CloseBus {
  void operator()(sd_bus* bus) const { sd_bus_flush_close_unref(bus); }
};

/// A connection, or why there is none.
struct OpenedBus {
  std::unique_ptr<sd_bus, CloseBus> bus;
  int error = 0;  ///< errno; 0 on success
};

/// Connects like sd_bus_open_system(), but to `address`. The greeting of the bus is still under way
/// on return.
inline OpenedBus openBusAt(const std::string& address) {
  sd_bus* made = nullptr;
  int result = sd_bus_new(&made);
  OpenedBus opened{std::unique_ptr<sd_bus, CloseBus>(made)};
  if (result >= 0) result = sd_bus_set_address(made, address.c_str());
  if (result >= 0) result = sd_bus_set_bus_client(made, 1);
  if (result >= 0) result = sd_bus_start(made);
  if (result < 0) opened.error = -result;
  return opened;
}

}  // namespace Zephly::bluez
