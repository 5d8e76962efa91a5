// SPDX-License-Identifier: MIT
#include <hosts/bluez/bus.h>

#include <hosts/bluez/bus_message.h>
#include <hosts/bluez/sdbus_version.h>

#include <poll.h>
#include <pthread.h>
#include <sdbus-c++/sdbus-c++.h>

#include <csignal>
#include <cstdint>
#include <deque>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace Zephly::bluez {

namespace {

// Objects of our own -----------------------------------------------------------------------------

void answer(const Method& method, sdbus::MethodCall& call) {
  try {
    const Arguments values = method.answer(readAll(call));
    sdbus::MethodReply reply = call.createReply();
    writeAll(reply, values);
    reply.send();
  } catch (const BusError& error) {
    call.createErrorReply(sdbus_version::error(error.name(), error.what())).send();
  } catch (const std::exception& error) {
    constexpr const char* failed = "org.freedesktop.DBus.Error.Failed";
    call.createErrorReply(sdbus_version::error(failed, error.what())).send();
  }
}

sdbus_version::Interface declarationOf(const Interface& interface) {
  sdbus_version::Interface declaration{interface.name, {}, {}};
  for (const Method& method : interface.methods) {
    declaration.methods.push_back({method.name, method.input, method.output,
                                   [method](sdbus::MethodCall& call) { answer(method, call); }});
  }
  for (const Property& property : interface.properties) {
    declaration.properties.push_back(
        {property.name, property.signature,
         [read = property.read](sdbus::PropertyGetReply& reply) { writeValue(reply, read()); }});
  }
  return declaration;
}

// A new connection with its match rules. Their callbacks pass each message to `receiver`, which is
// empty until there is a bus; until then sd-bus keeps the messages.
struct Connected {
  using Receiver = std::function<void(sdbus::Message&)>;

  std::shared_ptr<Receiver> receiver = std::make_shared<Receiver>();
  // Destroyed after the slots, which belong to it.
  std::unique_ptr<sdbus::IConnection> connection;
  std::vector<sdbus::Slot> slots;
};

// The bus ----------------------------------------------------------------------------------------

// Order of events: sdbus-c++ calls back from inside processPending(). Those callbacks only append
// jobs to inbox_; turn() runs the jobs after the library has returned. So a handler may throw, call
// any method here or destroy the bus without the library on the stack. `alive_` is checked after
// every job for that.
//
// Turns come from read_ (data arrived), write_ (the library has unsent data), timer_ (a call times
// out) and ring() (more is pending, or a call failed at once). arm() sets the three up from the
// library's poll data, at the end of each turn and after each call that may have sent something.
class SdBus final : public Bus {
 public:
  SdBus(main_queue::MainQueue& queue, Connected connected)
      : queue_(queue), connected_(std::move(connected)) {
    *connected_.receiver = [this](sdbus::Message& message) { received(message); };
    read_ = queue_.watch(connected_.connection->getEventLoopPollData().fd,
                         main_queue::Interest::read, [this] { turn(); });
    arm();
  }

  void call(const Destination& destination, const Arguments& arguments,
            std::chrono::milliseconds timeout, ReplyHandler handler) override {
    const std::uint64_t id = ++lastId_;
    Call& call = calls_[id];
    call.handler = std::move(handler);
    try {
      call.proxy =
          sdbus_version::createProxy(*connected_.connection, destination.service, destination.path);
      auto message =
          sdbus_version::createCall(*call.proxy, destination.interface, destination.method);
      writeAll(message, arguments);
      sdbus_version::send(
          *call.proxy, message, timeout,
          [this, id](sdbus::MethodReply& reply, const sdbus::Error* error) {
            replied(id, error == nullptr ? Reply{readAll(reply), {}, {}} : failureOf(*error));
          });
    } catch (const sdbus::Error& error) {
      replied(id, failureOf(error));
    }
    arm();
  }

