// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// What differs between sdbus-c++ 1 (1.2 and later) and sdbus-c++ 2. One of sdbus_1.cpp and
/// sdbus_2.cpp is compiled, as the installed library wants it. For bus.cpp only.
///
/// Failures are sdbus::Error, as everywhere in the library.

#include <sdbus-c++/sdbus-c++.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Zephly::bluez::sdbus_version {

/// The next value of a message: the type of D-Bus, 0 at the end of a container or of the message,
/// and the signature of what it contains.
struct Next {
  char type;
  std::string contents;
};
Next peek(const sdbus::Message& message);

sdbus::Error error(const std::string& name, const std::string& text);

/// Connects to the bus at `address`, to the system bus when it is empty. Blocks: for at most
/// `limit` if the bus does not answer, unless it stops answering in the middle (sdbus-c++ 1
/// connects twice).
std::unique_ptr<sdbus::IConnection> connect(const std::string& address,
                                            std::chrono::milliseconds limit);

std::unique_ptr<sdbus::IProxy> createProxy(sdbus::IConnection& connection,
                                           const std::string& service, const std::string& path);
sdbus::MethodCall createCall(sdbus::IProxy& proxy, const std::string& interface,
                             const std::string& method);

/// `handler` gets the reply, or the failure that came in its place.
using ReplyHandler = std::function<void(sdbus::MethodReply& reply, const sdbus::Error* failure)>;
void send(sdbus::IProxy& proxy, const sdbus::MethodCall& call, std::chrono::microseconds timeout,
          ReplyHandler handler);

/// `handler` gets every message that matches `rule`, as long as the slot lives. Blocks until the
/// bus has confirmed the rule.
sdbus::Slot addMatch(sdbus::IConnection& connection, const std::string& rule,
                     std::function<void(sdbus::Message&)> handler);

/// The header of a message; empty where the message has no such field.
struct Origin {
  std::string sender;
  std::string path;
  std::string interface;
  std::string member;
};
Origin originOf(const sdbus::Message& message);

/// A method of an object of ours; `answer` replies to the call itself.
struct Method {
  std::string name;
  std::string input;   ///< signature
  std::string output;  ///< signature
  std::function<void(sdbus::MethodCall&)> answer;
};
/// A property of an object of ours, read only; `read` writes its value into the reply.
struct Property {
  std::string name;
  std::string signature;
  std::function<void(sdbus::PropertyGetReply&)> read;
};
/// An interface of an object of ours.
struct Interface {
  std::string name;
  std::vector<Method> methods;
  std::vector<Property> properties;
};
/// An object with all its interfaces, visible on the bus.
std::unique_ptr<sdbus::IObject> createObject(sdbus::IConnection& connection,
                                             const std::string& path,
                                             const std::vector<Interface>& interfaces);
void announceChange(sdbus::IObject& object, const std::string& interface,
                    const std::string& property);

/// Processes one event that is pending; true when there may be more.
bool processPending(sdbus::IConnection& connection);

/// The time until the connection needs its next turn; empty when it waits for messages only.
std::optional<std::chrono::microseconds> timeLeft(const sdbus::IConnection::PollData& data);

}  // namespace Zephly::bluez::sdbus_version
