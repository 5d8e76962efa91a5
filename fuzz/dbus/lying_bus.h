// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A fake message bus. It replaces the only class that uses D-Bus (its Bus::open is linked instead
/// of hosts/bluez/bus.cpp), keeps the host's calls, and delivers any replies and signals of the
/// test with the guarantees of bus.h: from the queue, in order, none after the bus is lost.
///
///   LyingBus* bus = LyingBus::current();             // null while the host has none open
///   bus->answer(0, {{Dictionary()}, {}, {}});        // to the oldest call that waits
///   queue.poll();

#include <hosts/bluez/bus.h>
#include <hosts/main_queue/main_queue.h>

#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace fuzz {

class LyingBus final : public Zephly::bluez::Bus {
 public:
  struct Call {
    Zephly::bluez::Destination destination;
    Zephly::bluez::Arguments arguments;
    ReplyHandler handler;
  };

  LyingBus(Zephly::main_queue::MainQueue& queue, std::vector<std::string> rules);
  ~LyingBus() override;

  /// The open bus, or null.
  static LyingBus* current();
  /// Whether buses can be opened from now on.
  static void refuse(bool refused);

  /// Unanswered calls, the oldest first.
  const std::deque<Call>& calls() const { return calls_; }
  /// Answers the call at `index`, which is below calls().size().
  void answer(std::size_t index, Zephly::bluez::Reply reply);
  /// Delivers a signal once for each rule with its sender.
  void say(const Zephly::bluez::Signal& signal, const std::string& senderName);
  /// Closes the connection: unanswered calls fail.
  void lose();

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
  void later(std::function<void()> job);

  Zephly::main_queue::MainQueue& queue_;
  std::shared_ptr<void> alive_ = std::make_shared<char>();
  std::deque<Call> calls_;
  std::vector<std::string> rules_;
  std::shared_ptr<const SignalHandler> signalHandler_;
  std::function<void()> lostHandler_;
  bool lost_ = false;
};

}  // namespace fuzz
