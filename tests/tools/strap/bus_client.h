// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A connection to a running bus for tests, opened before the call returns.
///
///   const auto client = openBus(queue, {.address = bus.address(), .rules = {"type='signal'"}});

#include <hosts/bluez/bus.h>
#include <hosts/main_queue/main_queue.h>
#include <tests/support/turn_until.h>

#include <memory>
#include <stdexcept>
#include <utility>

/// Runs the queue until the bus is open. Throws when it cannot be opened.
inline std::unique_ptr<Zephly::bluez::Bus> openBus(Zephly::main_queue::MainQueue& queue,
                                                   Zephly::bluez::BusTarget target) {
  std::unique_ptr<Zephly::bluez::Bus> opened;
  const auto opening = Zephly::bluez::Bus::open(
      queue, std::move(target),
      [&](std::unique_ptr<Zephly::bluez::Bus> bus, const Zephly::bluez::BusError* error) {
        if (error != nullptr) throw *error;
        opened = std::move(bus);
      });
  if (!turnUntil(queue, [&] { return opened != nullptr; })) {
    throw std::runtime_error("the bus is not opened");
  }
  return opened;
}