  void send(const Destination& destination, const Arguments& arguments) override {
    try {
      const auto proxy =
          sdbus_version::createProxy(*connected_.connection, destination.service, destination.path);
      auto message = sdbus_version::createCall(*proxy, destination.interface, destination.method);
      writeAll(message, arguments);
      message.dontExpectReply();
      message.send(0);
    } catch (const sdbus::Error&) {
      // Nothing to report: a lost connection is noticed by the next turn.
      return;
    }
    arm();
  }

  void settle(std::chrono::milliseconds limit) override {
    constexpr const char* name = "org.freedesktop.DBus";
    try {
      // The bus reads messages in order: its reply to this one means that it has read all before.
      const auto proxy =
          sdbus_version::createProxy(*connected_.connection, name, "/org/freedesktop/DBus");
      const auto message = sdbus_version::createCall(*proxy, name, "GetId");
      const auto microseconds = std::chrono::microseconds(limit).count();
      static_cast<void>(message.send(static_cast<std::uint64_t>(microseconds)));
    } catch (const sdbus::Error&) {
      // The bus is lost or does not reply: nothing more can be done.
      return;
    }
    arm();
  }

  void onSignal(SignalHandler handler) override {
    signalHandler_ = std::make_shared<const SignalHandler>(std::move(handler));
  }

  std::unique_ptr<ExportedObject> exportObject(const std::string& path,
                                               const std::vector<Interface>& interfaces,
                                               bool objectManager) override {
    const std::uint64_t id = ++lastId_;
    try {
      std::vector<sdbus_version::Interface> declarations;
      declarations.reserve(interfaces.size());
      for (const Interface& one : interfaces) declarations.push_back(declarationOf(one));
      auto object = sdbus_version::createObject(*connected_.connection, path, declarations);
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
        sdbus_version::announceChange(*bus_.objects_.at(id_), interface, property);
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

  void received(sdbus::Message& message) {
    const auto origin = sdbus_version::originOf(message);
    Signal signal{origin.sender, origin.path, origin.interface, origin.member, readAll(message)};
    // A copy of the pointer: the handler may destroy the bus.
    later([this, signal = std::move(signal)] {
      if (const auto handler = signalHandler_) (*handler)(signal);
    });
  }

  // Runs `job` in this turn or the next, outside the library.
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

  // Processes pending messages, at most a portion, so that other users of the queue get their turn.
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
      // A handler threw: what is left is handled by the next turn.
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
      return sdbus_version::processPending(*connected_.connection);
    } catch (const sdbus::Error&) {
      lost_ = true;
      read_.cancel();
      write_.cancel();
      timer_.cancel();
      return false;
    }
  }

