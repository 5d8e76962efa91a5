// SPDX-License-Identifier: MIT
#include <hosts/main_queue/main_queue.h>

#include <gtest/gtest.h>
#include <sys/time.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <system_error>
#include <vector>

namespace {

using namespace std::chrono_literals;
using Zephly::main_queue::MainQueue;

TEST(MainQueueSignalTest, IsCalledOnTheQueueWithTheNumber) {
  MainQueue queue;
  std::vector<int> signals;
  const auto handler = queue.onSignal({SIGUSR1, SIGUSR2}, [&](int signal) {
    signals.push_back(signal);
    if (signals.size() == 3) queue.stop();
  });
  static_cast<void>(std::raise(SIGUSR1));
  EXPECT_TRUE(signals.empty());
  const auto second = queue.after(1ms, [] { static_cast<void>(std::raise(SIGUSR2)); });
  const auto third = queue.after(5ms, [] { static_cast<void>(std::raise(SIGUSR1)); });
  queue.run();
  EXPECT_EQ(signals, (std::vector<int>{SIGUSR1, SIGUSR2, SIGUSR1}));
}

TEST(MainQueueSignalTest, InterruptionsDoNotDisturbRun) {
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

TEST(MainQueueSignalDeathTest, RestoresTheDefaultActionWhenCancelled) {
  EXPECT_EXIT(
      {
        MainQueue queue;
        auto handler = queue.onSignal({SIGTERM}, [](int) {});
        static_cast<void>(std::raise(SIGTERM));
        queue.poll();
        handler.cancel();
        static_cast<void>(std::raise(SIGTERM));
        std::exit(0);
      },
      testing::KilledBySignal(SIGTERM), "");
}

TEST(MainQueueSignalTest, RefusesASignalThatCannotBeCaught) {
  MainQueue queue;
  EXPECT_THROW((void)queue.onSignal({SIGKILL}, [](int) {}), std::system_error);
}

}  // namespace
