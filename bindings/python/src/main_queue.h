// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The main queue for Python: run from Python, with the interpreter's lock released while it waits.
///
///     auto queue = std::make_shared<Queue>();
///     queue->run(2.0);  // with the GIL; raises exceptions of callbacks
///     queue->call([=] { delegate.call("didConnectPeripheral"); });  // from a host's callback
///
/// Exceptions. An exception must not propagate through the kit, because its hosts would be left in
/// an inconsistent state. So call() keeps it, the queue stops, and run() raises it. Events that
/// arrive in the meantime are held and reported when the queue is run again: no event is lost.

#include <bindings/python/src/callback.h>

#include <hosts/main_queue/main_queue.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

namespace zephly_python {

class Queue;

/// A callback that comes once, at its time; dropped, it still comes.
class Timer {
 public:
  Timer(std::weak_ptr<Queue> queue, std::uint64_t id) : queue_(std::move(queue)), id_(id) {}
  void cancel();
  bool active() const;

 private:
  std::weak_ptr<Queue> queue_;
  std::uint64_t id_;
};

/// One queue. Everything but call() is called with the GIL.
class Queue : public std::enable_shared_from_this<Queue> {
 public:
  Queue() = default;
  Queue(const Queue&) = delete;
  Queue& operator=(const Queue&) = delete;

  void run(std::optional<double> seconds);
  void poll();
  /// Ends run() or a turn that looks at stopWanted(); before it, the next one. From any thread.
  void stop();
  /// From any thread.
  void post(Callback callback);
  std::shared_ptr<Timer> after(double seconds, Callback callback);
  int descriptor();

  /// Runs `work` without the GIL as a part of the queue's life: run() and poll() do, and a
  /// simulation that is stepped by hand.
  void turn(const std::function<void()>& work);
  /// Whether stop() was called, or a callback has raised, since the turn began.
  bool stopWanted() const { return stopWanted_; }
  /// Python's own signal handlers get their turn, when it is time; what they raise ends the turn.
  void checkSignals();

  /// Runs `python` with the GIL, or holds it while an exception is on its way.
  void call(std::function<void()> python);

  /// Destroys `object` now, or in a turn after the present event: never from inside an event of its
  /// own.
  void retire(std::shared_ptr<void> object);
  /// std::runtime_error when another thread runs the queue.
  void requireThread() const;

  Zephly::main_queue::MainQueue& mainQueue() { return queue_; }

  /// Ends the turns of all queues.
  static void stopAll();

 private:
  friend class Timer;

  // Those in a turn. Guarded by the GIL.
  static std::vector<Queue*>& turning();
  void destroyRetired();

  void callNow(const std::function<void()>& python);
  void watchSignals(Zephly::main_queue::Timer& timer);
  void endWait();

  Zephly::main_queue::MainQueue queue_;
  std::map<std::uint64_t, Zephly::main_queue::Timer> timers_;
  std::uint64_t lastTimer_ = 0;

  // Guarded by the GIL.
  std::optional<std::thread::id> thread_;  // of the turn
  std::uint64_t turns_ = 0;
  std::exception_ptr failure_;
  std::deque<std::function<void()>> held_;
  std::vector<std::shared_ptr<void>> retired_;

  std::atomic<bool> stopWanted_ = false;
  bool running_ = false;                               // inside run(); of the turn's thread
  std::chrono::steady_clock::time_point signalsSeen_;  // of the turn's thread
};

/// `seconds` as a span of time; std::invalid_argument (ValueError) unless it is 0 to 10^9.
std::chrono::nanoseconds spanOf(double seconds, const char* what);

/// Adds MainQueue, Timer and setConsole.
void bindMainQueue(py::module_& module);

}  // namespace zephly_python
