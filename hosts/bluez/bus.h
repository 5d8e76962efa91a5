#pragma once
/// @file
/// A connection to a D-Bus message bus that lives on the main queue.
///
///   auto bus = Bus::open(queue);
///   auto handle = bus->onSignal("type='signal',sender='org.bluez'", [](const Signal& s) { ... });
///   bus->call({"org.bluez", "/org/bluez/hci0", "org.bluez.Adapter1", "StartDiscovery"}, {}, 25s,
///             [](const Reply& reply) { if (!reply) complain(reply.errorText()); });
///
/// Replies and signals are handed out one after the other in the order in which they arrived, each
/// by a turn of the queue: never from inside a call of this class, and never from inside the D-Bus
/// library, so that a handler may do anything, throw or destroy the bus included.
///
/// No thread, no waiting: only open() waits, for the greeting of the bus, and settle(). Everything
/// belongs to the thread that runs the queue.

#include <hosts/bluez/value.h>
#include <hosts/main_queue/main_queue.h>

#include <chrono>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace Zephly::bluez {

/// A failure that D-Bus tells: its name ("org.bluez.Error.Failed") and a text for people.
class BusError : public std::runtime_error {
 public:
  BusError(std::string name, const std::string& text)
      : std::runtime_error(text), name_(std::move(name)) {}
  const std::string& name() const { return name_; }

 private:
  std::string name_;
};

/// Whom to call.
struct Destination {
  std::string service;
  std::string path;
  std::string interface;
  std::string method;
};

/// What became of a call.
struct Reply {
  Arguments values;
  std::string errorName;     ///< empty when it succeeded
  std::string errorMessage;  ///< the other side's own words, possibly none

  explicit operator bool() const { return errorName.empty(); }
  /// For people: the message, or the name when there is none.
  const std::string& errorText() const { return errorMessage.empty() ? errorName : errorMessage; }
};

/// Something that was announced.
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
  std::string output;  ///< D-Bus signature of what it returns
  /// Answers at once. A BusError that it throws is the answer of a failure.
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

/// An object of ours on the bus; withdrawn when it is destroyed, at the latest with the bus.
class ExportedObject {
 public:
  virtual ~ExportedObject() = default;
  ExportedObject(const ExportedObject&) = delete;
  ExportedObject& operator=(const ExportedObject&) = delete;

  /// Announces the present value of a property. Nothing happens on a bus that is lost.
  virtual void announce(const std::string& interface, const std::string& property) = 0;

 protected:
  ExportedObject() = default;
};

/// One connection.
class Bus {
 public:
  using SignalHandler = std::function<void(const Signal&)>;
  using ReplyHandler = std::function<void(const Reply&)>;
  /// Keeps a signal handler in place; ends it when the last copy goes.
  using Subscription = std::shared_ptr<void>;

  /// Connects to the bus at `address` (as D-Bus writes it), to the system bus when it is empty.
  /// Throws BusError when there is none or it does not take us. With an address, the environment
  /// variable DBUS_SYSTEM_BUS_ADDRESS is another one during the call.
  static std::unique_ptr<Bus> open(main_queue::MainQueue& queue, const std::string& address = {});

  Bus(const Bus&) = delete;
  Bus& operator=(const Bus&) = delete;
  /// Drops the handlers of what is under way.
  virtual ~Bus() = default;

  /// Calls a method. `handler` gets the one reply; without an answer within `timeout` that of a
  /// failure. It is not called after the bus was destroyed.
  virtual void call(const Destination& destination, const Arguments& arguments,
                    std::chrono::milliseconds timeout, ReplyHandler handler) = 0;
  /// Calls a method of whose outcome nobody wants to hear.
  virtual void send(const Destination& destination, const Arguments& arguments) = 0;

  /// Waits until the bus (not those who are called) has taken over what was sent, at most that
  /// long. For the end: a bus that still has something to deliver to a connection that was closed
  /// drops what it has not yet read from it.
  virtual void settle(std::chrono::milliseconds limit) = 0;

  /// `handler` gets every signal that the D-Bus match rule describes, from now on.
  [[nodiscard]] virtual Subscription onSignal(const std::string& rule, SignalHandler handler) = 0;

  /// Shows an object of ours under `path`; as an object manager it also lists those below it.
  /// Throws BusError when the path is taken or wrong.
  [[nodiscard]] virtual std::unique_ptr<ExportedObject> exportObject(
      const std::string& path, const std::vector<Interface>& interfaces,
      bool objectManager = false) = 0;

  /// `handler` is called once, when the bus has closed the connection. Calls under way have been
  /// answered with failures before.
  virtual void onLost(std::function<void()> handler) = 0;

 protected:
  Bus() = default;
};

}  // namespace Zephly::bluez
