// SPDX-License-Identifier: MIT
#include <hosts/main_queue/doorbell.h>

#include <tests/hosts/main_queue/pipe.h>

#include <gtest/gtest.h>
#include <poll.h>

#include <chrono>
#include <system_error>

namespace {

using namespace std::chrono_literals;
using Zephly::main_queue::Doorbell;
using Clock = std::chrono::steady_clock;

bool readable(int descriptor, int milliseconds = 0) {
  pollfd entry{descriptor, POLLIN, 0};
  return ::poll(&entry, 1, milliseconds) == 1;
}

TEST(DoorbellTest, IsInitiallySignalled) {
  const Doorbell bell;
  EXPECT_TRUE(readable(bell.descriptor()));
}

TEST(DoorbellTest, StaysSignalledUntilSilenced) {
  Doorbell bell;
  EXPECT_TRUE(readable(bell.descriptor()));
  EXPECT_TRUE(readable(bell.descriptor()));
  bell.silence();
  EXPECT_FALSE(readable(bell.descriptor()));
}

TEST(DoorbellTest, CanBeSignalledAgainAfterSilencing) {
  Doorbell bell;
  for (int i = 0; i < 3; ++i) {
    bell.silence();
    EXPECT_FALSE(readable(bell.descriptor()));
    bell.ring();
    bell.ring();
    EXPECT_TRUE(readable(bell.descriptor()));
  }
}

TEST(DoorbellTest, SilencingTwiceIsHarmless) {
  Doorbell bell;
  bell.silence();
  bell.silence();
  bell.ring();
  EXPECT_TRUE(readable(bell.descriptor()));
}

TEST(DoorbellTest, IsReadableFromItsDeadline) {
  Doorbell bell;
  bell.silence();
  bell.setDeadline(Clock::now() + 1h);
  EXPECT_FALSE(readable(bell.descriptor()));
  bell.setDeadline(Clock::now() + 1ms);
  EXPECT_TRUE(readable(bell.descriptor(), 60000));
  EXPECT_TRUE(readable(bell.descriptor()));
}

TEST(DoorbellTest, IsReadableImmediatelyAfterAPastDeadline) {
  Doorbell bell;
  bell.silence();
  bell.setDeadline(Clock::time_point{});
  EXPECT_TRUE(readable(bell.descriptor(), 60000));
}

TEST(DoorbellTest, IsSilentAgainWithoutADeadline) {
  Doorbell bell;
  bell.silence();
  bell.setDeadline(Clock::time_point{});
  ASSERT_TRUE(readable(bell.descriptor(), 60000));
  bell.setDeadline(std::nullopt);
  EXPECT_FALSE(readable(bell.descriptor()));
}

TEST(DoorbellTest, AcceptsTheLatestPossibleDeadline) {
  Doorbell bell;
  bell.silence();
  bell.setDeadline(Clock::time_point::max());
  EXPECT_FALSE(readable(bell.descriptor()));
}

TEST(DoorbellTest, FollowsAWatchedDescriptorLevelTriggered) {
  const Pipe pipe;
  Doorbell bell;
  bell.silence();
  bell.watch(pipe.reading());
  EXPECT_FALSE(readable(bell.descriptor()));
  pipe.put('x');
  EXPECT_TRUE(readable(bell.descriptor()));
  EXPECT_TRUE(readable(bell.descriptor()));
  pipe.take();
  EXPECT_FALSE(readable(bell.descriptor()));
}

TEST(DoorbellTest, RefusesToWatchAClosedDescriptor) {
  Doorbell bell;
  EXPECT_THROW(bell.watch(-1), std::system_error);
}

}  // namespace
