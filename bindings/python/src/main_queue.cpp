// SPDX-License-Identifier: MIT
#include <bindings/python/src/main_queue.h>

#include <bindings/python/src/ending.h>

#include <stdexcept>
#include <string>
#include <utility>

namespace zephly_python {

namespace {

using namespace std::chrono_literals;

// How soon Ctrl-C is noticed.
constexpr auto signalPeriod = 50ms;

}  // namespace

std::chrono::nanoseconds spanOf(double seconds, const char* what) {
  if (seconds >= 0 && seconds <= 1e9) {
    return std::chrono::nanoseconds(static_cast<std::int64_t>(seconds * 1e9));
  }
  throw py::value_error(std::string(what) + " must be 0 to 1e9 seconds, not " +
                        std::to_string(seconds));
}

void Timer::cancel() {
  const auto queue = queue_.lock();
  if (!queue) return;
  queue->requireThread();
  queue->timers_.erase(id_);
}

bool Timer::active() const {
  const auto queue = queue_.lock();
  if (!queue) return false;
  queue->requireThread();
  return queue->timers_.contains(id_);
}

void Queue::requireThread() const {
  if (thread_ && *thread_ != std::this_thread::get_id()) {
    throw std::runtime_error("another thread runs this main queue; use post()");
  }
}

void Queue::turn(const std::function<void()>& work) {
  if (thread_) throw std::runtime_error("the main queue is running already");
  const auto alive = shared_from_this();
  {
    const KitUse use;
    thread_ = std::this_thread::get_id();
    ++turns_;
    turning().push_back(this);
    try {
      while (!held_.empty() && !failure_) {
        const auto python = std::move(held_.front());
        held_.pop_front();
        callNow(python);
      }
      if (!failure_ && !stopWanted_) {
        signalsSeen_ = std::chrono::steady_clock::now();
        const Unlocked waiting;
        work();
      }
    } catch (...) {
      failure_ = std::current_exception();
    }
    running_ = false;
    stopWanted_ = false;
    std::erase(turning(), this);
    thread_.reset();
  }
  destroyRetired();
  if (failure_) std::rethrow_exception(std::exchange(failure_, nullptr));
}

void Queue::run(std::optional<double> seconds) {
  const auto limit = seconds ? std::optional(spanOf(*seconds, "seconds")) : std::nullopt;
  turn([&] {
    Zephly::main_queue::Timer end;
    if (limit) end = queue_.after(*limit, [this] { queue_.stop(); });
    Zephly::main_queue::Timer signals;
    watchSignals(signals);
    running_ = true;
    queue_.run();
  });
}

void Queue::watchSignals(Zephly::main_queue::Timer& timer) {
  timer = queue_.after(signalPeriod, [this, &timer] {
    watchSignals(timer);
    checkSignals();
  });
}

void Queue::checkSignals() {
  const auto now = std::chrono::steady_clock::now();
  if (now - signalsSeen_ < signalPeriod) return;
  signalsSeen_ = now;
  const py::gil_scoped_acquire python;
  if (PyErr_CheckSignals() == 0) return;
  if (!failure_) {
    failure_ = std::make_exception_ptr(py::error_already_set());
  } else {
    PyErr_Clear();
  }
  endWait();
}

void Queue::poll() {
  turn([this] { queue_.poll(); });
}

void Queue::stop() {
  stopWanted_ = true;
  if (!thread_) return;
  if (*thread_ == std::this_thread::get_id()) {
    endWait();
  } else {
    queue_.post([this, turn = turns_] {
      if (turn == turns_) endWait();
    });
  }
}

void Queue::endWait() {
  stopWanted_ = true;
  if (running_) queue_.stop();  // otherwise it would end the next run
}

void Queue::post(Callback callback) {
  queue_.post([this, reference = PythonReference(std::move(callback))] {
    call([reference] { reference.get()(); });
  });
}

std::shared_ptr<Timer> Queue::after(double seconds, Callback callback) {
  requireThread();
  const std::uint64_t id = ++lastTimer_;
  timers_[id] = queue_.after(spanOf(seconds, "seconds"),
                             [this, id, reference = PythonReference(std::move(callback))] {
                               {
                                 const py::gil_scoped_acquire python;
                                 timers_.erase(id);
                               }
                               call([reference] { reference.get()(); });
                             });
  return std::make_shared<Timer>(weak_from_this(), id);
}

int Queue::descriptor() {
  requireThread();
  return queue_.descriptor();
}

void Queue::call(std::function<void()> python) {
  const py::gil_scoped_acquire lock;
  if (failure_ || !held_.empty()) {
    held_.push_back(std::move(python));
  } else {
    callNow(python);
  }
}

void Queue::callNow(const std::function<void()>& python) {
  try {
    python();
  } catch (...) {
    failure_ = std::current_exception();
    if (thread_) endWait();
  }
}

void Queue::retire(std::shared_ptr<void> object) {
  if (!thread_) return;
  retired_.push_back(std::move(object));
  queue_.post([this] {
    const py::gil_scoped_acquire python;
    destroyRetired();
  });
}

void Queue::destroyRetired() {
  // May call Python, and so anything.
  const auto retired = std::exchange(retired_, {});
}

std::vector<Queue*>& Queue::turning() {
  static std::vector<Queue*> queues;
  return queues;
}

void Queue::stopAll() {
  for (Queue* queue : turning()) queue->stop();
}

void bindMainQueue(py::module_& module) {
  py::class_<Timer, std::shared_ptr<Timer>>(module, "Timer",
                                            "A callback of a main queue that is called once.")
      .def("cancel", &Timer::cancel, "Cancels the callback.")
      .def("active", &Timer::active, "True while the callback is pending.");

  py::class_<Queue, std::shared_ptr<Queue>>(module, "MainQueue",
                                            R"(The event loop on which every callback runs.

No thread is started. When the interpreter ends, a queue that a daemon thread runs is stopped, and the end waits for it,
5 s at most. Ctrl-C raises KeyboardInterrupt out of run() within 50 ms. An exception of a callback is raised by
run() or poll(); events that arrive meanwhile are held and reported when the queue is run again.)")
      .def(py::init<>())
      .def("run", &Queue::run, py::arg("seconds") = py::none(),
           "Runs callbacks for that many seconds of the wall clock, or until stop().")
      .def("poll", &Queue::poll, "Runs the callbacks that are ready, without waiting.")
      .def("stop", &Queue::stop,
           "Ends run(), or the next one when none is under way. From any thread.")
      .def("post", &Queue::post, py::arg("callback"),
           "Calls `callback()` on the queue. From any thread.")
      .def("after", &Queue::after, py::arg("seconds"), py::arg("callback"),
           "Calls `callback()` once, when that many seconds have passed, unless the timer is "
           "cancelled.")
      .def("descriptor", &Queue::descriptor,
           "A file descriptor that is readable whenever poll() should be called: for another event "
           "loop.");

  waitAtTheEnd(&Queue::stopAll);

  module.def("setConsole", &setConsole, py::arg("on"),
             R"(Whether the kit's own lines go to standard output.

Off at first. They are: a trace line for each motion sample, and repetitions that no workout delegate has asked for.)");
}

}  // namespace zephly_python
