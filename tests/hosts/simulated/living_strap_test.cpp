#include <hosts/simulated/living_strap.h>

#include <tests/support/boundary_recorder.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>

namespace {

using namespace std::chrono_literals;
using boundary::Session;
using Zephly::main_queue::MainQueue;
using Zephly::simulated::LivingStrap;
namespace simulator = Zephly::simulator;

// Without a sleep: polls until the strap has lived so long, which at this speed takes milliseconds.
void liveFor(MainQueue& queue, const LivingStrap& living, simulator::StrapTime time) {
  while (living.device().strapTime() < time) queue.poll();
}

TEST(LivingStrap, IsFoundAndSubscribedTo) {
  MainQueue queue;
  const LivingStrap living(queue, {}, 2000);
  const Session session;
  liveFor(queue, living, 10s);
  EXPECT_TRUE(living.device().listenerWasReady());
  EXPECT_GT(living.device().counts(simulator::Stream::ecg).samplesSent, 9U * 500);
}

TEST(LivingStrap, LosesItsLinkAsPlanned) {
  MainQueue queue;
  const LivingStrap living(queue, {}, 2000);
  const Session session;
  liveFor(queue, living, 95s);  // three times the plan of half a minute
  const auto& log = session.recorder->log;
  EXPECT_EQ(std::count(log.begin(), log.end(), "connected"), 4);
}

TEST(LivingStrap, RefusesAnImpossibleSpeed) {
  MainQueue queue;
  EXPECT_THROW(LivingStrap(queue, {}, 0), std::invalid_argument);
}

}  // namespace
