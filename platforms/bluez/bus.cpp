// Everything that depends on the version of sdbus-c++ stands in this file, and nowhere else: hence
// its length.

#include <platforms/bluez/bus.h>

#include <poll.h>
#include <sdbus-c++/sdbus-c++.h>

#include <cstdint>
#include <cstdlib>
#include <deque>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <variant>

namespace Zephly::bluez {

namespace {

template <class... Cases>
struct Overloaded : Cases... {
  using Cases::operator()...;
};
template <class... Cases>
Overloaded(Cases...) -> Overloaded<Cases...>;

// Reading ----------------------------------------------------------------------------------------

Value readValue(sdbus::Message& message);

template <class T>
T readBasic(sdbus::Message& message) {
  T value{};
  message >> value;
  return value;
}

// What stands next: its type, 0 at the end of a container or of the message, and what it contains.
struct Next {
  char type;
  std::string contents;
};

Next peek(const sdbus::Message& message) {
  std::string type;
  std::string contents;
  message.peekType(type, contents);
  return {type.empty() ? '\0' : type.front(), contents};
}

Bytes readBytes(sdbus::Message& message) {
  Bytes bytes;
  message >> bytes;
  return bytes;
}

Value readDictionary(sdbus::Message& message, const std::string& entry) {
  Dictionary dictionary;
  bool named = true;
  message.enterContainer(entry);
  const std::string contents = entry.substr(1, entry.size() - 2);
  while (peek(message).type != '\0') {
    message.enterDictEntry(contents);
    Value key = readValue(message);
    Value value = readValue(message);
    message.exitDictEntry();
    if (auto* name = std::get_if<std::string>(&key.shape)) {
      dictionary.insert_or_assign(std::move(*name), std::move(value));
    } else {
      named = false;
    }
  }
  // Reading to the end has set the mark that a last reading failed.
  message.clearFlags();
  message.exitContainer();
  return named ? Value(std::move(dictionary)) : Value();
}

Value readArray(sdbus::Message& message, const std::string& element) {
  if (element == "y") return readBytes(message);
  if (!element.empty() && element.front() == '{') return readDictionary(message, element);
  const bool texts = element == "s" || element == "o" || element == "g";
  Strings strings;
  message.enterContainer(element);
  while (peek(message).type != '\0') {
    Value value = readValue(message);
    if (auto* text = std::get_if<std::string>(&value.shape)) strings.push_back(std::move(*text));
  }
  message.clearFlags();
  message.exitContainer();
  return texts ? Value(std::move(strings)) : Value();
}

Value readStruct(sdbus::Message& message, const std::string& contents) {
  message.enterStruct(contents);
  while (peek(message).type != '\0') readValue(message);
  message.clearFlags();
  message.exitStruct();
  return {};
}

Value readVariant(sdbus::Message& message, const std::string& contents) {
  message.enterVariant(contents);
  Value value = readValue(message);
  message.exitVariant();
  return value;
}

Value readValue(sdbus::Message& message) {
  const Next next = peek(message);
  switch (next.type) {
    case 'b':
      return readBasic<bool>(message);
    case 'y':
      return std::int64_t{readBasic<std::uint8_t>(message)};
    case 'n':
      return std::int64_t{readBasic<std::int16_t>(message)};
    case 'q':
      return std::int64_t{readBasic<std::uint16_t>(message)};
    case 'i':
      return std::int64_t{readBasic<std::int32_t>(message)};
    case 'u':
      return std::int64_t{readBasic<std::uint32_t>(message)};
    case 'x':
      return readBasic<std::int64_t>(message);
    case 't':
      return static_cast<std::int64_t>(readBasic<std::uint64_t>(message));
    case 'd':
      return readBasic<double>(message);
    case 's':
      return readBasic<std::string>(message);
    case 'o':
      return std::string(readBasic<sdbus::ObjectPath>(message));
    case 'g':
      return std::string(readBasic<sdbus::Signature>(message));
    case 'h': {
      auto descriptor = readBasic<sdbus::UnixFd>(message);
      return std::make_shared<main_queue::FileDescriptor>(descriptor.release());
    }
    case 'a':
      return readArray(message, next.contents);
    case 'r':
      return readStruct(message, next.contents);
    case 'v':
      return readVariant(message, next.contents);
    default:
      throw sdbus::Error("org.freedesktop.DBus.Error.InvalidSignature", "unknown type");
  }
}

// Writing ----------------------------------------------------------------------------------------

std::string signatureOf(const Value& value) {
  return std::visit(
      Overloaded{[](bool) { return "b"; }, [](std::int64_t) { return "x"; },
                 [](std::uint16_t) { return "q"; }, [](std::uint32_t) { return "u"; },
                 [](const std::string&) { return "s"; }, [](const ObjectPath&) { return "o"; },
                 [](const Bytes&) { return "ay"; }, [](const Strings&) { return "as"; },
                 [](const Dictionary&) { return "a{sv}"; }, [](const Descriptor&) { return "h"; },
                 [](const Variant&) { return "v"; },
                 [](const auto&) -> const char* {
                   throw sdbus::Error("org.freedesktop.DBus.Error.InvalidArgs",
                                      "a value of this shape cannot be sent");
                 }},
      value.shape);
}

void writeValue(sdbus::Message& message, const Value& value);

void writeVariant(sdbus::Message& message, const Value& value) {
  message.openVariant(signatureOf(value));
  writeValue(message, value);
  message.closeVariant();
}

Arguments readAll(sdbus::Message& message) {
  Arguments arguments;
  try {
    while (peek(message).type != '\0') arguments.push_back(readValue(message));
  } catch (const sdbus::Error&) {
    return arguments;
  }
  return arguments;
}

void writeValue(sdbus::Message& message, const Value& value) {
  std::visit(
      Overloaded{[&](bool flag) { message << flag; },
                 [&](std::int64_t number) { message << number; },
                 [&](std::uint16_t number) { message << number; },
                 [&](std::uint32_t number) { message << number; },
                 [&](const std::string& text) { message << text; },
                 [&](const ObjectPath& path) { message << sdbus::ObjectPath(path.path); },
                 [&](const Bytes& bytes) { message << bytes; },
                 [&](const Strings& strings) { message << strings; },
                 [&](const Dictionary& dictionary) {
                   message.openContainer("{sv}");
                   for (const auto& [name, entry] : dictionary) {
                     message.openDictEntry("sv");
                     message << name;
                     writeVariant(message, entry);
                     message.closeDictEntry();
                   }
                   message.closeContainer();
                 },
                 [&](const Descriptor& descriptor) { message << sdbus::UnixFd(descriptor->get()); },
                 [&](const Variant& variant) { writeVariant(message, *variant.value); },
                 [&](const auto&) { static_cast<void>(signatureOf(value)); }},
      value.shape);
}

void writeAll(sdbus::Message& message, const Arguments& arguments) {
  for (const Value& value : arguments) writeValue(message, value);
}

// Objects of our own -----------------------------------------------------------------------------

void answer(const Method& method, sdbus::MethodCall& call) {
  try {
    const Arguments values = method.answer(readAll(call));
    sdbus::MethodReply reply = call.createReply();
    writeAll(reply, values);
    reply.send();
  } catch (const BusError& error) {
    call.createErrorReply(sdbus::Error(error.name(), error.what())).send();
  } catch (const std::exception& error) {
    call.createErrorReply(sdbus::Error("org.freedesktop.DBus.Error.Failed", error.what())).send();
  }
}

void declare(sdbus::IObject& object, const Interface& interface) {
  for (const Method& method : interface.methods) {
    object.registerMethod(interface.name, method.name, method.input, method.output,
                          [method](sdbus::MethodCall call) { answer(method, call); });
  }
  for (const Property& property : interface.properties) {
    object.registerProperty(
        interface.name, property.name, property.signature,
        [read = property.read](sdbus::PropertyGetReply& reply) { writeValue(reply, read()); });
  }
}

// The bus ----------------------------------------------------------------------------------------

class SdBus final : public Bus {
 public:
  SdBus(main_queue::MainQueue& queue, std::unique_ptr<sdbus::IConnection> connection)
      : queue_(queue), connection_(std::move(connection)) {
    read_ = queue_.watch(connection_->getEventLoopPollData().fd, main_queue::Interest::read,
                         [this] { turn(); });
    arm();
  }

