// SPDX-License-Identifier: MIT
// sdbus-c++ 2: names have types of their own, and an object is registered as a table.

#include <hosts/bluez/sd_bus_at.h>
#include <hosts/bluez/sdbus_version.h>

#include <utility>

namespace Zephly::bluez::sdbus_version {

namespace {

// The library hands out what a message does not have as a null pointer.
std::string textOf(const char* text) { return text == nullptr ? std::string() : text; }

}  // namespace

Next peek(const sdbus::Message& message) {
  const auto [type, contents] = message.peekType();
  return {type, textOf(contents)};
}

sdbus::Error error(const std::string& name, const std::string& text) {
  return {sdbus::Error::Name(name), text};
}

std::unique_ptr<sdbus::IConnection> connect(const std::string& address,
                                            std::chrono::milliseconds limit) {
  OpenedBus opened = openBusAt(address, limit);
  if (opened.error != 0) throw sdbus::createError(opened.error, "Failed to open bus");
  return sdbus::createBusConnection(opened.bus.release());
}

std::unique_ptr<sdbus::IProxy> createProxy(sdbus::IConnection& connection,
                                           const std::string& service, const std::string& path) {
  return sdbus::createProxy(connection, sdbus::ServiceName(service), sdbus::ObjectPath(path));
}

sdbus::MethodCall createCall(sdbus::IProxy& proxy, const std::string& interface,
                             const std::string& method) {
  return proxy.createMethodCall(sdbus::InterfaceName(interface), sdbus::MethodName(method));
}

void send(sdbus::IProxy& proxy, const sdbus::MethodCall& call, std::chrono::microseconds timeout,
          ReplyHandler handler) {
  proxy.callMethodAsync(
      call,
      [handler = std::move(handler)](sdbus::MethodReply reply,
                                     const std::optional<sdbus::Error>& failure) {
        handler(reply, failure ? &*failure : nullptr);
      },
      static_cast<std::uint64_t>(timeout.count()));
}

sdbus::Slot addMatch(sdbus::IConnection& connection, const std::string& rule,
                     std::function<void(sdbus::Message&)> handler) {
  return connection.addMatch(
      rule, [handler = std::move(handler)](sdbus::Message message) { handler(message); },
      sdbus::return_slot);
}

Origin originOf(const sdbus::Message& message) {
  return {textOf(message.getSender()), textOf(message.getPath()),
          textOf(message.getInterfaceName()), textOf(message.getMemberName())};
}

std::unique_ptr<sdbus::IObject> createObject(sdbus::IConnection& connection,
                                             const std::string& path,
                                             const std::vector<Interface>& interfaces) {
  auto object = sdbus::createObject(connection, sdbus::ObjectPath(path));
  for (const Interface& interface : interfaces) {
    std::vector<sdbus::VTableItem> table;
    for (const Method& method : interface.methods) {
      sdbus::MethodVTableItem item = sdbus::registerMethod(method.name);
      item.inputSignature = sdbus::Signature(method.input);
      item.outputSignature = sdbus::Signature(method.output);
      item.callbackHandler = [answer = method.answer](sdbus::MethodCall call) { answer(call); };
      table.emplace_back(std::move(item));
    }
    for (const Property& property : interface.properties) {
      sdbus::PropertyVTableItem item = sdbus::registerProperty(property.name);
      item.signature = sdbus::Signature(property.signature);
      item.getter = property.read;
      table.emplace_back(std::move(item));
    }
    object->addVTable(sdbus::InterfaceName(interface.name), std::move(table));
  }
  return object;
}

void announceChange(sdbus::IObject& object, const std::string& interface,
                    const std::string& property) {
  object.emitPropertiesChangedSignal(sdbus::InterfaceName(interface),
                                     {sdbus::PropertyName(property)});
}

// PollData::eventFd need not be watched: it is for loops in other threads, and for those that do
// not ask for new poll data after every call, as SdBus::arm does.
bool processPending(sdbus::IConnection& connection) { return connection.processPendingEvent(); }

std::optional<std::chrono::microseconds> timeLeft(const sdbus::IConnection::PollData& data) {
  const auto left = data.getRelativeTimeout();
  if (left == std::chrono::microseconds::max()) return std::nullopt;
  return left;
}

}  // namespace Zephly::bluez::sdbus_version
