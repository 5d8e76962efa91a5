#include <platforms/main_queue/main_queue.h>
#include <tests/main_queue/pipe.h>

#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/time.h>

#include <csignal>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;
using Zephly::main_queue::Interest;
using Zephly::main_queue::MainQueue;
using Zephly::main_queue::Timer;
using Zephly::main_queue::Watch;
using Clock = std::chrono::steady_clock;

// Posts ---------------------------------------------------------------------------------------

TEST(MainQueuePost, RunsInOrderAndNotInsideThePost) {
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

TEST(MainQueuePost, FromACallbackWaitsForTheNextPoll) {
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

TEST(MainQueuePost, FromACallbackKeepsItsPlaceBeforeALaterOneOfAnotherThread) {
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

TEST(MainQueuePost, FromManyThreadsLosesNothingAndKeepsEachThreadsOrder) {
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

TEST(MainQueuePost, IsDroppedWithTheQueue) {
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

TEST(MainQueueRun, WaitsUntilStopAndCanRunAgain) {
  MainQueue queue;
  for (int round = 0; round < 2; ++round) {
    const auto timer = queue.after(1ms, [&] { queue.stop(); });
    EXPECT_EQ(queue.run(), 1U);
  }
}

TEST(MainQueueRun, StopsAfterTheCallbackThatStops) {
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

TEST(MainQueueRun, AStopBeforeEndsTheNextRunOnly) {
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

TEST(MainQueueRun, IsStoppedFromAnotherThreadByAPost) {
  MainQueue queue;
  std::thread other([&] { queue.post([&] { queue.stop(); }); });
  EXPECT_EQ(queue.run(), 1U);
  other.join();
}

TEST(MainQueuePoll, DoesNotWait) {
  MainQueue queue;
  const auto timer = queue.after(1h, [] { FAIL(); });
  EXPECT_EQ(queue.poll(), 0U);
  EXPECT_TRUE(timer.active());
}

TEST(MainQueuePoll, GoesOnAfterAStop) {
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

// Timers --------------------------------------------------------------------------------------

TEST(MainQueueTimer, ComesOnceAndNotBeforeItsTime) {
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

TEST(MainQueueTimer, ComeInTheOrderOfTheirTimes) {
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

TEST(MainQueueTimer, ZeroAndNegativeDelaysDoNotCallFromInside) {
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

TEST(MainQueueTimer, TheLongestDelayIsFarAway) {
  MainQueue queue;
  const auto timer = queue.after(std::chrono::nanoseconds::max(), [] { FAIL(); });
  EXPECT_EQ(queue.poll(), 0U);
  EXPECT_TRUE(timer.active());
}

TEST(MainQueueTimer, DestroyingTheHandleCancels) {
  MainQueue queue;
  const auto captured = std::make_shared<int>();
  {
    const auto timer = queue.after(0ns, [captured] { FAIL(); });
  }
  EXPECT_EQ(captured.use_count(), 1) << "what the callback holds goes with the handle";
  const auto end = queue.after(2ms, [&] { queue.stop(); });
  queue.run();
}

TEST(MainQueueTimer, CancelTwiceAndOnAnEmptyHandleDoesNothing) {
  MainQueue queue;
  Timer timer = queue.after(0ns, [] { FAIL(); });
  timer.cancel();
  timer.cancel();
  Timer().cancel();
  EXPECT_FALSE(timer.active());
  EXPECT_FALSE(Timer().active());
}

TEST(MainQueueTimer, IsCancelledByACallbackThatIsDueInTheSameTurn) {
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

TEST(MainQueueTimer, CanReplaceItselfFromItsOwnCallback) {
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

TEST(MainQueueTimer, MovedHandlesKeepTheTimer) {
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

TEST(MainQueueTimer, AHandleMayOutliveTheQueue) {
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

TEST(MainQueueTimer, GoesWithTheQueueOnTheApplicationsContext) {
  boost::asio::io_context context;
  Timer timer;
  {
    MainQueue queue(context);
    timer = queue.after(1h, [] { FAIL(); });
  }
  context.run();  // returns: nothing keeps it busy
  EXPECT_FALSE(timer.active());
}

// Watches -------------------------------------------------------------------------------------

TEST(MainQueueWatch, CallsAsLongAsThereIsSomethingToRead) {
  const Pipe pipe;
  MainQueue queue;
  std::string read;
  const Watch watch = queue.watch(pipe.reading(), Interest::read, [&] { read += pipe.take(); });
  EXPECT_EQ(queue.poll(), 0U);
  pipe.put('a');
  pipe.put('b');
  EXPECT_EQ(queue.poll(), 1U);
  EXPECT_EQ(queue.poll(), 1U);
  EXPECT_EQ(queue.poll(), 0U);
  EXPECT_EQ(read, "ab");
}

TEST(MainQueueWatch, ACallbackThatReadsNothingIsCalledAgainButEndsThePoll) {
  const Pipe pipe;
  MainQueue queue;
  const Watch watch = queue.watch(pipe.reading(), Interest::read, [] {});
  pipe.put('a');
  EXPECT_EQ(queue.poll(), 1U);
  EXPECT_EQ(queue.poll(), 1U);
}

TEST(MainQueueWatch, WorksInRunToo) {
  const Pipe pipe;
  MainQueue queue;
  std::string read;
  const Watch watch = queue.watch(pipe.reading(), Interest::read, [&] {
    read += pipe.take();
    if (read.size() == 3) queue.stop();
  });
  for (const char byte : {'x', 'y', 'z'}) pipe.put(byte);
  EXPECT_EQ(queue.run(), 3U);
  EXPECT_EQ(read, "xyz");
}

TEST(MainQueueWatch, TheSameDescriptorTwiceIsNotCalledForWhatTheOtherHasRead) {
  const Pipe pipe;  // blocking: a call too many would never return
  MainQueue queue;
  std::string read;
  const Watch first = queue.watch(pipe.reading(), Interest::read, [&] { read += pipe.take(); });
  const Watch second = queue.watch(pipe.reading(), Interest::read, [&] { read += pipe.take(); });
  pipe.put('a');
  EXPECT_EQ(queue.poll(), 1U);
  EXPECT_EQ(queue.poll(), 0U);
  EXPECT_EQ(read, "a");
}

TEST(MainQueueWatch, WaitsForWriting) {
  const Pipe pipe;
  MainQueue queue;
  int calls = 0;
  const Watch watch = queue.watch(pipe.writing(), Interest::write, [&] { ++calls; });
  const Watch both = queue.watch(pipe.writing(), Interest::readOrWrite, [&] { ++calls; });
  EXPECT_EQ(queue.poll(), 2U);
  EXPECT_EQ(calls, 2);
}

TEST(MainQueueWatch, TellsAHangUp) {
  auto pipe = std::make_unique<Pipe>();
  const int reading = ::dup(pipe->reading());
  const Zephly::main_queue::FileDescriptor owner(reading);
  MainQueue queue;
  int calls = 0;
  const Watch watch = queue.watch(reading, Interest::read, [&] { ++calls; });
  EXPECT_EQ(queue.poll(), 0U);
  pipe.reset();
  EXPECT_EQ(queue.poll(), 1U);
}

TEST(MainQueueWatch, LeavesTheDescriptorBlocking) {
  const Pipe pipe;
  MainQueue queue;
  const Watch watch = queue.watch(pipe.reading(), Interest::read, [&] { pipe.take(); });
  pipe.put('a');
  queue.poll();
  EXPECT_EQ(::fcntl(pipe.reading(), F_GETFL) & O_NONBLOCK, 0);
}

TEST(MainQueueWatch, EndsWithItsHandleAlsoFromItsOwnCallback) {
  const Pipe pipe;
  MainQueue queue;
  int calls = 0;
  Watch watch;
  const auto captured = std::make_shared<int>();
  watch = queue.watch(pipe.reading(), Interest::read, [&, captured] {
    watch.cancel();
    ++calls;
  });
  pipe.put('a');
  EXPECT_EQ(queue.poll(), 1U);
  EXPECT_EQ(queue.poll(), 0U);
  EXPECT_EQ(calls, 1);
  EXPECT_FALSE(watch.active());
  EXPECT_EQ(captured.use_count(), 1);
}

TEST(MainQueueWatch, WhatCannotBeWatchedIsAnError) {
  MainQueue queue;
  EXPECT_THROW((void)queue.watch(-1, Interest::read, [] {}), std::system_error);
  const Zephly::main_queue::FileDescriptor file(::open("/proc/self/exe", O_RDONLY | O_CLOEXEC));
  ASSERT_GE(file.get(), 0);
  EXPECT_THROW((void)queue.watch(file.get(), Interest::read, [] {}), std::system_error);
  EXPECT_EQ(queue.poll(), 0U);
}

// Signals -------------------------------------------------------------------------------------

TEST(MainQueueSignal, IsCalledOnTheQueueWithTheNumber) {
  MainQueue queue;
  std::vector<int> signals;
  const auto handler = queue.onSignal({SIGUSR1, SIGUSR2}, [&](int signal) {
    signals.push_back(signal);
    if (signals.size() == 3) queue.stop();
  });
  std::raise(SIGUSR1);
  EXPECT_TRUE(signals.empty());
  const auto second = queue.after(1ms, [] { std::raise(SIGUSR2); });
  const auto third = queue.after(5ms, [] { std::raise(SIGUSR1); });
  queue.run();
  EXPECT_EQ(signals, (std::vector<int>{SIGUSR1, SIGUSR2, SIGUSR1}));
}

TEST(MainQueueSignal, InterruptionsDoNotDisturbRun) {
  MainQueue queue;
  int alarms = 0;
  const auto handler = queue.onSignal({SIGALRM}, [&](int) {
    if (++alarms == 20) queue.stop();
  });
  const itimerval everyMillisecond{{0, 1000}, {0, 1000}};
  const itimerval never{};
  ::setitimer(ITIMER_REAL, &everyMillisecond, nullptr);
  EXPECT_NO_THROW(queue.run());
  ::setitimer(ITIMER_REAL, &never, nullptr);
  EXPECT_EQ(alarms, 20);
}

TEST(MainQueueSignalDeathTest, CancelledTheSignalDoesItsDefaultAgain) {
  EXPECT_EXIT(
      {
        MainQueue queue;
        auto handler = queue.onSignal({SIGTERM}, [](int) {});
        std::raise(SIGTERM);
        queue.poll();
        handler.cancel();
        std::raise(SIGTERM);
        std::exit(0);
      },
      testing::KilledBySignal(SIGTERM), "");
}

TEST(MainQueueSignal, ASignalThatCannotBeCaughtIsAnError) {
  MainQueue queue;
  EXPECT_THROW((void)queue.onSignal({SIGKILL}, [](int) {}), std::system_error);
}

// Exceptions ----------------------------------------------------------------------------------

TEST(MainQueueException, LeavesRunAndTheQueueGoesOn) {
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

TEST(MainQueueException, LeavesPollAndNothingDeferredIsLost) {
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

TEST(MainQueueException, OfATimerUsesTheTimerUp) {
  MainQueue queue;
  const auto timer = queue.after(0ns, [] { throw std::runtime_error("timer"); });
  EXPECT_THROW(queue.run(), std::runtime_error);
  EXPECT_FALSE(timer.active());
  EXPECT_EQ(queue.poll(), 0U);
}

TEST(MainQueueException, LeavesAWatchAndASignalHandlerInPlace) {
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
    std::raise(SIGUSR1);
    EXPECT_THROW(queue.run(), std::logic_error);
  }
}

TEST(MainQueueException, AfterAStopDoesNotStopTheNextRun) {
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
