// SPDX-License-Identifier: MIT
#include <hosts/main_queue/main_queue.h>

#include <hosts/main_queue/core.h>
#include <hosts/main_queue/doorbell.h>
#include <hosts/main_queue/file_descriptor.h>

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/steady_timer.hpp>
#include <sys/epoll.h>

#include <atomic>
#include <deque>
#include <mutex>
#include <optional>
#include <set>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace Zephly::main_queue {

// While poll() runs. Nested calls keep the outer one's state: only the end of the outermost poll()
// starts the deferred waits.
class MainQueue::Core::Polling {
 public:
  explicit Polling(Core& core)
      : core_(core), outer_(core.pollingThread_.exchange(std::this_thread::get_id())) {}
  Polling(const Polling&) = delete;
  Polling& operator=(const Polling&) = delete;
  ~Polling() {
    core_.pollingThread_ = outer_;
    if (outer_ != std::thread::id()) return;
    for (auto& start : std::exchange(core_.deferred_, {})) {
      try {
        start();
      } catch (const std::exception&) {
        // Out of memory. The next poll() repeats it.
        core_.noteIncomplete();
        if (Doorbell* doorbell = core_.doorbell_) doorbell->ring();
      }
    }
    core_.announcePosted();
  }

 private:
  Core& core_;
  std::thread::id outer_;
};

// While run() runs. Cleans up when a callback throws, too.
class MainQueue::Core::Running {
 public:
  explicit Running(Core& core) : core_(core) { core_.running_ = true; }
  Running(const Running&) = delete;
  Running& operator=(const Running&) = delete;
  ~Running() {
    core_.running_ = false;
    core_.stopRequested_ = false;
    if (core_.context_.stopped()) core_.context_.restart();
  }

 private:
  Core& core_;
};

std::size_t MainQueue::Core::run() {
  const std::size_t before = called_;
  const Running running(*this);
  const auto guard = asio::make_work_guard(context_);  // run() waits even if nothing is scheduled
  if (context_.stopped()) context_.restart();
  completeStarts();
  if (!stopRequested_) context_.run();
  return called_ - before;
}

std::size_t MainQueue::Core::poll() {
  const std::size_t before = called_;
  // Before the work is looked at: what is posted from here on rings again.
  if (Doorbell* doorbell = doorbell_) doorbell->silence();
  completeStarts();
  {
    const auto guard = asio::make_work_guard(context_);  // else poll() would stop the io_context
    const Polling polling(*this);
    if (context_.stopped()) context_.restart();
    context_.poll();
  }
  return called_ - before;
}

// What has failed for lack of memory.
void MainQueue::Core::completeStarts() {
  if (!std::exchange(incomplete_, false)) return;
  for (Handle::Entry* entry : entries_) {
    if (entry->isIncomplete()) entry->startNow(*this);
  }
  std::size_t posts = 0;
  {
    const std::lock_guard lock(postedMutex_);
    posts = posted_.size();
  }
  // Some of them may have a handler already; one that finds nothing does nothing.
  for (; posts > 0; --posts)
    asio::post(context_, [self = weak_from_this()] {
      if (const auto standing = self.lock()) standing->callNextPosted();
    });
}

void MainQueue::Core::stop() {
  stopRequested_ = true;
  if (running_) context_.stop();
}

// From any thread. The order matters: first the callback is in posted_, then the io_context gets a
// handler that takes it out, then the doorbell is rung. A loop that the bell wakes finds both.
void MainQueue::Core::post(std::function<void()> callback) {
  {
    const std::lock_guard lock(postedMutex_);
    posted_.push_back(std::move(callback));
  }
  begin([core = weak_from_this(), &context = context_] {
    asio::post(context, [core] {
      if (const auto standing = core.lock()) standing->callNextPosted();
    });
  });
  if (Doorbell* doorbell = doorbell_) doorbell->ring();
}

// One handler for each post, but each takes the oldest callback: a post that was deferred to the
// end of poll() is still called before one that another thread has made later.
void MainQueue::Core::callNextPosted() {
  std::function<void()> callback;
  {
    const std::lock_guard lock(postedMutex_);
    if (posted_.empty()) return;
    callback = std::move(posted_.front());
    posted_.pop_front();
  }
  countCall();
  callback();
}

// When a callback throws, poll() ends with posts left whose ring has been silenced already.
void MainQueue::Core::announcePosted() {
  Doorbell* doorbell = doorbell_;
  const std::lock_guard lock(postedMutex_);
  if (doorbell != nullptr && !posted_.empty()) doorbell->ring();
}

int MainQueue::Core::descriptor() {
  if (!doorbellOwner_) {
    auto doorbell = std::make_unique<Doorbell>();
    for (const Handle::Entry* entry : entries_) {
      if (entry->watched() >= 0) doorbell->watch(entry->watched());
    }
    doorbellOwner_ = std::move(doorbell);
    doorbell_ = doorbellOwner_.get();
    // A post on another thread may have read doorbell_ before it was set. It is in posted_ already,
    // so one ring now covers it.
    doorbellOwner_->ring();
    updateDeadline();
  }
  return doorbellOwner_->descriptor();
}

