// SPDX-License-Identifier: MIT
#include <hosts/simulated/pacer.h>

#include <tests/support/special_floats.h>

#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <stdexcept>
#include <vector>

namespace {

using namespace std::chrono_literals;
using Zephly::main_queue::MainQueue;
using Zephly::simulated::Pacer;
using Zephly::simulated::Scheduler;
using Zephly::simulated::Time;
using Clock = std::chrono::steady_clock;

class PacerTest : public testing::Test {
 protected:
  // The queue's timers use the real clock: with a period of one nanosecond a turn is due
  // whenever the queue is polled.
  Pacer::Options options(std::size_t eventsPerTurn = 10000) {
    Pacer::Options options;
    options.period = 1ns;
    options.eventsPerTurn = eventsPerTurn;
    options.clock = [this] { return wall; };
    return options;
  }
  // One turn.
  void turn() {
    while (queue.poll() == 0) {
    }
  }

  Clock::time_point wall = Clock::time_point(1000h);
  MainQueue queue;
  Scheduler scheduler;
};

TEST_F(PacerTest, RunsNothingWhileItIsHeldAndCatchesUpAfterwards) {
  bool held = true;
  Pacer::Options options = this->options();
  options.held = [&] { return held; };
  options.heldPeriod = 1ns;
  const Pacer pacer(queue, scheduler, 1, options);
  int runs = 0;
  scheduler.at(10ms, [&] { ++runs; });
  wall += 30ms;
  turn();
  turn();
  EXPECT_EQ(runs, 0);
  EXPECT_EQ(scheduler.now(), 0s);
  EXPECT_EQ(pacer.behind(), 30ms);
  held = false;
  turn();
  EXPECT_EQ(runs, 1);
  EXPECT_EQ(scheduler.now(), 30ms);
}

TEST_F(PacerTest, FollowsTheWallClock) {
  const Pacer pacer(queue, scheduler, 1, options());
  turn();
  EXPECT_EQ(scheduler.now(), 0s);
  wall += 30ms;
  turn();
  EXPECT_EQ(scheduler.now(), 30ms);
  wall += 1h;
  turn();
  EXPECT_EQ(scheduler.now(), 1h + 30ms);
}

TEST_F(PacerTest, MultipliesBySpeed) {
  const Pacer fast(queue, scheduler, 100, options());
  wall += 10ms;
  turn();
  EXPECT_EQ(scheduler.now(), 1s);
  EXPECT_EQ(fast.speed(), 100);
}

TEST_F(PacerTest, RunsSlowerThanTheWallClock) {
  const Pacer slow(queue, scheduler, 0.25, options());
  wall += 10s;
  turn();
  EXPECT_EQ(scheduler.now(), 2500ms);
}

TEST_F(PacerTest, StartsAtTheTimeOfTheScheduler) {
  scheduler.advance(5s);
  const Pacer pacer(queue, scheduler, 2, options());
  wall += 1s;
  turn();
  EXPECT_EQ(scheduler.now(), 7s);
}

TEST_F(PacerTest, StopsOnDestruction) {
  {
    const Pacer pacer(queue, scheduler, 1, options());
    turn();
  }
  wall += 1s;
  EXPECT_EQ(queue.poll(), 0U);
  EXPECT_EQ(scheduler.now(), 0s);
}

TEST_F(PacerTest, RefusesInvalidSpeeds) {
  constexpr double endless = std::numeric_limits<double>::infinity();
  for (const double speed : std::vector<double>{0.0, -0.0, -1.0, endless, -endless, notANumber}) {
    EXPECT_THROW(Pacer(queue, scheduler, speed), std::invalid_argument) << speed;
  }
  Pacer pacer(queue, scheduler, 3, options());
  EXPECT_THROW(pacer.setSpeed(0), std::invalid_argument);
  EXPECT_EQ(pacer.speed(), 3);
}

TEST_F(PacerTest, ReportsTheRefusedSpeed) {
  try {
    const Pacer pacer(queue, scheduler, -2.5);
    FAIL();
  } catch (const std::invalid_argument& error) {
    EXPECT_NE(std::string(error.what()).find("-2.5"), std::string::npos);
  }
}

TEST_F(PacerTest, RefusesInvalidOptions) {
  Pacer::Options none = options(0);
  EXPECT_THROW(Pacer(queue, scheduler, 1, none), std::invalid_argument);
  Pacer::Options still = options();
  still.period = 0ns;
  EXPECT_THROW(Pacer(queue, scheduler, 1, still), std::invalid_argument);
}

TEST_F(PacerTest, TheHighestSpeedDoesNotOverflow) {
  const Pacer pacer(queue, scheduler, std::numeric_limits<double>::max(), options());
  wall += 1s;
  turn();
  wall += 1000h;
  turn();
  EXPECT_GT(scheduler.now(), 24h * 365 * 100);
}

TEST_F(PacerTest, ChangesItsSpeedFromNowOn) {
  Pacer pacer(queue, scheduler, 1, options());
  wall += 1s;
  pacer.setSpeed(10);
  EXPECT_EQ(pacer.behind(), 1s);
  wall += 1s;
  turn();
  EXPECT_EQ(scheduler.now(), 11s);
  EXPECT_EQ(pacer.behind(), 0s);
}

TEST_F(PacerTest, ATurnEndsAfterItsMaximumOfEvents) {
  const Pacer pacer(queue, scheduler, 1, options(10));
  std::vector<int> ran;
  for (int i = 0; i < 25; ++i) {
    scheduler.at(Time(i * 1ms), [&ran, i] { ran.push_back(i); });
  }
  wall += 1s;
  turn();
  EXPECT_EQ(ran.size(), 10U);
  EXPECT_EQ(pacer.behind(), 1s - 9ms);
  bool others = false;
  queue.post([&] { others = true; });
  turn();
  EXPECT_TRUE(others);
  while (scheduler.pending() > 0) turn();
  std::vector<int> expected(25);
  for (int i = 0; i < 25; ++i) expected[static_cast<std::size_t>(i)] = i;
  EXPECT_EQ(ran, expected);
}

TEST_F(PacerTest, ATurnEndsAfterItsMaximumOfTime) {
  Pacer::Options slowMachine = options();
  slowMachine.workPerTurn = 10ms;
  const Pacer pacer(queue, scheduler, 1000, slowMachine);
  int calls = 0;
  std::function<void()> tick = [&] {  // takes a hundred times its period
    ++calls;
    wall += 1ms;
    scheduler.after(10ms, tick);
  };
  scheduler.after(10ms, tick);
  wall += 1s;
  for (int turns = 1; turns <= 5; ++turns) {
    turn();
    EXPECT_EQ(calls, 10 * turns);
  }
  EXPECT_GT(pacer.behind(), 0s);
}

TEST_F(PacerTest, AnEventThatThrowsDoesNotStopTheClock) {
  const Pacer pacer(queue, scheduler, 1, options());
  scheduler.after(1s, [] { throw std::runtime_error("out"); });
  wall += 2s;
  EXPECT_THROW(turn(), std::runtime_error);
  turn();
  EXPECT_EQ(scheduler.now(), 2s);
}

// The same events in the same order at the same virtual times for any jumps of the wall clock.
TEST_F(PacerTest, TheOrderOfEventsDoesNotDependOnTheWallClock) {
  std::vector<std::vector<Time>> runs;
  for (const auto step : {1ms, 7ms, 333ms, 5000ms}) {
    Scheduler fresh;
    std::vector<Time> times;
    std::function<void()> fast = [&] {
      times.push_back(fresh.now());
      fresh.after(3ms, fast);
    };
    std::function<void()> slow = [&] {
      times.push_back(-fresh.now());
      fresh.after(9ms, slow);
    };
    fresh.after(0ms, fast);
    fresh.after(0ms, slow);
    const Pacer pacer(queue, fresh, 1, options(5));
    while (times.size() < 1000) {
      wall += step;
      turn();
    }
    times.resize(1000);
    runs.push_back(times);
  }
  for (const auto& run : runs) EXPECT_EQ(run, runs.front());
}

TEST_F(PacerTest, UsesTheRealClockByDefault) {
  const Pacer pacer(queue, scheduler, 1000);
  bool called = false;
  scheduler.after(5s, [&] {
    called = true;
    queue.stop();
  });
  queue.run();
  EXPECT_TRUE(called);
}

}  // namespace
