// SPDX-License-Identifier: MIT
#include <hosts/main_queue/main_queue.h>

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
class Handle::Entry : public std::enable_shared_from_this<Entry> {
 public:
  explicit Entry(MainQueue::Core& core);
  virtual ~Entry() = default;
  Entry(const Entry&) = delete;
  Entry& operator=(const Entry&) = delete;

  bool active() const { return active_; }
  void cancel();
  // Puts the first wait into the io_context.
  virtual void start(MainQueue::Core& core) = 0;
  // The epoll descriptor that is readable when the watched descriptor is ready, or -1.
  virtual int watched() const { return -1; }

 protected:
  virtual void drop(MainQueue::Core& core) = 0;
  std::shared_ptr<MainQueue::Core> core() const { return core_.lock(); }
  // Waits (again): now, or at the end of poll(), see Core::begin().
  void startSoon(MainQueue::Core& core);

 private:
  std::weak_ptr<MainQueue::Core> core_;
  bool active_ = true;
};

// Threads: post() may be called from any thread. It touches posted_ (under postedMutex_),
// pollingThread_ and doorbell_ (atomic), weak_from_this(), and the io_context, which is thread-safe
// for asio::post. begin() reads pollingThread_ to find out whether it is on the thread that polls,
// and touches deferred_ only then. Everything else belongs to the thread that runs the queue.
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

 private:
  class Polling;
  class Running;

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
  bool running_ = false;
  bool stopRequested_ = false;

  std::atomic<std::thread::id> pollingThread_{};
  std::vector<std::function<void()>> deferred_;

  std::unique_ptr<Doorbell> doorbellOwner_;
  std::atomic<Doorbell*> doorbell_ = nullptr;
};

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
    for (auto& start : std::exchange(core_.deferred_, {})) start();
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
  if (!stopRequested_) context_.run();
  return called_ - before;
}

std::size_t MainQueue::Core::poll() {
  const std::size_t before = called_;
  // Before the work is looked at: what is posted from here on rings again.
  if (Doorbell* doorbell = doorbell_) doorbell->silence();
  {
    const auto guard = asio::make_work_guard(context_);  // else poll() would stop the io_context
    const Polling polling(*this);
    if (context_.stopped()) context_.restart();
    context_.poll();
  }
  return called_ - before;
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
    if (standing && entry->active()) entry->start(*standing);
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

void Handle::Entry::startSoon(MainQueue::Core& core) {
  core.begin([self = shared_from_this(), weakCore = core.weak_from_this()] {
    const auto standing = weakCore.lock();
    if (standing && self->active()) self->start(*standing);
  });
}

namespace {

class TimerEntry final : public Handle::Entry {
 public:
  TimerEntry(MainQueue::Core& core, Clock::time_point deadline, std::function<void()> callback)
      : Entry(core), deadline_(deadline), callback_(std::move(callback)) {}

  void start(MainQueue::Core& core) override {
    timer_.emplace(core.context(), deadline_);
    core.addDeadline(deadline_);
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
  // Waits again after the callback, also when it throws.
  struct WaitAgain {
    WatchEntry& entry;
    MainQueue::Core& core;
    ~WaitAgain() { entry.startSoon(core); }
  };

  void ready() {
    const auto standing = core();
    if (!standing || !active()) return;
    const WaitAgain waitAgain{*this, *standing};
    // A callback that ran before this one may have read the data.
    epoll_event event{};
    if (::epoll_wait(watched(), &event, 1, 0) != 1) return;
    // A copy of the pointer: the callback may cancel the watch, which resets callback_.
    const auto callback = callback_;
    standing->countCall();
    (*callback)();
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
    // Before the callback, which may throw.
    startSoon(*standing);
    const auto callback = callback_;
    standing->countCall();
    (*callback)(signal);
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