// The callbacks are destroyed last and without the lock, because their captures may use the queue
// while they are destroyed. One by one: a second deque would allocate memory, and this is called by
// a destructor.
void MainQueue::Core::shutDown() {
  while (!entries_.empty()) (*entries_.begin())->cancel();
  deferred_.clear();
  std::unique_lock lock(postedMutex_);
  for (std::size_t left = posted_.size(); left > 0; --left, lock.lock()) {
    const std::function<void()> dropped = std::move(posted_.front());
    posted_.pop_front();
    lock.unlock();
  }
}

Handle MainQueue::Core::add(const std::shared_ptr<Handle::Entry>& entry) {
  Handle handle(entry);
  if (doorbellOwner_ && entry->watched() >= 0) doorbellOwner_->watch(entry->watched());
  entries_.insert(entry.get());
  begin([entry, core = weak_from_this()] {
    const auto standing = core.lock();
    if (standing && entry->active()) entry->startNow(*standing);
  });
  return handle;
}

void MainQueue::Core::addDeadline(Clock::time_point deadline) {
  deadlines_.insert(deadline);
  updateDeadline();
}

void MainQueue::Core::removeDeadline(Clock::time_point deadline) {
  const auto found = deadlines_.find(deadline);
  if (found != deadlines_.end()) deadlines_.erase(found);
  updateDeadline();
}

void MainQueue::Core::updateDeadline() {
  if (!doorbellOwner_) return;
  doorbellOwner_->setDeadline(deadlines_.empty() ? std::nullopt
                                                 : std::optional(*deadlines_.begin()));
}

void MainQueue::Core::begin(std::function<void()> start) {
  if (pollingThread_.load() == std::this_thread::get_id()) {
    deferred_.push_back(std::move(start));
  } else {
    start();
  }
}

Handle::Entry::Entry(MainQueue::Core& core) : core_(core.weak_from_this()) {}

void Handle::Entry::cancel() {
  if (!std::exchange(active_, false)) return;
  const auto standing = core();
  if (!standing) return;
  standing->forget(this);
  drop(*standing);
}

void Handle::Entry::startNow(MainQueue::Core& core) {
  try {
    start(core);
    incomplete_ = false;
  } catch (...) {
    noteIncomplete(core);
    throw;
  }
}

void Handle::Entry::noteIncomplete(MainQueue::Core& core) {
  incomplete_ = active();
  core.noteIncomplete();
}

void Handle::Entry::startSoon(MainQueue::Core& core) {
  try {
    core.begin([self = shared_from_this(), weakCore = core.weak_from_this()] {
      const auto standing = weakCore.lock();
      if (standing && self->active()) self->startNow(*standing);
    });
  } catch (...) {
    noteIncomplete(core);
    throw;
  }
}

namespace {

class TimerEntry final : public Handle::Entry {
 public:
  TimerEntry(MainQueue::Core& core, Clock::time_point deadline, std::function<void()> callback)
      : Entry(core), deadline_(deadline), callback_(std::move(callback)) {}

  void start(MainQueue::Core& core) override {
    if (!timer_) {
      core.addDeadline(deadline_);
      timer_.emplace(core.context(), deadline_);
    }
    timer_->async_wait([self = std::static_pointer_cast<TimerEntry>(shared_from_this())](
                           const auto&) { self->expired(); });
  }

 private:
  void expired() {
    const auto standing = core();
    if (!standing || !active()) return;
    // Inactive before the call: the callback may start the timer anew by assigning to the handle.
    const auto callback = std::move(callback_);
    cancel();
    standing->countCall();
    callback();
  }

  void drop(MainQueue::Core& core) override {
    callback_ = nullptr;
    if (timer_) core.removeDeadline(deadline_);
    timer_.reset();
  }

  Clock::time_point deadline_;
  std::function<void()> callback_;
  std::optional<asio::steady_timer> timer_;
};

// Asio waits on an epoll descriptor that contains only the watched descriptor. Asio would make the
// caller's descriptor non-blocking, and could watch it only once.
class WatchEntry final : public Handle::Entry {
 public:
  WatchEntry(MainQueue::Core& core, int descriptor, std::uint32_t events,
             std::function<void()> callback)
      : Entry(core),
        epoll_(core.context()),
        callback_(std::make_shared<std::function<void()>>(std::move(callback))) {
    FileDescriptor epoll = makeEpoll();
    addToEpoll(epoll, descriptor, events);
    epoll_->assign(epoll.get());
    descriptor_ = epoll.release();
  }

  int watched() const override { return active() ? descriptor_ : -1; }

