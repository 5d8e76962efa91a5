// SPDX-License-Identifier: MIT
// A lack of memory while the queue runs leaves run() as std::bad_alloc, and nothing is lost by it.

#include <hosts/main_queue/file_descriptor.h>
#include <hosts/main_queue/main_queue.h>
#include <tests/support/allocation_count.h>

#include <gtest/gtest.h>
#include <sys/eventfd.h>

#include <chrono>
#include <csignal>
#include <new>

using Zephly::main_queue::FileDescriptor;
using Zephly::main_queue::Interest;
using Zephly::main_queue::MainQueue;

namespace {

// Far more than a run takes. Without it, a queue that has lost a wait runs until the time limit of
// the test.
constexpr std::chrono::seconds patience{10};

// Runs it, again after each failure, until both calls were made; returns the number of failures.
int runUntilTwo(MainQueue& queue, const int& calls) {
  int failures = 0;
  bool lost = false;
  const auto limit = queue.after(patience, [&] {
    lost = true;
    queue.stop();
  });
  while (calls < 2 && !lost) {
    try {
      queue.run();
    } catch (const std::bad_alloc&) {
      ++failures;
    }
  }
  EXPECT_FALSE(lost);
  return failures;
}

// The callback reads one of two events, and from its first call on the allocation `number` fails.
int failuresOfWatch(std::size_t number, bool throws) {
  const FileDescriptor event(::eventfd(2, EFD_SEMAPHORE | EFD_NONBLOCK));
  MainQueue queue;
  int calls = 0;
  const auto watch = queue.watch(event.get(), Interest::read, [&] {
    eventfd_t count = 0;
    ::eventfd_read(event.get(), &count);
    if (++calls == 2) queue.stop();
    if (calls == 1) failAllocation(number);
    if (calls == 1 && throws) throw std::bad_alloc();
  });
  const int failures = runUntilTwo(queue, calls);
  failAllocation(0);
  return failures;
}

}  // namespace

TEST(MainQueueMemoryTest, AWatchStaysInPlace) {
  std::size_t number = 1;
  while (failuresOfWatch(number, false) > 0 && !HasFailure()) ++number;
  EXPECT_GT(number, 1) << "no allocation has failed";
}

TEST(MainQueueMemoryTest, AWatchStaysInPlaceWhenItsCallbackThrowsToo) {
  for (std::size_t number = 1; number < 5 && !HasFailure(); ++number) {
    EXPECT_GE(failuresOfWatch(number, true), 1);
  }
}

TEST(MainQueueMemoryTest, ASignalHandlerStaysInPlace) {
  bool failed = true;
  for (std::size_t number = 1; failed; ++number) {
    MainQueue queue;
    const auto limit = queue.after(patience, [&] { queue.stop(); });
    int calls = 0;
    const auto handler = queue.onSignal({SIGUSR1}, [&](int) {
      failAllocation(++calls == 1 ? number : 0);
      queue.stop();
    });
    static_cast<void>(std::raise(SIGUSR1));
    failed = false;
    try {
      queue.run();
    } catch (const std::bad_alloc&) {
      failed = true;
    }
    failAllocation(0);
    EXPECT_EQ(calls, 1);
    static_cast<void>(std::raise(SIGUSR1));
    queue.run();
    ASSERT_EQ(calls, 2);
  }
}
