#pragma once
/// @file
/// A connection to a private bus that is not the code under test's: the fake service's own, and the
/// one through which tests look at the bus. It lives on the same main queue as the code under test,
/// so that a test is one thread and every order in it is the test's own doing.

#include <hosts/main_queue/main_queue.h>
#include <tests/support/fake_bluez/bus_value.h>

#include <functional>
#include <memory>
#include <string>

namespace fake_bluez {

class BusConnection {
 public:
  /// Gets each message that is no reply; true when it has taken it.
  using Handler = std::function<bool(sd_bus_message&)>;

  BusConnection(Zephly::main_queue::MainQueue& queue, const std::string& address, Handler handler);
  BusConnection(const BusConnection&) = delete;
  BusConnection& operator=(const BusConnection&) = delete;
  /// Closes it as the system closes the connection of a process that has died.
  ~BusConnection();

  bool open() const;
  std::string name() const;
  void own(const std::string& wellKnownName);
  void match(const std::string& rule);

  Message signal(const std::string& path, const char* interface, const char* member);
  /// Sends it now; nothing happens on a bus that has gone.
  void send(sd_bus_message& message);
  /// Calls `answered` with the answer to a call without arguments, be it a failure.
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
