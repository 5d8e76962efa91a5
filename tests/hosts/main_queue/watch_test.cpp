// SPDX-License-Identifier: MIT
#include <hosts/main_queue/main_queue.h>
#include <tests/hosts/main_queue/pipe.h>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <system_error>

namespace {

using Zephly::main_queue::Interest;
using Zephly::main_queue::MainQueue;
using Zephly::main_queue::Watch;

TEST(MainQueueWatchTest, CallsWhileTheDescriptorIsReadable) {
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

TEST(MainQueueWatchTest, ACallbackThatReadsNothingIsRepeatedInTheNextPoll) {
  const Pipe pipe;
  MainQueue queue;
  const Watch watch = queue.watch(pipe.reading(), Interest::read, [] {});
  pipe.put('a');
  EXPECT_EQ(queue.poll(), 1U);
  EXPECT_EQ(queue.poll(), 1U);
}

TEST(MainQueueWatchTest, WorksInRunToo) {
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

TEST(MainQueueWatchTest, OfTwoWatchesOfOneDescriptorTheSecondIsNotCalledForReadData) {
  const Pipe pipe;  // blocking, so a read too many would never return
  MainQueue queue;
  std::string read;
  const Watch first = queue.watch(pipe.reading(), Interest::read, [&] { read += pipe.take(); });
  const Watch second = queue.watch(pipe.reading(), Interest::read, [&] { read += pipe.take(); });
  pipe.put('a');
  EXPECT_EQ(queue.poll(), 1U);
  EXPECT_EQ(queue.poll(), 0U);
  EXPECT_EQ(read, "a");
}

TEST(MainQueueWatchTest, WaitsForWriting) {
  const Pipe pipe;
  MainQueue queue;
  int calls = 0;
  const Watch watch = queue.watch(pipe.writing(), Interest::write, [&] { ++calls; });
  const Watch both = queue.watch(pipe.writing(), Interest::readOrWrite, [&] { ++calls; });
  EXPECT_EQ(queue.poll(), 2U);
  EXPECT_EQ(calls, 2);
}

TEST(MainQueueWatchTest, ReportsAHangUp) {
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

TEST(MainQueueWatchTest, DoesNotMakeTheDescriptorNonBlocking) {
  const Pipe pipe;
  MainQueue queue;
  const Watch watch = queue.watch(pipe.reading(), Interest::read, [&] { pipe.take(); });
  pipe.put('a');
  queue.poll();
  EXPECT_EQ(::fcntl(pipe.reading(), F_GETFL) & O_NONBLOCK, 0);
}

TEST(MainQueueWatchTest, EndsWithItsHandleAlsoDuringItsCallback) {
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

TEST(MainQueueWatchTest, RefusesDescriptorsThatCannotBeWatched) {
  MainQueue queue;
  EXPECT_THROW((void)queue.watch(-1, Interest::read, [] {}), std::system_error);
  const Zephly::main_queue::FileDescriptor file(::open("/proc/self/exe", O_RDONLY | O_CLOEXEC));
  ASSERT_GE(file.get(), 0);
  EXPECT_THROW((void)queue.watch(file.get(), Interest::read, [] {}), std::system_error);
  EXPECT_EQ(queue.poll(), 0U);
}

}  // namespace
