// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The main queue: the event loop on which every callback of a host runs, so that an application
/// needs no lock. It starts no thread.
///
/// Built on Boost.Asio. There are three ways to run it.
///
/// 1. Alone, in a program that has no event loop:
///
///   Zephly::main_queue::MainQueue queue;
///   auto quit = queue.onSignal({SIGINT, SIGTERM}, [&](int) { queue.stop(); });
///   auto tick = queue.after(1s, [] { std::puts("one second later"); });
///   queue.run();
///
/// 2. On the io_context of an application that uses Boost.Asio itself and runs it as it likes:
///
///   boost::asio::io_context context;
///   Zephly::main_queue::MainQueue queue(context);
///   context.run();
///
/// 3. Inside any other event loop (poll, epoll, GLib, Qt), which watches one descriptor:
///
///   Zephly::main_queue::MainQueue queue;
///   pollfd mine{.fd = queue.descriptor(), .events = POLLIN, .revents = 0};
///   while (!done) {
///     poll(&mine, 1, -1);
///     queue.poll();
///   }
///
/// Exceptions. What a callback throws leaves run() or poll() (or the application's own
/// io_context::run) as it is. The callback that threw counts as having run; nothing else is lost:
/// other callbacks are called when the queue is run again, and a watch or a signal handler stays in
/// place.
///
/// Threads. post() may be called from any thread (from a thread that waits for signals too, but
/// not from inside a signal handler), also while the queue runs. Everything else, the destruction
/// of the handles included, belongs to the thread that runs the queue. stop() from another thread
/// is post([&] { queue.stop(); }).

#include <zephly/platform/export.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <initializer_list>
#include <memory>

namespace boost::asio {
class io_context;
}

namespace Zephly::main_queue {

/// Something that the queue will call. Cancels when it is destroyed or assigned to, from inside
/// its own callback too; may outlive the queue and is then without effect.
class ZEPHLY_EXPORT Handle {
 public:
  /// What the queue knows about it.
  class Entry;

  Handle() = default;
  explicit Handle(std::shared_ptr<Entry> entry);
  Handle(Handle&& other) noexcept;
  Handle& operator=(Handle&& other) noexcept;
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;
  ~Handle();

  /// The callback is not called any more. Again, or on an empty handle, it does nothing.
  void cancel();
  /// True while the callback may still be called.
  bool active() const;

 private:
  std::shared_ptr<Entry> entry_;
};

/// A callback that comes once, at its time.
using Timer = Handle;
/// A callback that comes whenever a descriptor is ready.
using Watch = Handle;
/// A callback that comes with every signal.
using SignalWatch = Handle;

/// What a watch waits for.
enum class Interest { read, write, readOrWrite };

/// One queue, one thread that runs it.
class ZEPHLY_EXPORT MainQueue {
 public:
  /// On an io_context of its own.
  MainQueue();
  /// On the application's, which must outlive the queue. Only pending timers, watches, signal
  /// handlers and posts keep it busy.
  explicit MainQueue(boost::asio::io_context& context);
  MainQueue(const MainQueue&) = delete;
  MainQueue& operator=(const MainQueue&) = delete;
  /// Discards callbacks that were not called.
  ~MainQueue();

  /// Calls what becomes ready until stop(), also when there is nothing to wait for. May be called
  /// again afterwards. Returns the number of the queue's callbacks that were called.
  std::size_t run();

  /// Calls what is ready and returns their number without waiting. What the callbacks themselves
  /// make ready is left to the next call, so that one call always ends.
  std::size_t poll();

  /// Ends run() after the callback that is running; before run(), ends the next run() at once. An
  /// application that runs its io_context itself stops that itself.
  void stop();

  /// Calls `callback` on the queue, after everything that was posted before. From any thread.
  void post(std::function<void()> callback);

  /// Calls `callback` once when `delay` has passed, never before; 0 and negative delays mean as
  /// soon as the queue comes to it, but not from inside this call.
  [[nodiscard]] Timer after(std::chrono::nanoseconds delay, std::function<void()> callback);

  /// Calls `callback` again and again as long as `descriptor` is ready for what `interest` says or
  /// is in error (level-triggered: a callback that reads nothing is called again). The descriptor
  /// stays the caller's and is left as it is, blocking or not; cancel the watch before closing it.
  /// The same descriptor may be watched several times. std::system_error when it cannot be watched
  /// (not open, a regular file).
  [[nodiscard]] Watch watch(int descriptor, Interest interest, std::function<void()> callback);

  /// Calls `callback` with the number of each signal of `signals` that arrives, in place of what
  /// the signal would do otherwise; cancelled, the signal does its default again. The callback runs
  /// on the queue and may do anything. Calls of the system that a signal interrupts go on by
  /// themselves where the queue makes them. std::system_error for a signal that cannot be caught.
  [[nodiscard]] SignalWatch onSignal(std::initializer_list<int> signals,
                                     std::function<void(int)> callback);

  /// A descriptor that is readable (level-triggered) whenever poll() should be called: something
  /// was posted, a timer is due, a watched descriptor is ready. The same at each call; it is the
  /// queue's and closed by it. Not covered: Asio objects that the application puts on context()
  /// itself, and onSignal. An application with a loop of its own handles its signals there and
  /// posts. std::system_error when the system has no descriptor left.
  int descriptor();

  boost::asio::io_context& context();

  /// What runs it.
  class Core;

 private:
  std::shared_ptr<Core> core_;
};

}  // namespace Zephly::main_queue
