// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A message bus inside the process. It is linked in place of hosts/bluez/bus.cpp: Bus::open()
/// makes one of these, and the service on it is the BusService in use. It keeps what bus.h
/// promises: handlers are called by turns of the queue, in order; a call is answered once, by its
/// time limit at the latest.

#include <hosts/bluez/bus.h>
#include <hosts/main_queue/main_queue.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <ostream>
#include <string>

namespace schedules {

class SimulatedBus;

/// A call on its way to the service; number 0: no reply is expected.
struct BusCall {
  std::uint64_t number = 0;
  Zephly::bluez::Destination destination;
  Zephly::bluez::Arguments arguments;
};

/// The other end of the bus.
class BusService {
 public:
  BusService() { inUse = this; }
  BusService(const BusService&) = delete;
  BusService& operator=(const BusService&) = delete;
  virtual ~BusService() { inUse = nullptr; }

  enum class Opening { accepted, refused, ignored };
  /// A program wants to connect.
  virtual Opening opening(Zephly::main_queue::MainQueue& queue) = 0;
  virtual void opened(SimulatedBus& bus) = 0;
  virtual void closed(SimulatedBus& bus) = 0;
  virtual void called(SimulatedBus& bus, BusCall call) = 0;
  /// The time limit of a call has expired.
  virtual void abandoned(const BusCall& call) = 0;
  /// How long the bus takes until it has accepted what was sent.
  virtual std::chrono::nanoseconds backlog() const = 0;

  static inline BusService* inUse = nullptr;
  /// Gets one line for each message that a program sends or receives; null: none.
  static inline std::ostream* trace = nullptr;
};

class SimulatedBus final : public Zephly::bluez::Bus {
 public:
  SimulatedBus(Zephly::main_queue::MainQueue& queue, BusService& service);
  ~SimulatedBus() override;

  /// Called by turns of the queue: the handlers of the program run inside these.
  void reply(std::uint64_t call, const Zephly::bluez::Reply& reply);
  void deliver(const Zephly::bluez::Signal& signal);
  /// Fails the calls under way, then calls `lost`, then the program's handler.
  void lose(const std::function<void()>& lost);

  void call(const Zephly::bluez::Destination& destination,
            const Zephly::bluez::Arguments& arguments, std::chrono::milliseconds timeout,
            ReplyHandler handler) override;
  void send(const Zephly::bluez::Destination& destination,
            const Zephly::bluez::Arguments& arguments) override;
  void settle(std::chrono::milliseconds limit) override;
  void onSignal(SignalHandler handler) override;
  std::unique_ptr<Zephly::bluez::ExportedObject> exportObject(
      const std::string& path, const std::vector<Zephly::bluez::Interface>& interfaces,
      bool objectManager) override;
  void onLost(std::function<void()> handler) override;

 private:
  struct Pending {
    BusCall call;
    ReplyHandler handler;
    Zephly::main_queue::Timer limit;
  };

  void expire(std::uint64_t number);

  Zephly::main_queue::MainQueue& queue_;
  BusService& service_;
  std::shared_ptr<void> alive_ = std::make_shared<char>();
  std::uint64_t lastCall_ = 0;
  std::map<std::uint64_t, Pending> pending_;
  std::shared_ptr<const SignalHandler> signalHandler_;
  std::function<void()> lostHandler_;
  bool lost_ = false;
};

}  // namespace schedules
