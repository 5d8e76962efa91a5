// SPDX-License-Identifier: MIT
#include <hosts/main_queue/doorbell.h>

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <system_error>

namespace Zephly::main_queue {

namespace {

FileDescriptor checked(int descriptor, const char* what) {
  if (descriptor < 0) throw std::system_error(errno, std::generic_category(), what);
  return FileDescriptor(descriptor);
}

}  // namespace

FileDescriptor makeEpoll() { return checked(::epoll_create1(EPOLL_CLOEXEC), "epoll_create1"); }

void addToEpoll(const FileDescriptor& epoll, int descriptor, std::uint32_t events) {
  epoll_event event{};
  event.events = events;
  if (::epoll_ctl(epoll.get(), EPOLL_CTL_ADD, descriptor, &event) != 0) {
    throw std::system_error(errno, std::generic_category(), "cannot watch the descriptor");
  }
}

Doorbell::Doorbell()
    : epoll_(makeEpoll()),
      event_(checked(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "eventfd")),
      timer_(checked(::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK),
                     "timerfd_create")) {
  addToEpoll(epoll_, event_.get(), EPOLLIN);
  addToEpoll(epoll_, timer_.get(), EPOLLIN);
  ring();
}

void Doorbell::ring() {
  // Lock-free, from any thread. Between two calls of silence() only the first ring writes: the
  // descriptor is readable already.
  if (!rung_.exchange(true)) ::eventfd_write(event_.get(), 1);
}

void Doorbell::silence() {
  // In this order: a ring() between the two steps finds rung_ set and writes nothing, but the queue
  // looks at its work after this call, so what was posted before that ring is found. In the other
  // order a ring between the steps would write and be read away, and rung_ would stay set: no
  // ring would write until the next silence().
  eventfd_t count = 0;
  ::eventfd_read(event_.get(), &count);
  rung_.exchange(false);
}

void Doorbell::setDeadline(std::optional<std::chrono::steady_clock::time_point> deadline) {
  if (deadline == deadline_) return;
  deadline_ = deadline;
  itimerspec setting{};  // all zero: never
  if (deadline) {
    using std::chrono::nanoseconds;
    const auto time = std::max(nanoseconds(1), nanoseconds(deadline->time_since_epoch()));
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time);
    setting.it_value.tv_sec = static_cast<std::time_t>(seconds.count());
    setting.it_value.tv_nsec = static_cast<long>((time - seconds).count());
  }
  ::timerfd_settime(timer_.get(), TFD_TIMER_ABSTIME, &setting, nullptr);
}

void Doorbell::watch(int descriptor) { addToEpoll(epoll_, descriptor, EPOLLIN); }

}  // namespace Zephly::main_queue
