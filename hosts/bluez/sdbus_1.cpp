// SPDX-License-Identifier: MIT
// sdbus-c++ 1: names are plain strings, and an object is registered piece by piece.

#include <hosts/bluez/sd_bus_at.h>
#include <hosts/bluez/sdbus_version.h>

#include <utility>

namespace Zephly::bluez::sdbus_version {

Next peek(const sdbus::Message& message) {
  std::string type;
  std::string contents;
  message.peekType(type, contents);
  return {type.empty() ? '\0' : type.front(), contents};
}

sdbus::Error error(const std::string& name, const std::string& text) { return {name, text}; }

// Workaround: the library's own functions wait up to 90 s for a bus that does not answer, and the
// one for an address leaks its connection when it fails (version 1.2). So they are only called when
// a first connection, which is closed at once, has shown that the bus answers.
std::unique_ptr<sdbus::IConnection> connect(const std::string& address,
                                            std::chrono::milliseconds limit) {
  if (const int error = openBusAt(address, limit).error; error != 0) {
    throw sdbus::createError(error, "Failed to open bus");
  }
  return address.empty() ? sdbus::createSystemBusConnection()
                         : sdbus::createSessionBusConnectionWithAddress(address);
}

std::unique_ptr<sdbus::IProxy> createProxy(sdbus::IConnection& connection,
                                           const std::string& service, const std::string& path) {
  return sdbus::createProxy(connection, service, path);
}

sdbus::MethodCall createCall(sdbus::IProxy& proxy, const std::string& interface,
                             const std::string& method) {
  return proxy.createMethodCall(interface, method);
}

void send(sdbus::IProxy& proxy, const sdbus::MethodCall& call, std::chrono::microseconds timeout,
          ReplyHandler handler) {
  proxy.callMethod(call, std::move(handler), static_cast<std::uint64_t>(timeout.count()));
}

sdbus::Slot addMatch(sdbus::IConnection& connection, const std::string& rule,
                     std::function<void(sdbus::Message&)> handler) {
  return connection.addMatch(rule, std::move(handler));
}

Origin originOf(const sdbus::Message& message) {
  return {message.getSender(), message.getPath(), message.getInterfaceName(),
          message.getMemberName()};
}

std::unique_ptr<sdbus::IObject> createObject(sdbus::IConnection& connection,
                                             const std::string& path,
                                             const std::vector<Interface>& interfaces) {
  auto object = sdbus::createObject(connection, path);
  for (const Interface& interface : interfaces) {
    for (const Method& method : interface.methods) {
      object->registerMethod(interface.name, method.name, method.input, method.output,
                             [answer = method.answer](sdbus::MethodCall call) { answer(call); });
    }
    for (const Property& property : interface.properties) {
      object->registerProperty(interface.name, property.name, property.signature, property.read);
    }
  }
  object->finishRegistration();
  return object;
}

void announceChange(sdbus::IObject& object, const std::string& interface,
                    const std::string& property) {
  object.emitPropertiesChangedSignal(interface, {property});
}

bool processPending(sdbus::IConnection& connection) { return connection.processPendingRequest(); }

std::optional<std::chrono::microseconds> timeLeft(const sdbus::IConnection::PollData& data) {
  const auto left = data.getRelativeTimeout();
  if (!left || *left == std::chrono::microseconds::max()) return std::nullopt;
  return left;
}

}  // namespace Zephly::bluez::sdbus_version
