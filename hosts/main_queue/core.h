// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The inside of the main queue: what runs it, and what it knows about each callback. Only for
/// main_queue.cpp.

#include <hosts/main_queue/doorbell.h>
#include <hosts/main_queue/main_queue.h>

#include <boost/asio/io_context.hpp>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

namespace Zephly::main_queue {

namespace asio = boost::asio;
using Clock = std::chrono::steady_clock;

// What the queue knows about one timer, watch or signal handler.
//
// States: active, from the construction until cancel(), the expiry of a timer or shutDown(); then
// inactive for good. An active entry waits in the io_context, or is about to (start(),
// startSoon()).
//
// Ownership: the user's Handle and the handlers in the io_context own the entry; the queue's core
// is held weakly. Asio calls the handler of a cancelled operation later, when the handle and the
// queue may both be destroyed; such a handler finds the entry inactive or the core gone, and does
// nothing.
/// One posted function, timer or watch.
class Handle::Entry : public std::enable_shared_from_this<Entry> {
 public:
  explicit Entry(MainQueue::Core& core);
  virtual ~Entry() = default;
  Entry(const Entry&) = delete;
  Entry& operator=(const Entry&) = delete;

  bool active() const { return active_; }
  void cancel();
  // Puts a wait into the io_context. When there is no memory for it, the queue repeats that before
  // it next runs.
  void startNow(MainQueue::Core& core);
  bool isIncomplete() const { return incomplete_; }
  // The epoll descriptor that is readable when the watched descriptor is ready, or -1.
  virtual int watched() const { return -1; }

 protected:
  virtual void start(MainQueue::Core& core) = 0;
  virtual void drop(MainQueue::Core& core) = 0;
  std::shared_ptr<MainQueue::Core> core() const { return core_.lock(); }
  // Calls it, then waits again: now, or at the end of poll(), see Core::begin(). Also when it
  // throws. When both fail, the exception of `call` counts.
  template <class Call>
  void callAndWait(MainQueue::Core& core, const Call& call) {
    try {
      call();
    } catch (...) {
      try {
        startSoon(core);
      } catch (const std::exception&) {  // startNow() is repeated
      }
      throw;
    }
    startSoon(core);
  }

 private:
  void startSoon(MainQueue::Core& core);
  void noteIncomplete(MainQueue::Core& core);

  std::weak_ptr<MainQueue::Core> core_;
  bool active_ = true;
  bool incomplete_ = false;  // start() has failed, or could not be put off
};

// Threads: post() may be called from any thread. It touches posted_ (under postedMutex_),
// pollingThread_ and doorbell_ (atomic), weak_from_this(), and the io_context, which is thread-safe
// for asio::post. begin() reads pollingThread_ to find out whether it is on the thread that polls,
// and touches deferred_ only then. Everything else belongs to the thread that runs the queue.
/// The state of a queue, which handlers may outlive.
class MainQueue::Core : public std::enable_shared_from_this<Core> {
 public:
  Core() : own_(std::make_unique<asio::io_context>()), context_(*own_) {}
  explicit Core(asio::io_context& context) : context_(context) {}

  asio::io_context& context() { return context_; }

  std::size_t run();
  std::size_t poll();
  void stop();
  void post(std::function<void()> callback);
  int descriptor();
  void shutDown();

  Handle add(const std::shared_ptr<Handle::Entry>& entry);
  void forget(const Handle::Entry* entry) { entries_.erase(const_cast<Handle::Entry*>(entry)); }
  void addDeadline(Clock::time_point deadline);
  void removeDeadline(Clock::time_point deadline);

  // Calls `start` now; while poll() runs on this thread, at its end: what callbacks make ready must
  // not keep poll() from returning.
  void begin(std::function<void()> start);
  void countCall() { ++called_; }
  void noteIncomplete() { incomplete_ = true; }

 private:
  class Polling;
  class Running;

  void completeStarts();
  void callNextPosted();
  void announcePosted();
  void updateDeadline();

  std::unique_ptr<asio::io_context> own_;
  asio::io_context& context_;

  std::mutex postedMutex_;
  std::deque<std::function<void()>> posted_;

  std::set<Handle::Entry*> entries_;
  std::multiset<Clock::time_point> deadlines_;
  std::size_t called_ = 0;
  bool incomplete_ = false;  // an entry or a post is not in the io_context for lack of memory
  bool running_ = false;
  bool stopRequested_ = false;

  std::atomic<std::thread::id> pollingThread_{};
  std::vector<std::function<void()>> deferred_;

  std::unique_ptr<Doorbell> doorbellOwner_;
  std::atomic<Doorbell*> doorbell_ = nullptr;
};

}  // namespace Zephly::main_queue
