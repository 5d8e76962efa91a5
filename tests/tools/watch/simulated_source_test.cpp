// SPDX-License-Identifier: MIT
#include <tools/watch/simulated_source.h>

#include <hosts/foundation/observation.h>
#include <tests/support/turn_until.h>
#include <tools/watch/receiver.h>
#include <zephly/protocol/streams.h>
#include <zephly/session/zephly.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

namespace Zephly::watch {
namespace {

using namespace std::chrono_literals;

// One session from start to end at maximum speed.
Summary watch(SimulatedOptions options) {
  main_queue::MainQueue queue;
  SessionModel model;
  options.speed = 1e6;
  SimulatedSource source(queue, std::move(options), [&] { queue.stop(); });
  const auto receiver = std::make_shared<Receiver>([&] { return source.now(); },
                                                   [&](const Event& event) { model.take(event); });
  const hosts::Observation observation(*receiver);
  const auto session = ::Zephly::Zephly::init(receiver);
  session->startWorkoutDetection(receiver);
  source.start();
  queue.run();
  return summarize(source.finish(), model);
}

TEST(SimulatedSourceTest, EndsAtTheDurationWithNothingLost) {
  const Summary summary = watch({.seed = 3, .duration = 5s});
  EXPECT_EQ(summary.duration, 5s);
  EXPECT_FALSE(summary.anythingLost());
  EXPECT_GT(summary.streams.at(static_cast<std::size_t>(Stream::ecg)).delivered, 2000U);
  EXPECT_EQ(summary.connections, 1U);
}

// On a slow machine one turn runs far beyond the end.
TEST(SimulatedSourceTest, ItsTimeStopsAtTheEnd) {
  main_queue::MainQueue queue;
  bool ended = false;
  SimulatedSource source(queue, {.speed = 1e6, .duration = 2s}, [&] { ended = true; });
  source.start();
  ASSERT_TRUE(turnUntil(queue, [&] { return ended; }));
  EXPECT_EQ(source.now(), 2s);
  EXPECT_EQ(source.finish().duration, 2s);
  EXPECT_EQ(source.now(), 2s);
}

TEST(SimulatedSourceTest, TheStrapLosesItsLinkAsPlanned) {
  const auto loss = simulator::TrainingPlan::standard().nextLinkLoss({});
  ASSERT_TRUE(loss);
  EXPECT_EQ(watch({.duration = loss->time}).disconnections, 0U);
  const Summary after = watch({.duration = loss->time + loss->absence + 1s});
  EXPECT_EQ(after.disconnections, 1U);
  EXPECT_EQ(after.reconnections, 1U);
  EXPECT_FALSE(after.anythingLost());
}

TEST(SimulatedSourceTest, LinkLossesRepeatWithEachCycle) {
  const auto cycle = simulator::TrainingPlan::standard().cycle;
  ASSERT_TRUE(cycle);
  const Summary summary = watch({.duration = *cycle * 3});
  EXPECT_EQ(summary.disconnections, 3U);
  EXPECT_EQ(summary.repetitionsDone, summary.repetitionsCounted);
  EXPECT_FALSE(summary.anythingLost());
}

TEST(SimulatedSourceTest, EndsWithTheRecording) {
  std::string text = "ECG\n";
  for (int row = 0; row < 50; ++row) text += std::to_string(row % 5) + "\n";
  const Summary summary = watch({.recording = std::make_shared<const simulator::Recording>(
                                     simulator::Recording::parse(text, "test", 50))});
  const StreamSummary& ecg = summary.streams.at(static_cast<std::size_t>(Stream::ecg));
  ASSERT_TRUE(ecg.strap && ecg.strap->recording);
  EXPECT_EQ(ecg.strap->recording->rows, 50U);
  EXPECT_EQ(ecg.strap->recording->samples, 500U);
  EXPECT_EQ(ecg.delivered, 500U + ecg.strap->recording->filled);
  EXPECT_EQ(summary.disconnections, 0U);
}

}  // namespace
}  // namespace Zephly::watch
