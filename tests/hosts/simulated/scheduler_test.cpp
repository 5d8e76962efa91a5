// SPDX-License-Identifier: MIT
#include <hosts/simulated/scheduler.h>

#include <gtest/gtest.h>

#include <random>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

namespace {

using namespace std::chrono_literals;
using Zephly::simulated::Scheduler;
using Zephly::simulated::Time;

TEST(SchedulerTest, AdvancesOnlyByStepping) {
  Scheduler scheduler;
  bool called = false;
  scheduler.after(0s, [&] { called = true; });
  EXPECT_EQ(scheduler.now(), 0s);
  EXPECT_FALSE(called);
  scheduler.advance(0s);
  EXPECT_TRUE(called);
  EXPECT_EQ(scheduler.now(), 0s);
}

TEST(SchedulerTest, RunsEventsInOrderOfTimeThenOfScheduling) {
  Scheduler scheduler;
  std::string order;
  scheduler.at(2s, [&] { order += "c"; });
  scheduler.at(1s, [&] { order += "a"; });
  scheduler.at(2s, [&] { order += "d"; });
  scheduler.after(1s, [&] { order += "b"; });
  scheduler.advance(2s);
  EXPECT_EQ(order, "abcd");
}

TEST(SchedulerTest, NowIsTheTimeOfTheEvent) {
  Scheduler scheduler;
  std::vector<Time> times;
  for (const Time time : {3s, 1s, 2s}) {
    scheduler.at(time, [&] { times.push_back(scheduler.now()); });
  }
  scheduler.advance(10s);
  EXPECT_EQ(times, (std::vector<Time>{1s, 2s, 3s}));
  EXPECT_EQ(scheduler.now(), 10s);
}

TEST(SchedulerTest, RunsEventsUpToTheEndOfTheStepInclusive) {
  Scheduler scheduler;
  int calls = 0;
  scheduler.at(1s, [&] { ++calls; });
  scheduler.at(1s + 1ns, [&] { ++calls; });
  scheduler.advanceTo(1s);
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(scheduler.nextTime(), 1s + 1ns);
  EXPECT_EQ(scheduler.pending(), 1U);
}

TEST(SchedulerTest, RunsEventsThatEventsSchedule) {
  Scheduler scheduler;
  std::vector<Time> times;
  std::function<void()> tick = [&] {
    times.push_back(scheduler.now());
    scheduler.after(1s, tick);
  };
  scheduler.after(1s, tick);
  scheduler.advance(3500ms);
  EXPECT_EQ(times, (std::vector<Time>{1s, 2s, 3s}));
}

TEST(SchedulerTest, RunsPastEventsNow) {
  Scheduler scheduler;
  scheduler.advance(5s);
  std::vector<Time> times;
  scheduler.at(1s, [&] { times.push_back(scheduler.now()); });
  scheduler.after(-1s, [&] { times.push_back(scheduler.now()); });
  scheduler.advance(0s);
  EXPECT_EQ(times, (std::vector<Time>{5s, 5s}));
}

TEST(SchedulerTest, CancelsOnce) {
  Scheduler scheduler;
  const auto id = scheduler.after(1s, [] { FAIL(); });
  EXPECT_TRUE(scheduler.cancel(id));
  EXPECT_FALSE(scheduler.cancel(id));
  EXPECT_FALSE(scheduler.cancel({}));
  scheduler.advance(2s);
}

TEST(SchedulerTest, AnEventThatRanCannotBeCancelled) {
  Scheduler scheduler;
  Scheduler::EventId id;
  bool cancelled = true;
  id = scheduler.after(1s, [&] { cancelled = scheduler.cancel(id); });
  scheduler.advance(1s);
  EXPECT_FALSE(cancelled);
  EXPECT_FALSE(scheduler.cancel(id));
}

TEST(SchedulerTest, AnEventCancelsAnotherOfTheSameTime) {
  Scheduler scheduler;
  Scheduler::EventId second;
  scheduler.at(1s, [&] { scheduler.cancel(second); });
  second = scheduler.at(1s, [] { FAIL(); });
  scheduler.advance(1s);
}

TEST(SchedulerTest, DoesNotStepBackwards) {
  Scheduler scheduler;
  scheduler.advance(2s);
  EXPECT_THROW(scheduler.advance(-1ns), std::invalid_argument);
  EXPECT_THROW(scheduler.advanceTo(1s), std::invalid_argument);
  EXPECT_EQ(scheduler.now(), 2s);
}

TEST(SchedulerTest, RefusesToStepWithinAnEvent) {
  Scheduler scheduler;
  scheduler.after(1s, [&] { EXPECT_THROW(scheduler.advance(1s), std::logic_error); });
  scheduler.advance(1s);
  EXPECT_EQ(scheduler.now(), 1s);
}

TEST(SchedulerTest, AnExceptionConsumesOnlyItsEvent) {
  Scheduler scheduler;
  int calls = 0;
  scheduler.at(1s, [] { throw std::runtime_error("out"); });
  scheduler.at(2s, [&] { ++calls; });
  EXPECT_THROW(scheduler.advance(5s), std::runtime_error);
  EXPECT_EQ(scheduler.now(), 1s);
  scheduler.advanceTo(5s);
  EXPECT_EQ(calls, 1);
}

TEST(SchedulerTest, RunNextRunsOneEventWithinTheLimit) {
  Scheduler scheduler;
  std::string order;
  scheduler.at(1s, [&] { order += "a"; });
  scheduler.at(2s, [&] { order += "b"; });
  EXPECT_TRUE(scheduler.runNext(1500ms));
  EXPECT_FALSE(scheduler.runNext(1500ms));
  EXPECT_EQ(order, "a");
  EXPECT_EQ(scheduler.now(), 1s);
}

TEST(SchedulerTest, FarAwayDoesNotOverflow) {
  Scheduler scheduler;
  scheduler.advance(1s);
  scheduler.after(Time::max(), [] {});
  EXPECT_EQ(scheduler.nextTime(), Time::max());
}

// Compared with a list that is searched linearly for every step.
TEST(SchedulerTest, RandomSequencesMatchASortedList) {
  std::mt19937 random(7);
  for (int round = 0; round < 50; ++round) {
    Scheduler scheduler;
    std::vector<int> ran;
    std::vector<std::tuple<Time, int>> list;  // in order of scheduling
    std::vector<int> expected;
    std::vector<Scheduler::EventId> ids;
    for (int i = 0; i < 300; ++i) {
      const auto dice = random() % 10;
      if (dice < 6) {
        const Time time = scheduler.now() + Time(random() % 20);
        ids.push_back(scheduler.at(time, [&ran, i] { ran.push_back(i); }));
        list.emplace_back(time, i);
      } else if (dice < 7 && !list.empty()) {
        const std::size_t victim = random() % list.size();
        // The list and the ids shrink together.
        EXPECT_TRUE(scheduler.cancel(ids[victim]));
        ids.erase(ids.begin() + static_cast<std::ptrdiff_t>(victim));
        list.erase(list.begin() + static_cast<std::ptrdiff_t>(victim));
      } else {
        const Time until = scheduler.now() + Time(random() % 15);
        for (;;) {
          std::size_t best = list.size();
          for (std::size_t k = 0; k < list.size(); ++k) {
            const Time time = std::get<0>(list[k]);
            if (time <= until && (best == list.size() || time < std::get<0>(list[best]))) best = k;
          }
          if (best == list.size()) break;
          expected.push_back(std::get<1>(list[best]));
          list.erase(list.begin() + static_cast<std::ptrdiff_t>(best));
          ids.erase(ids.begin() + static_cast<std::ptrdiff_t>(best));
        }
        scheduler.advanceTo(until);
        ASSERT_EQ(ran, expected);
      }
    }
    EXPECT_FALSE(ran.empty());
  }
}

}  // namespace