  void call(const Destination& destination, const Arguments& arguments,
            std::chrono::milliseconds timeout, ReplyHandler handler) override {
    const std::uint64_t id = ++lastId_;
    Call& call = calls_[id];
    call.handler = std::move(handler);
    try {
      call.proxy = sdbus::createProxy(*connection_, destination.service, destination.path);
      auto message = call.proxy->createMethodCall(destination.interface, destination.method);
      writeAll(message, arguments);
      const auto microseconds = std::chrono::microseconds(timeout).count();
      call.proxy->callMethod(
          message,
          [this, id](sdbus::MethodReply& reply, const sdbus::Error* error) {
            replied(id, error == nullptr ? Reply{readAll(reply), {}, {}} : failureOf(*error));
          },
          static_cast<std::uint64_t>(microseconds));
    } catch (const sdbus::Error& error) {
      replied(id, failureOf(error));
    }
    arm();
  }

  void tell(const Destination& destination, const Arguments& arguments) override {
    try {
      const auto proxy = sdbus::createProxy(*connection_, destination.service, destination.path);
      auto message = proxy->createMethodCall(destination.interface, destination.method);
      writeAll(message, arguments);
      message.dontExpectReply();
      message.send(0);
    } catch (const sdbus::Error&) {
      // Nobody wants to hear of it, and a lost bus is told elsewhere.
      return;
    }
    arm();
  }

