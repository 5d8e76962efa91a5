// SPDX-License-Identifier: MIT
#include <hosts/simulated/scheduler.h>

#include <algorithm>
#include <limits>
#include <stdexcept>
#include <string>

namespace Zephly::simulated {

namespace {

// Far away in place of an overflow.
Time later(Time time, Duration delay) {
  return delay > Time::max() - time ? Time::max() : time + delay;
}

}  // namespace

Scheduler::EventId Scheduler::at(Time time, std::function<void()> event) {
  const EventId id{std::max(time, now_), ++lastSequence_};
  events_.emplace(id, std::move(event));
  return id;
}

Scheduler::EventId Scheduler::after(Duration delay, std::function<void()> event) {
  return at(later(now_, std::max(delay, Duration::zero())), std::move(event));
}

bool Scheduler::cancel(EventId id) { return events_.erase(id) > 0; }

void Scheduler::advance(Duration duration) {
  if (duration < Duration::zero()) {
    throw std::invalid_argument("Scheduler::advance: time does not run backwards");
  }
  advanceTo(later(now_, duration));
}

void Scheduler::advanceTo(Time time) {
  if (time < now_) {
    throw std::invalid_argument("Scheduler::advanceTo: the time " + std::to_string(time.count()) +
                                " ns has passed");
  }
  while (runNext(time)) {
  }
  now_ = time;
}

bool Scheduler::runNext(Time limit) {
  if (running_) throw std::logic_error("Scheduler: stepped from inside an event");
  if (events_.empty() || events_.begin()->first.time > limit) return false;

  // Taken out before it runs: it may throw, cancel others or schedule more.
  const auto event = events_.extract(events_.begin());
  now_ = event.key().time;
  struct Running {
    explicit Running(bool& flag) : flag_(flag) { flag_ = true; }
    Running(const Running&) = delete;
    Running& operator=(const Running&) = delete;
    ~Running() { flag_ = false; }
    bool& flag_;
  } const running(running_);
  event.mapped()();
  return true;
}

std::optional<Time> Scheduler::nextTime() const {
  if (events_.empty()) return std::nullopt;
  return events_.begin()->first.time;
}

}  // namespace Zephly::simulated
