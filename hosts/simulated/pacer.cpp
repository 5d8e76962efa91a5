// SPDX-License-Identifier: MIT
#include <hosts/simulated/pacer.h>

#include <algorithm>
#include <cmath>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace Zephly::simulated {

namespace {

double checkedSpeed(double speed) {
  if (std::isfinite(speed) && speed > 0) return speed;
  std::ostringstream message;
  message << "the speed of a simulation must be a finite number greater than 0, not " << speed;
  throw std::invalid_argument(message.str());
}

Pacer::Options checkedOptions(Pacer::Options options) {
  if (options.period <= std::chrono::nanoseconds::zero() || options.eventsPerTurn == 0 ||
      !options.clock) {
    throw std::invalid_argument("Pacer: period and eventsPerTurn must be greater than 0");
  }
  return options;
}

// Both not negative. Far away in place of an overflow.
Duration scaled(std::chrono::nanoseconds wall, double speed) {
  // The largest power of two that a count of nanoseconds can hold and a double names exactly.
  constexpr double limit = 0x1p62;
  const double nanoseconds = static_cast<double>(wall.count()) * speed;
  return Duration(static_cast<Duration::rep>(std::min(nanoseconds, limit)));
}

}  // namespace

Pacer::Pacer(main_queue::MainQueue& queue, Scheduler& scheduler, double speed)
    : Pacer(queue, scheduler, speed, Options{}) {}

Pacer::Pacer(main_queue::MainQueue& queue, Scheduler& scheduler, double speed, Options options)
    : queue_(queue),
      scheduler_(scheduler),
      speed_(checkedSpeed(speed)),
      options_(checkedOptions(std::move(options))),
      wallBase_(options_.clock()),
      virtualBase_(scheduler.now()) {
  arm(std::chrono::nanoseconds::zero());
}

// The new speed counts from here: wallBase_ and virtualBase_ move to the present target, of which a
// part may still be behind.
void Pacer::setSpeed(double speed) {
  checkedSpeed(speed);
  const auto wall = options_.clock();
  virtualBase_ = target(wall);
  wallBase_ = wall;
  speed_ = speed;
}

Duration Pacer::behind() const {
  return std::max(Duration::zero(), target(options_.clock()) - scheduler_.now());
}

Time Pacer::target(std::chrono::steady_clock::time_point wall) const {
  const auto elapsed =
      std::max(std::chrono::nanoseconds::zero(), std::chrono::nanoseconds(wall - wallBase_));
  const Duration passed = scaled(elapsed, speed_);
  return passed > Time::max() - virtualBase_ ? Time::max() : virtualBase_ + passed;
}

void Pacer::arm(std::chrono::nanoseconds delay) {
  timer_ = queue_.after(delay, [this] { turn(); });
}

void Pacer::turn() {
  // The timer first: an event that throws must not stop the clock. If the portion is used up, the
  // timer is replaced by one for the next turn of the queue, so that others get their turn between.
  if (options_.held && options_.held()) return arm(options_.heldPeriod);
  arm(options_.period);
  const auto start = options_.clock();
  const Time until = target(start);
  for (std::size_t events = 0; scheduler_.runNext(until);) {
    ++events;
    if (events >= options_.eventsPerTurn || options_.clock() - start >= options_.workPerTurn) {
      arm(std::chrono::nanoseconds::zero());
      return;
    }
  }
  scheduler_.advanceTo(std::max(until, scheduler_.now()));
}

}  // namespace Zephly::simulated
