// SPDX-License-Identifier: MIT
// The three ways to run the main queue, as documented in its header.

#include <hosts/main_queue/main_queue.h>
#include <tests/hosts/main_queue/pipe.h>

#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <gtest/gtest.h>
#include <poll.h>

#include <csignal>
#include <string>
#include <thread>

namespace {

using namespace std::chrono_literals;
using Zephly::main_queue::Interest;
using Zephly::main_queue::MainQueue;
using Zephly::main_queue::Timer;

TEST(MainQueueThreeWaysTest, RunsAlone) {
  MainQueue queue;
  std::string order;
  auto quit = queue.onSignal({SIGINT, SIGTERM}, [&](int) {
    order += " quit";
    queue.stop();
  });
  auto tick = queue.after(1ms, [&] {
    order += "tick";
    EXPECT_EQ(std::raise(SIGINT), 0);
  });
  EXPECT_EQ(queue.run(), 2U);
  EXPECT_EQ(order, "tick quit");
}

TEST(MainQueueThreeWaysTest, RunsOnTheApplicationsContext) {
  boost::asio::io_context context;
  MainQueue queue(context);
  EXPECT_EQ(&queue.context(), &context);
  std::string order;
  boost::asio::post(context, [&] { order += "application "; });
  queue.post([&] { order += "queue "; });
  auto tick = queue.after(1ms, [&] { order += "tick"; });
  context.run();  // returns when nothing is left to wait for
  EXPECT_EQ(order, "application queue tick");
}

TEST(MainQueueThreeWaysTest, RunsTheApplicationsContext) {
  boost::asio::io_context context;
  context.run();  // without work it stops
  ASSERT_TRUE(context.stopped());
  MainQueue queue(context);
  queue.post([&] { queue.stop(); });
  EXPECT_EQ(queue.run(), 1U);
  EXPECT_FALSE(context.stopped());
}

// Inside another event loop -----------------------------------------------------------------------

class MainQueueInsideAnotherLoopTest : public testing::Test {
 protected:
  // Waits up to a minute. Returns true as soon as the descriptor is readable.
  bool wanted(int milliseconds = 60000) {
    pollfd mine{.fd = queue.descriptor(), .events = POLLIN, .revents = 0};
    return ::poll(&mine, 1, milliseconds) == 1;
  }
  bool wantedNow() { return wanted(0); }
  // Handles the wake-up from the creation of the descriptor.
  void settle() {
    while (wantedNow()) queue.poll();
  }

  MainQueue queue;
};

TEST_F(MainQueueInsideAnotherLoopTest, RunsEverythingThroughOneDescriptor) {
  const Pipe pipe;
  bool done = false;
  std::string order;
  auto tick = queue.after(1ms, [&] {
    order += "tick ";
    pipe.put('x');
  });
  auto watch = queue.watch(pipe.reading(), Interest::read, [&] {
    pipe.take();
    order += "read ";
    queue.post([&] {
      order += "done";
      done = true;
    });
  });

  pollfd mine{.fd = queue.descriptor(), .events = POLLIN, .revents = 0};
  while (!done) {
    ASSERT_EQ(::poll(&mine, 1, 60000), 1);
    queue.poll();
  }
  EXPECT_EQ(order, "tick read done");
}

TEST_F(MainQueueInsideAnotherLoopTest, IsTheSameDescriptorAtEachCall) {
  EXPECT_EQ(queue.descriptor(), queue.descriptor());
}

TEST_F(MainQueueInsideAnotherLoopTest, IsNotReadableWhenIdle) {
  settle();
  EXPECT_FALSE(wantedNow());
  const auto later = queue.after(1h, [] {});
  EXPECT_FALSE(wantedNow());
}

TEST_F(MainQueueInsideAnotherLoopTest, IsReadableAfterAnEarlierPost) {
  bool called = false;
  queue.post([&] { called = true; });
  ASSERT_TRUE(wanted());
  queue.poll();
  EXPECT_TRUE(called);
  EXPECT_FALSE(wantedNow());
}

TEST_F(MainQueueInsideAnotherLoopTest, IsWokenByAPostOfAnotherThread) {
  settle();
  bool called = false;
  std::thread other([&] { queue.post([&] { called = true; }); });
  ASSERT_TRUE(wanted());
  EXPECT_EQ(queue.poll(), 1U);
  other.join();
  EXPECT_TRUE(called);
}

TEST_F(MainQueueInsideAnotherLoopTest, LosesNoPostWhilePolling) {
  constexpr int posts = 20000;
  int received = 0;
  std::thread other([&] {
    for (int i = 0; i < posts; ++i) queue.post([&] { ++received; });
  });
  while (received < posts) {
    if (!wanted()) break;
    queue.poll();
  }
  other.join();
  EXPECT_EQ(received, posts);
}

TEST_F(MainQueueInsideAnotherLoopTest, IsWokenByTimersSetBeforeOrAfter) {
  int calls = 0;
  const auto before = queue.after(1ms, [&] { ++calls; });
  settle();
  const auto after = queue.after(2ms, [&] { ++calls; });
  while (calls < 2) {
    ASSERT_TRUE(wanted());
    queue.poll();
  }
  settle();
  EXPECT_FALSE(wantedNow());
}

TEST_F(MainQueueInsideAnotherLoopTest, FollowsTheEarliestTimer) {
  settle();
  std::string order;
  const auto late = queue.after(1h, [] { FAIL(); });
  auto cancelled = queue.after(1ms, [] { FAIL(); });
  const auto early = queue.after(3ms, [&] { order += "early"; });
  cancelled.cancel();
  while (order.empty()) {
    ASSERT_TRUE(wanted());
    queue.poll();
  }
  EXPECT_EQ(order, "early");
  settle();
  EXPECT_FALSE(wantedNow());
}

TEST_F(MainQueueInsideAnotherLoopTest, IsSilentAfterTheLastTimerIsCancelled) {
  settle();
  auto timer = queue.after(0ns, [] { FAIL(); });
  ASSERT_TRUE(wanted());
  timer.cancel();
  queue.poll();
  EXPECT_FALSE(wantedNow());
}

TEST_F(MainQueueInsideAnotherLoopTest, StaysReadableWhileAWatchedDescriptorIsReady) {
  const Pipe pipe;
  int calls = 0;
  const auto before = queue.watch(pipe.reading(), Interest::read, [&] { ++calls; });
  settle();
  pipe.put('x');
  for (int expected = 1; expected <= 3; ++expected) {
    ASSERT_TRUE(wantedNow());
    EXPECT_EQ(queue.poll(), 1U);
    EXPECT_EQ(calls, expected);
  }
  pipe.take();
  EXPECT_FALSE(wantedNow());
}

TEST_F(MainQueueInsideAnotherLoopTest, FollowsNewWatchesAndForgetsEndedOnes) {
  settle();
  const Pipe pipe;
  pipe.put('x');
  auto watch = queue.watch(pipe.reading(), Interest::read, [] {});
  EXPECT_TRUE(wantedNow());
  EXPECT_EQ(queue.poll(), 1U);
  watch.cancel();
  settle();
  EXPECT_FALSE(wantedNow());
}

TEST_F(MainQueueInsideAnotherLoopTest, StaysReadableAfterAPollThatThrows) {
  settle();
  queue.post([] { throw std::runtime_error("first"); });
  bool called = false;
  queue.post([&] { called = true; });
  ASSERT_TRUE(wantedNow());
  EXPECT_THROW(queue.poll(), std::runtime_error);
  EXPECT_TRUE(wantedNow());
  queue.poll();
  EXPECT_TRUE(called);
}

}  // namespace
