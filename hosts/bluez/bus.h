// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A connection to a D-Bus message bus that lives on the main queue.
///
///   opening = Bus::open(queue, {.rules = {"type='signal',sender='org.bluez'"}},
///                       [](std::unique_ptr<Bus> bus, const BusError* error) { ... });
///   bus->onSignal([](const Signal& signal) { ... });
///   bus->call({"org.bluez", "/org/bluez/hci0", "org.bluez.Adapter1", "StartDiscovery"}, {}, 25s,
///             [](const Reply& reply) { if (!reply) complain(reply.errorText()); });
///
/// Handlers of replies and signals are called one after the other, in the order of arrival, by
/// turns of the queue: never from inside a call of this class, and never from inside the D-Bus
/// library. So a handler may do anything, including to throw and to destroy the bus.
///
/// Only settle() blocks. open() starts a thread, because sdbus-c++ connects by blocking calls; the
/// thread ends when it is connected. Everything else belongs to the thread that runs the queue.

#include <hosts/bluez/value.h>
#include <hosts/main_queue/main_queue.h>

#include <chrono>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace Zephly::bluez {

/// An error of D-Bus: its name ("org.bluez.Error.Failed") and a text for people.
class BusError : public std::runtime_error {
 public:
  BusError(std::string name, const std::string& text)
      : std::runtime_error(text), name_(std::move(name)) {}
  const std::string& name() const { return name_; }

 private:
  std::string name_;
};

/// The method to call.
struct Destination {
  std::string service;
  std::string path;
  std::string interface;
  std::string method;
};

/// The outcome of a call.
struct Reply {
  Arguments values;
  std::string errorName;     ///< empty when it succeeded
  std::string errorMessage;  ///< as the other side sent it; may be empty

  explicit operator bool() const { return errorName.empty(); }
  /// For people: the message, or the name when there is none.
  const std::string& errorText() const { return errorMessage.empty() ? errorName : errorMessage; }
};

/// A signal that was received.
struct Signal {
  std::string sender;  ///< unique name of the connection
  std::string path;
  std::string interface;
  std::string member;
  Arguments arguments;
};

/// A method of an object of ours.
struct Method {
  std::string name;
  std::string input;   ///< D-Bus signature of the arguments
  std::string output;  ///< D-Bus signature of the result
  /// Returns the result. A BusError that it throws becomes an error reply.
  std::function<Arguments(const Arguments&)> answer;
};

/// A property of an object of ours, read only.
struct Property {
  std::string name;
  std::string signature;
  std::function<Value()> read;
};

/// An interface of an object of ours.
struct Interface {
  std::string name;
  std::vector<Method> methods;
  std::vector<Property> properties;
};

/// An object of ours on the bus; removed when it is destroyed, at the latest with the bus.
class ExportedObject {
 public:
  virtual ~ExportedObject() = default;
  ExportedObject(const ExportedObject&) = delete;
  ExportedObject& operator=(const ExportedObject&) = delete;

  /// Signals the present value of a property. Does nothing when the bus is lost.
  virtual void announce(const std::string& interface, const std::string& property) = 0;

 protected:
  ExportedObject() = default;
};

/// The bus to connect to.
struct BusTarget {
  std::string address = {};             ///< as D-Bus writes it; empty: the system bus
  std::vector<std::string> rules = {};  ///< D-Bus match rules of the signals to receive
  std::chrono::milliseconds limit{5'000};
};

/// The name of the error when the bus accepts a connection and does not answer within the limit.
inline constexpr const char* busTimedOut = "org.freedesktop.DBus.Error.Timeout";

/// One connection.
class Bus {
 public:
  using SignalHandler = std::function<void(const Signal&)>;
  using ReplyHandler = std::function<void(const Reply&)>;
  /// Gets the bus, or the error (null on success) when there is none, it refuses the connection or
  /// it does not answer.
  using OpenHandler = std::function<void(std::unique_ptr<Bus> bus, const BusError* error)>;
  /// A bus that is being opened. `handler` is not called after this has been destroyed.
  using Opening = std::shared_ptr<void>;

  /// Connects to a bus. `handler` is called once, by a turn of the queue, `target.limit` after this
  /// call at the latest. It may destroy the Opening.
  [[nodiscard]] static Opening open(main_queue::MainQueue& queue, BusTarget target,
                                    OpenHandler handler);

  Bus(const Bus&) = delete;
  Bus& operator=(const Bus&) = delete;
  /// Handlers of calls under way are not called any more.
  virtual ~Bus() = default;

  /// Calls a method. `handler` is called once, with the reply, or with an error if none arrives
  /// within `timeout`. It is not called after the bus has been destroyed.
  virtual void call(const Destination& destination, const Arguments& arguments,
                    std::chrono::milliseconds timeout, ReplyHandler handler) = 0;
  /// Calls a method without a reply; errors are ignored.
  virtual void send(const Destination& destination, const Arguments& arguments) = 0;

  /// Blocks until the bus (not the receivers) has accepted what was sent, for at most `limit`. For
  /// the end: when a connection is closed, the bus drops messages that it has not read yet.
  virtual void settle(std::chrono::milliseconds limit) = 0;

  /// `handler` gets every signal that matches one of BusTarget::rules, once for each of them. To be
  /// called before the next turn of the queue, or the first signals are lost.
  virtual void onSignal(SignalHandler handler) = 0;

  /// Exports an object of ours at `path`; as an object manager it also lists those below it. Throws
  /// BusError when the path is in use or invalid.
  [[nodiscard]] virtual std::unique_ptr<ExportedObject> exportObject(
      const std::string& path, const std::vector<Interface>& interfaces,
      bool objectManager = false) = 0;

  /// `handler` is called once, when the bus has closed the connection, after the calls under way
  /// have got error replies.
  virtual void onLost(std::function<void()> handler) = 0;

 protected:
  Bus() = default;
};

}  // namespace Zephly::bluez