  // Watches what the library needs to be watched.
  void arm() {
    if (lost_ || inTurn_) return;
    const auto data = connected_.connection->getEventLoopPollData();
    if ((data.events & POLLOUT) == 0) {
      write_.cancel();
    } else if (!write_.active()) {
      write_ = queue_.watch(data.fd, main_queue::Interest::write, [this] { turn(); });
    }
    const auto left = sdbus_version::timeLeft(data);
    if (!left) {
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
  std::shared_ptr<const SignalHandler> signalHandler_;
  // Calls and objects are destroyed before the connection that they belong to (in reverse order).
  Connected connected_;
  std::map<std::uint64_t, Call> calls_;
  std::map<std::uint64_t, std::unique_ptr<sdbus::IObject>> objects_;
  main_queue::Watch read_;
  main_queue::Watch write_;
  main_queue::Timer timer_;
};

// Opening ----------------------------------------------------------------------------------------

// sdbus-c++ connects and adds match rules by calls that block (version 1 has no others). A bus that
// accepts connections and never answers would hold them for 90 s, and the main queue with them. So
// a thread makes these calls, and the queue waits for its result for a limited time. Afterwards the
// thread is abandoned: it throws its result away and ends when its call returns.
//
// States of an attempt: waited for while `queue` is set, then over: after the result, after the
// limit, or when the BusOpening is destroyed.
class BusOpening;

struct Attempt {
  std::mutex mutex;  // guards the members; the thread posts to the queue under it
  main_queue::MainQueue* queue = nullptr;  // null when nobody waits: the queue may be destroyed
  std::weak_ptr<BusOpening> opening;
  std::optional<Connected> connected;
  std::optional<BusError> error;
};

class BusOpening : public std::enable_shared_from_this<BusOpening> {
 public:
  BusOpening(main_queue::MainQueue& queue, Bus::OpenHandler handler)
      : queue_(queue), handler_(std::move(handler)) {}
  BusOpening(const BusOpening&) = delete;
  BusOpening& operator=(const BusOpening&) = delete;
  ~BusOpening() { abandon(); }

  void start(BusTarget target) {
    timer_ = queue_.after(target.limit, [this] {
      const auto self = shared_from_this();
      finish(std::nullopt, BusError(busTimedOut, "the bus does not answer"));
    });
    attempt_->queue = &queue_;
    attempt_->opening = weak_from_this();
    // The thread inherits a mask that blocks all signals: they are delivered to the other threads.
    sigset_t all{};
    sigset_t before{};
    ::sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &before);
    try {
      std::thread(&BusOpening::connect, attempt_, std::move(target)).detach();
    } catch (const std::exception& error) {
      report(*attempt_, std::nullopt, BusError(busFailed, error.what()));
    }
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
  }

 private:
  static constexpr const char* busFailed = "org.freedesktop.DBus.Error.Failed";

  // On the thread.
  static void connect(const std::shared_ptr<Attempt>& attempt, const BusTarget& target) {
    try {
      Connected connected;
      connected.connection = sdbus_version::connect(target.address, target.limit);
      for (const std::string& rule : target.rules) {
        connected.slots.push_back(sdbus_version::addMatch(
            *connected.connection, rule, [receiver = connected.receiver](sdbus::Message& message) {
              if (*receiver) (*receiver)(message);
            }));
      }
      report(*attempt, std::move(connected), std::nullopt);
    } catch (const sdbus::Error& error) {
      report(*attempt, std::nullopt, BusError(error.getName(), error.getMessage()));
    } catch (const std::exception& error) {
      report(*attempt, std::nullopt, BusError(busFailed, error.what()));
    }
  }

  // On either thread. A connection that is not waited for any more is closed by the caller, which
  // does not hold the lock then.
  static void report(Attempt& attempt, std::optional<Connected>&& connected,
                     std::optional<BusError> error) {
    const std::lock_guard lock(attempt.mutex);
    if (attempt.queue == nullptr) return;
    attempt.connected = std::move(connected);
    attempt.error = std::move(error);
    try {
      attempt.queue->post([weak = attempt.opening] {
        if (const auto self = weak.lock()) self->take();
      });
    } catch (const std::exception&) {
      // Without memory for the post: the time limit ends the attempt.
      return;
    }
  }

  void take() {
    std::optional<Connected> connected;
    std::optional<BusError> error;
    {
      const std::lock_guard lock(attempt_->mutex);
      connected = std::exchange(attempt_->connected, std::nullopt);
      error = std::exchange(attempt_->error, std::nullopt);
    }
    finish(std::move(connected), std::move(error));
  }

  // The handler may destroy this object; the callers own it until they return.
  void finish(std::optional<Connected> connected, std::optional<BusError> error) {
    timer_.cancel();
    abandon();
    const auto handler = std::exchange(handler_, nullptr);
    if (!handler) return;
    std::unique_ptr<Bus> bus;
    try {
      if (connected) bus = std::make_unique<SdBus>(queue_, std::move(*connected));
    } catch (const std::exception& failure) {
      error = BusError(busFailed, failure.what());
    }
    handler(std::move(bus), error ? &*error : nullptr);
  }

  void abandon() {
    const std::lock_guard lock(attempt_->mutex);
    attempt_->queue = nullptr;
  }

  main_queue::MainQueue& queue_;
  Bus::OpenHandler handler_;
  std::shared_ptr<Attempt> attempt_ = std::make_shared<Attempt>();
  main_queue::Timer timer_;
};

}  // namespace

Bus::Opening Bus::open(main_queue::MainQueue& queue, BusTarget target, OpenHandler handler) {
  auto opening = std::make_shared<BusOpening>(queue, std::move(handler));
  opening->start(std::move(target));
  return opening;
}

}  // namespace Zephly::bluez
