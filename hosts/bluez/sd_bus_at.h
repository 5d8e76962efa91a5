// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Opens a bus with sd-bus, the library below sdbus-c++, within a time limit. For sdbus_1.cpp and
/// sdbus_2.cpp only.

#include <systemd/sd-bus.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

namespace Zephly::bluez {

/// Closes the connection without sending what is queued: sending would wait for a bus that does not
/// read.
struct CloseBus {
  void operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }
};

/// A connection, or why there is none.
struct OpenedBus {
  std::unique_ptr<sd_bus, CloseBus> bus;
  int error = 0;  ///< errno; 0 on success
};

/// Connects like sd_bus_open_system(), or to `address` if it is not empty, and waits until the bus
/// has accepted the connection. sd-bus itself would wait for 90 s. ETIMEDOUT when the bus does not
/// accept it within `limit`.
inline OpenedBus openBusAt(const std::string& address, std::chrono::milliseconds limit) {
  using std::chrono::steady_clock;
  const auto end = steady_clock::now() + limit;
  sd_bus* made = nullptr;
  int result = address.empty() ? sd_bus_open_system(&made) : sd_bus_new(&made);
  OpenedBus opened{std::unique_ptr<sd_bus, CloseBus>(made)};
  if (!address.empty()) {
    if (result >= 0) result = sd_bus_set_address(made, address.c_str());
    if (result >= 0) result = sd_bus_set_bus_client(made, 1);
    if (result >= 0) result = sd_bus_start(made);
  }
  while (result >= 0 && (result = sd_bus_is_ready(made)) == 0) {
    result = sd_bus_process(made, nullptr);
    if (result != 0) continue;
    const auto left = std::chrono::ceil<std::chrono::microseconds>(end - steady_clock::now());
    result =
        left.count() > 0 ? sd_bus_wait(made, static_cast<std::uint64_t>(left.count())) : -ETIMEDOUT;
  }
  if (result < 0) opened.error = -result;
  return opened;
}

}  // namespace Zephly::bluez
