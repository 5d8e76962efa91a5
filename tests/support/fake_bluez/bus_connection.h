// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A connection to a private bus, for the fake service and for tests that inspect the bus. It runs
/// on the main queue of the code under test, so that a test has one thread and controls every
/// order.

#include <hosts/main_queue/main_queue.h>
#include <tests/support/fake_bluez/bus_value.h>

#include <functional>
#include <memory>
#include <string>

namespace fake_bluez {

class BusConnection {
 public:
  /// Handles each message that is not a reply; returns whether it was handled.
  using Handler = std::function<bool(sd_bus_message&)>;

  BusConnection(Zephly::main_queue::MainQueue& queue, const std::string& address, Handler handler);
  BusConnection(const BusConnection&) = delete;
  BusConnection& operator=(const BusConnection&) = delete;
  /// Closes the connection like that of a killed process.
  ~BusConnection();

  bool open() const;
  std::string name() const;
  void own(const std::string& wellKnownName);
  void match(const std::string& rule);

  Message signal(const std::string& path, const char* interface, const char* member);
  /// Sends the message immediately; does nothing when the bus is lost.
  void send(sd_bus_message& message);
  /// Calls `answered` with the answer, or the error, of a call without arguments.
  void call(const std::string& service, const char* path, const char* interface, const char* method,
            std::function<void(sd_bus_message&)> answered = {});

 private:
  static int incoming(sd_bus_message* message, void* self, sd_bus_error* error);
  static int answer(sd_bus_message* message, void* answered, sd_bus_error* error);
  void turn();

  sd_bus* bus_ = nullptr;
  Handler handler_;
  Zephly::main_queue::Watch watch_;
  Zephly::main_queue::Timer first_;
};

}  // namespace fake_bluez
