// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Virtual time for the simulated world: events in order of time, which run when the clock is
/// stepped.
///
///   Zephly::simulated::Scheduler scheduler;
///   scheduler.after(10s, [] { std::puts("ten seconds later"); });
///   scheduler.advance(1h);  // prints at once
///
/// Time is constant unless advance() or advanceTo() is called, by a test itself or by a Pacer.
/// Events are called from nowhere else, so nothing that is scheduled is ever called from inside
/// the call that scheduled it. Use it from one thread.

#include <zephly/platform/export.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <utility>

namespace Zephly::simulated {

/// A span of virtual time.
using Duration = std::chrono::nanoseconds;
/// A point in virtual time: nanoseconds since the scheduler was created.
using Time = std::chrono::nanoseconds;

/// A clock that is stepped by hand, and the events scheduled on it.
class ZEPHLY_EXPORT Scheduler {
 public:
  /// Names one scheduled event, for cancel(). Never used twice by the same scheduler; a default
  /// one names no event.
  struct EventId {
    Time time{};
    std::uint64_t sequence = 0;
    friend bool operator==(const EventId&, const EventId&) = default;
    friend bool operator<(const EventId& left, const EventId& right) {
      return left.time != right.time ? left.time < right.time : left.sequence < right.sequence;
    }
  };

  Scheduler() = default;
  Scheduler(const Scheduler&) = delete;
  Scheduler& operator=(const Scheduler&) = delete;
  /// Drops the events that have not run.
  ~Scheduler() = default;

  /// The time of the event that is running, else the time up to which the clock was stepped.
  Time now() const { return now_; }

  /// Runs `event` at `time`; a time that has passed means now (at the next step, also one of 0).
  /// Events of the same time run in the order in which they were scheduled.
  EventId at(Time time, std::function<void()> event);
  /// Runs `event` when `delay` has passed; a negative delay means 0.
  EventId after(Duration delay, std::function<void()> event);
  /// True when the event was still to come and now is not.
  bool cancel(EventId id);

  /// Steps the clock by `duration` (0 or more) and runs everything that is due until then,
  /// including events that those events schedule. An exception from an event leaves the clock at
  /// that event; that event is gone, the others stay scheduled.
  void advance(Duration duration);
  /// The same up to `time`. std::invalid_argument when it is in the past, std::logic_error when
  /// called from inside an event.
  void advanceTo(Time time);
  /// Runs at most one event that is due by `limit` and steps the clock to its time. False when
  /// there is none; the clock then does not move.
  bool runNext(Time limit);

  /// When the next event is due; empty when there is none.
  std::optional<Time> nextTime() const;
  /// Events that are still to come.
  std::size_t pending() const { return events_.size(); }

 private:
  Time now_{};
  std::uint64_t lastSequence_ = 0;
  bool running_ = false;
  std::map<EventId, std::function<void()>> events_;
};

}  // namespace Zephly::simulated