  void settle(std::chrono::milliseconds limit) override {
    constexpr const char* name = "org.freedesktop.DBus";
    try {
      // The bus reads from a connection in order: its answer to the last message answers all.
      const auto proxy = sdbus::createProxy(*connection_, name, "/org/freedesktop/DBus");
      const auto message = proxy->createMethodCall(name, "GetId");
      const auto microseconds = std::chrono::microseconds(limit).count();
      static_cast<void>(message.send(static_cast<std::uint64_t>(microseconds)));
    } catch (const sdbus::Error&) {
      // It is lost, or does not answer: then there is nothing more that could be done.
      return;
    }
    arm();
  }

  Subscription onSignal(const std::string& rule, SignalHandler handler) override {
    const std::uint64_t id = ++lastId_;
    const auto shared = std::make_shared<const SignalHandler>(std::move(handler));
    try {
      subscriptions_[id] = connection_->addMatch(rule, [this, id, shared](sdbus::Message& message) {
        Signal signal{message.getSender(), message.getPath(), message.getInterfaceName(),
                      message.getMemberName(), readAll(message)};
        later([this, id, shared, signal = std::move(signal)] {
          if (subscriptions_.count(id) != 0) (*shared)(signal);
        });
      });
    } catch (const sdbus::Error& error) {
      subscriptions_.erase(id);
      throw BusError(error.getName(), error.getMessage());
    }
    arm();
    // The pointer is only a mark that is not null; the deleter is what it is about.
    return {this, [weak = std::weak_ptr<void>(alive_), this, id](void*) {
              if (!weak.expired()) subscriptions_.erase(id);
            }};
  }

  std::unique_ptr<ExportedObject> exportObject(const std::string& path,
                                               const std::vector<Interface>& interfaces,
                                               bool objectManager) override {
    const std::uint64_t id = ++lastId_;
    try {
      auto object = sdbus::createObject(*connection_, path);
      for (const Interface& interface : interfaces) declare(*object, interface);
      object->finishRegistration();
      if (objectManager) object->addObjectManager();
      objects_[id] = std::move(object);
    } catch (const sdbus::Error& error) {
      throw BusError(error.getName(), error.getMessage());
    }
    return std::make_unique<Exported>(*this, id);
  }

  void onLost(std::function<void()> handler) override { lostHandler_ = std::move(handler); }

 private:
  struct Call {
    std::unique_ptr<sdbus::IProxy> proxy;
    ReplyHandler handler;
  };

  class Exported final : public ExportedObject {
   public:
    Exported(SdBus& bus, std::uint64_t id) : bus_(bus), id_(id), alive_(bus.alive_) {}
    Exported(const Exported&) = delete;
    Exported& operator=(const Exported&) = delete;
    ~Exported() override {
      if (!alive_.expired()) bus_.objects_.erase(id_);
    }

    void announce(const std::string& interface, const std::string& property) override {
      if (alive_.expired()) return;
      try {
        bus_.objects_.at(id_)->emitPropertiesChangedSignal(interface, {property});
      } catch (const sdbus::Error&) {
        return;
      }
      bus_.arm();
    }

   private:
    SdBus& bus_;  ///< valid while alive_
    std::uint64_t id_;
    std::weak_ptr<void> alive_;
  };

  static Reply failureOf(const sdbus::Error& error) {
    return {{}, error.getName(), error.getMessage()};
  }

