// SPDX-License-Identifier: MIT
#include <hosts/main_queue/main_queue.h>

#include <tests/hosts/main_queue/pipe.h>

#include <boost/asio/io_context.hpp>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;
using Zephly::main_queue::Interest;
using Zephly::main_queue::MainQueue;
using Zephly::main_queue::Watch;

// Posts ---------------------------------------------------------------------------------------

TEST(MainQueuePostTest, RunsInOrderAndNotInsideThePost) {
  MainQueue queue;
  std::string order;
  for (const char letter : {'a', 'b', 'c'}) {
    queue.post([&order, letter] { order += letter; });
  }
  EXPECT_EQ(order, "");
  EXPECT_EQ(queue.poll(), 3U);
  EXPECT_EQ(order, "abc");
  EXPECT_EQ(queue.poll(), 0U);
}

TEST(MainQueuePostTest, FromACallbackWaitsForTheNextPoll) {
  MainQueue queue;
  int calls = 0;
  std::function<void()> again = [&] {
    ++calls;
    queue.post(again);
  };
  queue.post(again);
  for (int expected = 1; expected <= 5; ++expected) {
    EXPECT_EQ(queue.poll(), 1U);
    EXPECT_EQ(calls, expected);
  }
}

TEST(MainQueuePostTest, FromACallbackRunsBeforeALaterOneOfAnotherThread) {
  MainQueue queue;
  std::string order;
  queue.post([&] {
    queue.post([&] { order += "1"; });
    std::thread([&] { queue.post([&] { order += "2"; }); }).join();
  });
  while (queue.poll() > 0) {
  }
  EXPECT_EQ(order, "12");
}

TEST(MainQueuePostTest, FromManyThreadsKeepsAllCallbacksAndEachThreadsOrder) {
  constexpr int threads = 4;
  constexpr int posts = 2000;
  MainQueue queue;
  std::vector<std::vector<int>> received(threads);
  int remaining = threads * posts;
  std::vector<std::thread> posters;
  posters.reserve(threads);
  for (std::size_t thread = 0; thread < threads; ++thread) {
    posters.emplace_back([&, thread] {
      for (int i = 0; i < posts; ++i) {
        queue.post([&, thread, i] {
          received[thread].push_back(i);
          if (--remaining == 0) queue.stop();
        });
      }
    });
  }
  EXPECT_EQ(queue.run(), static_cast<std::size_t>(threads * posts));
  for (auto& poster : posters) poster.join();
  std::vector<int> expected(posts);
  for (int i = 0; i < posts; ++i) expected[static_cast<std::size_t>(i)] = i;
  for (const auto& list : received) EXPECT_EQ(list, expected);
}

TEST(MainQueuePostTest, IsDroppedWithTheQueue) {
  boost::asio::io_context context;
  bool called = false;
  const auto captured = std::make_shared<int>();
  {
    MainQueue queue(context);
    queue.post([&called, captured] { called = true; });
  }
  EXPECT_EQ(captured.use_count(), 1);
  context.run();
  EXPECT_FALSE(called);
}

// run, poll, stop -----------------------------------------------------------------------------

TEST(MainQueueRunTest, RunsUntilStopAndCanRunAgain) {
  MainQueue queue;
  for (int round = 0; round < 2; ++round) {
    const auto timer = queue.after(1ms, [&] { queue.stop(); });
    EXPECT_EQ(queue.run(), 1U);
  }
}

TEST(MainQueueRunTest, StopsAfterTheCallbackThatStops) {
  MainQueue queue;
  std::string order;
  queue.post([&] {
    queue.stop();
    order += "a";
  });
  queue.post([&] { order += "b"; });
  EXPECT_EQ(queue.run(), 1U);
  EXPECT_EQ(order, "a");
  EXPECT_EQ(queue.poll(), 1U);
  EXPECT_EQ(order, "ab");
}

TEST(MainQueueRunTest, AnEarlierStopEndsOnlyTheNextRun) {
  MainQueue queue;
  bool called = false;
  queue.post([&] {
    called = true;
    queue.stop();
  });
  queue.stop();
  EXPECT_EQ(queue.run(), 0U);
  EXPECT_FALSE(called);
  EXPECT_EQ(queue.run(), 1U);
  EXPECT_TRUE(called);
}

TEST(MainQueueRunTest, IsStoppedFromAnotherThreadByAPost) {
  MainQueue queue;
  std::thread other([&] { queue.post([&] { queue.stop(); }); });
  EXPECT_EQ(queue.run(), 1U);
  other.join();
}

TEST(MainQueuePollTest, DoesNotWait) {
  MainQueue queue;
  const auto timer = queue.after(1h, [] { FAIL(); });
  EXPECT_EQ(queue.poll(), 0U);
  EXPECT_TRUE(timer.active());
}

TEST(MainQueuePollTest, ContinuesAfterAStop) {
  MainQueue queue;
  int calls = 0;
  queue.post([&] {
    ++calls;
    queue.stop();
  });
  queue.post([&] { ++calls; });
  EXPECT_EQ(queue.poll(), 2U);
  EXPECT_EQ(calls, 2);
}

// Exceptions ----------------------------------------------------------------------------------

TEST(MainQueueExceptionTest, LeavesRunAndTheQueueContinues) {
  MainQueue queue;
  std::string order;
  queue.post([] { throw std::runtime_error("first"); });
  queue.post([&] { order += "second"; });
  try {
    queue.run();
    FAIL() << "the exception did not come out";
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "first");
  }
  queue.post([&] { queue.stop(); });
  EXPECT_EQ(queue.run(), 2U);
  EXPECT_EQ(order, "second");
}

TEST(MainQueueExceptionTest, LeavesPollWithoutLosingDeferredCallbacks) {
  MainQueue queue;
  std::string order;
  queue.post([&] {
    queue.post([&] { order += "deferred"; });
    throw std::runtime_error("out");
  });
  EXPECT_THROW(queue.poll(), std::runtime_error);
  EXPECT_EQ(queue.poll(), 1U);
  EXPECT_EQ(order, "deferred");
}

TEST(MainQueueExceptionTest, OfATimerConsumesTheTimer) {
  MainQueue queue;
  const auto timer = queue.after(0ns, [] { throw std::runtime_error("timer"); });
  EXPECT_THROW(queue.run(), std::runtime_error);
  EXPECT_FALSE(timer.active());
  EXPECT_EQ(queue.poll(), 0U);
}

TEST(MainQueueExceptionTest, KeepsWatchesAndSignalHandlers) {
  const Pipe pipe;
  MainQueue queue;
  const Watch watch = queue.watch(pipe.reading(), Interest::read, [&] {
    pipe.take();
    throw std::runtime_error("watch");
  });
  const auto handler = queue.onSignal({SIGUSR1}, [](int) { throw std::logic_error("signal"); });
  for (int round = 0; round < 2; ++round) {
    pipe.put('a');
    EXPECT_THROW(queue.run(), std::runtime_error);
    static_cast<void>(std::raise(SIGUSR1));
    EXPECT_THROW(queue.run(), std::logic_error);
  }
}

TEST(MainQueueExceptionTest, AfterAStopDoesNotStopTheNextRun) {
  MainQueue queue;
  queue.post([&] {
    queue.stop();
    throw std::runtime_error("stopped and thrown");
  });
  EXPECT_THROW(queue.run(), std::runtime_error);
  queue.post([&] { queue.stop(); });
  EXPECT_EQ(queue.run(), 1U);
}

}  // namespace
