// SPDX-License-Identifier: MIT
#include <tests/schedules/virtual_time.h>

#include <poll.h>
#include <sys/epoll.h>
#include <sys/syscall.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <ctime>
#include <limits>
#include <utility>

namespace schedules {

namespace {

using Duration = VirtualTime::Duration;

// Beyond every real monotonic time: a wait of another thread, whose end is computed from this
// clock, ends when it is notified and never by time.
constexpr Duration origin = std::chrono::hours(1'000'000);
// 2026-01-01, a date on which nothing special happens.
constexpr Duration wallOrigin = std::chrono::seconds(1'767'225'600);
// What a wait without a limit of its own passes at a time.
constexpr Duration endless = std::chrono::minutes(5);

std::atomic<bool> running{false};
pthread_t driver{};
std::atomic<Duration::rep> passed{0};
Duration wallStep{0};
Duration limitOf = Duration::max();
std::function<void()> onLimit;

timespec specOf(Duration duration) {
  const auto whole = std::chrono::floor<std::chrono::seconds>(duration);
  return {static_cast<time_t>(whole.count()), static_cast<long>((duration - whole).count())};
}

Duration durationOf(const timespec& spec) {
  return std::chrono::seconds(spec.tv_sec) + Duration(spec.tv_nsec);
}

int realEpollWait(int descriptor, epoll_event* events, int count, int timeout) {
  return static_cast<int>(
      ::syscall(SYS_epoll_pwait, descriptor, events, count, timeout, nullptr, 8));
}

int realPoll(pollfd* descriptors, nfds_t count, Duration timeout) {
  timespec spec = specOf(timeout);
  return static_cast<int>(::syscall(SYS_ppoll, descriptors, count, &spec, nullptr, 8));
}

}  // namespace

void VirtualTime::start() {
  driver = ::pthread_self();
  passed = 0;
  running = true;
}

bool VirtualTime::started() { return running; }

bool VirtualTime::driving() { return running && ::pthread_equal(driver, ::pthread_self()) != 0; }

Duration VirtualTime::now() { return Duration(passed.load()); }

void VirtualTime::pass(Duration duration) {
  passed += std::max(duration, Duration::zero()).count();
  if (now() > limitOf && onLimit) std::exchange(onLimit, nullptr)();
}

void VirtualTime::stepWallClock(Duration by) { wallStep += by; }

void VirtualTime::limit(Duration limit, std::function<void()> expired) {
  limitOf = limit;
  onLimit = std::move(expired);
}

}  // namespace schedules

// The functions of the system that are replaced. The dynamic linker prefers these to the library's,
// for the C++ library and Boost.Asio too.
extern "C" {

int clock_gettime(clockid_t clock, timespec* result) noexcept {
  using namespace schedules;
  const bool wall = clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE;
  const bool steady = clock == CLOCK_MONOTONIC || clock == CLOCK_MONOTONIC_COARSE ||
                      clock == CLOCK_MONOTONIC_RAW || clock == CLOCK_BOOTTIME;
  if (!running || !(wall || steady)) {
    return static_cast<int>(::syscall(SYS_clock_gettime, clock, result));
  }
  *result = specOf((wall ? wallOrigin + wallStep : origin) + VirtualTime::now());
  return 0;
}

// Boost.Asio then computes the time limit of epoll_wait itself.
int timerfd_create(clockid_t clock, int flags) noexcept {
  if (!schedules::running) return static_cast<int>(::syscall(SYS_timerfd_create, clock, flags));
  errno = EINVAL;
  return -1;
}

int epoll_wait(int descriptor, epoll_event* events, int count, int timeout) {
  using namespace schedules;
  if (!VirtualTime::driving()) return realEpollWait(descriptor, events, count, timeout);
  const int ready = realEpollWait(descriptor, events, count, 0);
  if (ready != 0 || timeout == 0) return ready;
  // While time passes nothing becomes ready but by other threads, for which the next wait is early
  // enough: a second system call would double the cost of most waits.
  VirtualTime::pass(timeout < 0 ? endless : std::chrono::milliseconds(timeout));
  return 0;
}

int poll(pollfd* descriptors, nfds_t count, int timeout) {
  using namespace schedules;
  if (!VirtualTime::driving()) {
    // The longest time that ppoll accepts for "without a limit".
    const Duration limit =
        timeout < 0 ? std::chrono::hours(24) : std::chrono::milliseconds(timeout);
    return realPoll(descriptors, count, limit);
  }
  const int ready = realPoll(descriptors, count, Duration::zero());
  if (ready != 0 || timeout == 0) return ready;
  VirtualTime::pass(timeout < 0 ? endless : std::chrono::milliseconds(timeout));
  return realPoll(descriptors, count, Duration::zero());
}

int clock_nanosleep(clockid_t clock, int flags, const timespec* request, timespec* rest) {
  using namespace schedules;
  if (!VirtualTime::driving()) {
    return ::syscall(SYS_clock_nanosleep, clock, flags, request, rest) == 0 ? 0 : errno;
  }
  const Duration target = durationOf(*request);
  VirtualTime::pass((flags & TIMER_ABSTIME) != 0 ? target - origin - VirtualTime::now() : target);
  return 0;
}

int nanosleep(const timespec* request, timespec* rest) {
  const int error = clock_nanosleep(CLOCK_MONOTONIC, 0, request, rest);
  if (error != 0) errno = error;
  return error == 0 ? 0 : -1;
}

}  // extern "C"