  void replied(std::uint64_t id, Reply reply) {
    later([this, id, reply = std::move(reply)] {
      const auto call = calls_.find(id);
      if (call == calls_.end()) return;
      const ReplyHandler handler = std::move(call->second.handler);
      calls_.erase(call);
      handler(reply);
    });
  }

  // To be done by this turn or the next, outside the library.
  void later(std::function<void()> job) {
    inbox_.push_back(std::move(job));
    ring();
  }

  void ring() {
    if (rung_ || inTurn_) return;
    rung_ = true;
    queue_.post([this, weak = std::weak_ptr<void>(alive_)] {
      if (weak.expired()) return;
      rung_ = false;
      turn();
    });
  }

  // Takes what has arrived, in portions that leave others on the queue their turn.
  void turn() {
    constexpr int portion = 64;
    const std::weak_ptr<void> alive = alive_;
    inTurn_ = true;
    try {
      bool more = true;
      for (int i = 0; more && i < portion; ++i) {
        more = process();
        while (!inbox_.empty()) {
          const auto job = std::move(inbox_.front());
          inbox_.pop_front();
          job();
          if (alive.expired()) return;
        }
      }
      inTurn_ = false;
      if (more) ring();
    } catch (...) {
      // A handler threw: nothing else is lost.
      if (!alive.expired()) {
        inTurn_ = false;
        ring();
      }
      throw;
    }
    if (lost_) {
      const auto handler = std::exchange(lostHandler_, nullptr);
      if (handler) handler();
    } else {
      arm();
    }
  }

  // True when there may be more.
  bool process() {
    if (lost_) return false;
    try {
      return connection_->processPendingRequest();
    } catch (const sdbus::Error&) {
      lost_ = true;
      read_.cancel();
      write_.cancel();
      timer_.cancel();
      return false;
    }
  }

  // Waits for what the library wants to wait for.
  void arm() {
    if (lost_ || inTurn_) return;
    const auto data = connection_->getEventLoopPollData();
    if ((data.events & POLLOUT) == 0) {
      write_.cancel();
    } else if (!write_.active()) {
      write_ = queue_.watch(data.fd, main_queue::Interest::write, [this] { turn(); });
    }
    const auto left = data.getRelativeTimeout();
    if (!left || *left == std::chrono::microseconds::max()) {
      timer_.cancel();
    } else if (left->count() <= 0) {
      ring();
    } else {
      timer_ = queue_.after(*left, [this] { turn(); });
    }
  }

  main_queue::MainQueue& queue_;
  std::shared_ptr<void> alive_ = std::make_shared<char>();
  std::deque<std::function<void()>> inbox_;
  std::function<void()> lostHandler_;
  bool rung_ = false;
  bool inTurn_ = false;
  bool lost_ = false;
  std::uint64_t lastId_ = 0;
  // What belongs to the connection goes before it.
  std::unique_ptr<sdbus::IConnection> connection_;
  std::map<std::uint64_t, Call> calls_;
  std::map<std::uint64_t, sdbus::Slot> subscriptions_;
  std::map<std::uint64_t, std::unique_ptr<sdbus::IObject>> objects_;
  main_queue::Watch read_;
  main_queue::Watch write_;
  main_queue::Timer timer_;
};

// The system bus at another address, while the object lives. The library's own way to open a bus at
// an address leaks its connection when that fails (version 1.2), and opening is tried for ever.
class SystemBusAddress {
 public:
  explicit SystemBusAddress(const std::string& address) {
    if (const char* before = std::getenv(variable)) before_ = before;
    if (!address.empty()) ::setenv(variable, address.c_str(), 1);
  }
  SystemBusAddress(const SystemBusAddress&) = delete;
  SystemBusAddress& operator=(const SystemBusAddress&) = delete;
  ~SystemBusAddress() {
    if (before_) {
      ::setenv(variable, before_->c_str(), 1);
    } else {
      ::unsetenv(variable);
    }
  }

 private:
  static constexpr const char* variable = "DBUS_SYSTEM_BUS_ADDRESS";
  std::optional<std::string> before_;
};

}  // namespace

std::unique_ptr<Bus> Bus::open(main_queue::MainQueue& queue, const std::string& address) {
  try {
    const SystemBusAddress used(address);
    return std::make_unique<SdBus>(queue, sdbus::createSystemBusConnection());
  } catch (const sdbus::Error& error) {
    throw BusError(error.getName(), error.getMessage());
  }
}

}  // namespace Zephly::bluez
