// SPDX-License-Identifier: MIT
#include <hosts/main_queue/main_queue.h>

#include <boost/asio/io_context.hpp>
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>

namespace {

using namespace std::chrono_literals;
using Zephly::main_queue::MainQueue;
using Zephly::main_queue::Timer;
using Clock = std::chrono::steady_clock;

TEST(MainQueueTimerTest, FiresOnceAndNotBeforeItsTime) {
  MainQueue queue;
  const auto start = Clock::now();
  int calls = 0;
  const auto timer = queue.after(5ms, [&] {
    ++calls;
    EXPECT_GE(Clock::now() - start, 5ms);
    queue.stop();
  });
  EXPECT_TRUE(timer.active());
  queue.run();
  EXPECT_EQ(calls, 1);
  EXPECT_FALSE(timer.active());
}

TEST(MainQueueTimerTest, FireInTheOrderOfTheirTimes) {
  MainQueue queue;
  std::string order;
  const auto last = queue.after(6ms, [&] {
    order += "c";
    queue.stop();
  });
  const auto first = queue.after(2ms, [&] { order += "a"; });
  const auto second = queue.after(4ms, [&] { order += "b"; });
  queue.run();
  EXPECT_EQ(order, "abc");
}

TEST(MainQueueTimerTest, ZeroAndNegativeDelaysFireOnTheQueue) {
  MainQueue queue;
  int calls = 0;
  const auto zero = queue.after(0ns, [&] { ++calls; });
  const auto negative = queue.after(-1h, [&] {
    if (++calls == 2) queue.stop();
  });
  EXPECT_EQ(calls, 0);
  const auto either = queue.after(20s, [&] { queue.stop(); });
  while (calls < 2) queue.poll();
  EXPECT_EQ(calls, 2);
}

TEST(MainQueueTimerTest, AcceptsTheLongestDelay) {
  MainQueue queue;
  const auto timer = queue.after(std::chrono::nanoseconds::max(), [] { FAIL(); });
  EXPECT_EQ(queue.poll(), 0U);
  EXPECT_TRUE(timer.active());
}

TEST(MainQueueTimerTest, DestroyingTheHandleCancels) {
  MainQueue queue;
  const auto captured = std::make_shared<int>();
  {
    const auto timer = queue.after(0ns, [captured] { FAIL(); });
  }
  EXPECT_EQ(captured.use_count(), 1) << "what the callback holds goes with the handle";
  const auto end = queue.after(2ms, [&] { queue.stop(); });
  queue.run();
}

TEST(MainQueueTimerTest, RepeatedCancelAndCancelOfAnEmptyHandleDoNothing) {
  MainQueue queue;
  Timer timer = queue.after(0ns, [] { FAIL(); });
  timer.cancel();
  timer.cancel();
  Timer().cancel();
  EXPECT_FALSE(timer.active());
  EXPECT_FALSE(Timer().active());
}

TEST(MainQueueTimerTest, CanBeCancelledByACallbackOfTheSameTurn) {
  MainQueue queue;
  Timer first;
  Timer second;
  int calls = 0;
  first = queue.after(0ns, [&] {
    ++calls;
    second.cancel();
  });
  second = queue.after(0ns, [&] {
    ++calls;
    first.cancel();
  });
  const auto end = queue.after(5ms, [&] { queue.stop(); });
  queue.run();
  EXPECT_EQ(calls, 1);
}

TEST(MainQueueTimerTest, CanReplaceItselfFromItsOwnCallback) {
  MainQueue queue;
  int calls = 0;
  Timer timer;
  std::function<void()> tick = [&] {
    if (++calls == 3) {
      queue.stop();
    } else {
      timer = queue.after(0ns, tick);
    }
  };
  timer = queue.after(0ns, tick);
  queue.run();
  EXPECT_EQ(calls, 3);
}

TEST(MainQueueTimerTest, MovedHandlesKeepTheTimer) {
  MainQueue queue;
  bool called = false;
  Timer first = queue.after(0ns, [&] {
    called = true;
    queue.stop();
  });
  Timer second = std::move(first);
  queue.run();
  EXPECT_TRUE(called);
}

TEST(MainQueueTimerTest, AHandleMayOutliveTheQueue) {
  Timer timer;
  const auto captured = std::make_shared<int>();
  {
    MainQueue queue;
    timer = queue.after(1h, [captured] { FAIL(); });
  }
  EXPECT_FALSE(timer.active());
  EXPECT_EQ(captured.use_count(), 1);
  timer.cancel();
}

TEST(MainQueueTimerTest, IsDestroyedWithTheQueueOnTheApplicationsContext) {
  boost::asio::io_context context;
  Timer timer;
  {
    MainQueue queue(context);
    timer = queue.after(1h, [] { FAIL(); });
  }
  context.run();  // returns, because it has no work
  EXPECT_FALSE(timer.active());
}

}  // namespace