  void start(MainQueue::Core& /*core*/) override {
    epoll_->async_wait(
        asio::posix::descriptor_base::wait_read,
        [self = std::static_pointer_cast<WatchEntry>(shared_from_this())](const auto& error) {
          if (!error) self->ready();
        });
  }

 private:
  void ready() {
    const auto standing = core();
    if (!standing || !active()) return;
    callAndWait(*standing, [&] {
      // A callback that ran before this one may have read the data.
      epoll_event event{};
      if (::epoll_wait(watched(), &event, 1, 0) != 1) return;
      // A copy of the pointer: the callback may cancel the watch, which resets callback_.
      const auto callback = callback_;
      standing->countCall();
      (*callback)();
    });
  }

  void drop(MainQueue::Core& /*core*/) override {
    callback_.reset();
    epoll_.reset();
  }

  std::optional<asio::posix::stream_descriptor> epoll_;
  int descriptor_ = -1;  // which epoll_ owns
  std::shared_ptr<std::function<void()>> callback_;
};

class SignalEntry final : public Handle::Entry {
 public:
  SignalEntry(MainQueue::Core& core, std::initializer_list<int> signals,
              std::function<void(int)> callback)
      : Entry(core),
        signals_(core.context()),
        callback_(std::make_shared<std::function<void(int)>>(std::move(callback))) {
    for (const int signal : signals) {
      boost::system::error_code error;
      signals_->add(signal, error);
      if (error) throw std::system_error(error.value(), std::generic_category(), "onSignal");
    }
  }

  void start(MainQueue::Core& /*core*/) override {
    signals_->async_wait([self = std::static_pointer_cast<SignalEntry>(shared_from_this())](
                             const auto& error, int signal) {
      if (!error) self->arrived(signal);
    });
  }

 private:
  void arrived(int signal) {
    const auto standing = core();
    if (!standing || !active()) return;
    callAndWait(*standing, [&] {
      const auto callback = callback_;
      standing->countCall();
      (*callback)(signal);
    });
  }

  void drop(MainQueue::Core& /*core*/) override {
    callback_.reset();
    signals_.reset();
  }

  std::optional<asio::signal_set> signals_;
  std::shared_ptr<std::function<void(int)>> callback_;
};

std::uint32_t epollEvents(Interest interest) {
  switch (interest) {
    case Interest::read:
      return EPOLLIN;
    case Interest::write:
      return EPOLLOUT;
    case Interest::readOrWrite:
      break;
  }
  return static_cast<std::uint32_t>(EPOLLIN) | static_cast<std::uint32_t>(EPOLLOUT);
}

// The latest possible time instead of an overflow.
Clock::time_point deadlineAfter(std::chrono::nanoseconds delay) {
  const Clock::time_point now = Clock::now();
  if (delay <= std::chrono::nanoseconds::zero()) return now;
  return delay > Clock::time_point::max() - now ? Clock::time_point::max() : now + delay;
}

}  // namespace

Handle::Handle(std::shared_ptr<Entry> entry) : entry_(std::move(entry)) {}
Handle::Handle(Handle&& other) noexcept = default;
Handle& Handle::operator=(Handle&& other) noexcept {
  // The previous entry is cancelled last, when this handle has the new one already.
  const Handle previous(std::exchange(entry_, std::exchange(other.entry_, nullptr)));
  return *this;
}
Handle::~Handle() { cancel(); }

void Handle::cancel() {
  if (const auto entry = std::exchange(entry_, nullptr)) entry->cancel();
}

bool Handle::active() const { return entry_ && entry_->active(); }

MainQueue::MainQueue() : core_(std::make_shared<Core>()) {}
MainQueue::MainQueue(asio::io_context& context) : core_(std::make_shared<Core>(context)) {}
MainQueue::~MainQueue() { core_->shutDown(); }

std::size_t MainQueue::run() { return core_->run(); }
std::size_t MainQueue::poll() { return core_->poll(); }
void MainQueue::stop() { core_->stop(); }
void MainQueue::post(std::function<void()> callback) { core_->post(std::move(callback)); }

Timer MainQueue::after(std::chrono::nanoseconds delay, std::function<void()> callback) {
  return core_->add(
      std::make_shared<TimerEntry>(*core_, deadlineAfter(delay), std::move(callback)));
}

Watch MainQueue::watch(int descriptor, Interest interest, std::function<void()> callback) {
  return core_->add(
      std::make_shared<WatchEntry>(*core_, descriptor, epollEvents(interest), std::move(callback)));
}

SignalWatch MainQueue::onSignal(std::initializer_list<int> signals,
                                std::function<void(int)> callback) {
  return core_->add(std::make_shared<SignalEntry>(*core_, signals, std::move(callback)));
}

int MainQueue::descriptor() { return core_->descriptor(); }
asio::io_context& MainQueue::context() { return core_->context(); }

}  // namespace Zephly::main_queue
