// SPDX-License-Identifier: MIT
#include <hosts/simulated/simulated_strap.h>

#include <tests/support/boundary_recorder.h>
#include <zephly/protocol/streams.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>

namespace {

using namespace std::chrono_literals;
using boundary::Session;
using Zephly::main_queue::MainQueue;
using Zephly::simulated::SimulatedStrap;
namespace simulator = Zephly::simulator;

// Polls the queue, without a sleep, until the strap's clock shows `time`. At this speed it takes
// milliseconds.
void runFor(MainQueue& queue, const SimulatedStrap& strap, Zephly::StrapTime time) {
  while (strap.device().strapTime() < time) queue.poll();
}

TEST(SimulatedStrapTest, IsFoundAndSubscribedTo) {
  MainQueue queue;
  const SimulatedStrap strap(queue, {}, 2000);
  const Session session;
  runFor(queue, strap, 10s);
  EXPECT_TRUE(strap.device().wasFullySubscribed());
  EXPECT_GT(strap.device().counts(Zephly::Stream::ecg).samplesSent, 9U * 500);
}

TEST(SimulatedStrapTest, LosesItsLinkAsPlanned) {
  MainQueue queue;
  const SimulatedStrap strap(queue, {}, 2000);
  const Session session;
  runFor(queue, strap, 95s);  // three times the plan of half a minute
  const auto& log = session.recorder->log;
  EXPECT_EQ(std::count(log.begin(), log.end(), "connected"), 4);
}

TEST(SimulatedStrapTest, RefusesAnImpossibleSpeed) {
  MainQueue queue;
  EXPECT_THROW(SimulatedStrap(queue, {}, 0), std::invalid_argument);
}

}  // namespace
