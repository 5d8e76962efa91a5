// SPDX-License-Identifier: MIT
// Ten seconds of a session in which every allocation fails once. Each callback of the host is
// repeated, with its first, second ... allocation failing, until it passes; in the end the
// application must have received exactly the calls that it receives when memory never runs out. So
// a failed callback leaves the session in the state before the callback.

#include <hosts/foundation/data.h>
#include <simulator/strap.h>
#include <tests/support/every_call.h>
#include <tests/support/fake_processor_clock.h>
#include <tests/support/session_test_access.h>
#include <tests/support/strap_host.h>
#include <tests/torture/out_of_memory.h>
#include <zephly/session/zephly.h>

#include <zephly/motion/exercise.h>
#include <zephly/protocol/streams.h>
#include <bench/null_buffer.h>
#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace torture {
namespace {

using namespace std::chrono_literals;
using Zephly::hosts::Data;
namespace simulator = Zephly::simulator;

using recorded::Call;

// Records calls without allocating.
class Listener : public recorded::EveryCall {
 public:
  Listener() { calls.reserve(20000); }

  std::vector<Call> calls;

 private:
  void called(const Call& call) override { calls.push_back(call); }
};

using Step = std::function<void(fake::StrapHost&)>;

void addConnection(std::vector<Step>& steps) {
  steps.emplace_back([](fake::StrapHost& host) { host.connect(); });
  steps.emplace_back([](fake::StrapHost& host) { host.discoverServices(); });
  steps.emplace_back([](fake::StrapHost& host) { host.discoverCharacteristics(); });
  steps.emplace_back([](fake::StrapHost& host) { host.refuseSubscription(); });
}

// From the radio's start through ten seconds with jumps, electrodes off and a lost link.
std::vector<Step> tenSeconds() {
  simulator::TrainingPlan plan;
  plan.exercises = {{Zephly::Exercise::jump, 1s, 3}};
  plan.electrodesOff = {{2s, 1s}};
  simulator::Strap source({.seed = 5, .plan = plan});

  std::vector<Step> steps;
  steps.emplace_back([](fake::StrapHost& host) { host.turnOn(); });
  steps.emplace_back([](fake::StrapHost& host) { host.discover(); });
  steps.emplace_back([](fake::StrapHost& host) { host.failToConnect(); });
  steps.emplace_back([](fake::StrapHost& host) { host.discover(); });
  addConnection(steps);
  bool lost = false;
  while (*source.nextFrameTime() < 10s) {
    const simulator::Frame frame = source.nextFrame();
    if (!lost && frame.time >= 8s) {
      lost = true;
      steps.emplace_back([](fake::StrapHost& host) { host.disconnect("timed out"); });
      addConnection(steps);
    }
    steps.emplace_back([stream = frame.stream, value = Data::of(frame.bytes),
                        time = frame.time](fake::StrapHost& host) {
      FakeProcessorClock::now = static_cast<std::uint64_t>(time / 1us);
      host.deliver(stream, value);
    });
  }
  steps.emplace_back([](fake::StrapHost& host) { host.deliverError(Zephly::Stream::ecg); });
  return steps;
}

struct Outcome {
  std::vector<Call> calls;
  fake::StrapHost::Requests requests;
  std::size_t failures = 0;
  std::ptrdiff_t kept = 0;
};

// `shortage` empty: memory never runs out.
Outcome take(const std::vector<Step>& steps, std::optional<Shortage> shortage) {
  const FakeProcessorClock clock;
  const bench::SilentOutput silent;
  Outcome course;
  const auto listener = std::make_shared<Listener>();
  const std::size_t before = liveAllocationCount();
  {
    fake::StrapHost host;
    const auto session = ::Zephly::Zephly::init(listener);
    session->startWorkoutDetection(listener);
    for (const Step& step : steps) {
      if (!shortage) {
        step(host);
        continue;
      }
      const Sweep sweep = failEach(*shortage, [&] { step(host); });
      course.failures += sweep.failures;
    }
    course.requests = host.requests();
    SessionTestAccess::release(*session);
  }
  course.kept =
      static_cast<std::ptrdiff_t>(liveAllocationCount()) - static_cast<std::ptrdiff_t>(before);
  course.calls = std::move(listener->calls);
  return course;
}

std::size_t count(const std::vector<Call>& calls, std::string_view name) {
  std::size_t number = 0;
  for (const Call& one : calls) number += one.name == name ? 1 : 0;
  return number;
}

class SessionStepsTest : public testing::TestWithParam<Shortage> {};

INSTANTIATE_TEST_SUITE_P(Shortages, SessionStepsTest,
                         testing::Values(Shortage::once, Shortage::forGood), nameOf);

TEST_P(SessionStepsTest, EveryFailedCallbackCanBeRepeated) {
  const std::vector<Step> steps = tenSeconds();
  take(steps, std::nullopt);  // objects created once per process
  const Outcome calm = take(steps, std::nullopt);
  const Outcome tortured = take(steps, GetParam());

  // The events of the ten seconds.
  EXPECT_EQ(count(calm.calls, "connected"), 2U);
  EXPECT_EQ(count(calm.calls, "disconnected"), 1U);
  EXPECT_GE(count(calm.calls, "leadoff"), 3U);
  EXPECT_GE(count(calm.calls, "jump"), 1U);
  EXPECT_EQ(count(calm.calls, "ecg"), 833U * 6);
  EXPECT_EQ(count(calm.calls, "respiration"), 833U * 6);
  EXPECT_EQ(count(calm.calls, "temperature"), 10U);

  // An ECG or respiration frame makes one allocation, a connection several.
  EXPECT_GT(tortured.failures, 2 * 833U);
  EXPECT_TRUE(tortured.calls == calm.calls)
      << tortured.calls.size() << " calls in place of " << calm.calls.size();
  EXPECT_EQ(tortured.kept, calm.kept);
  // Requests that failed for lack of memory are repeated: there are at least as many.
  EXPECT_GE(tortured.requests.subscriptions, calm.requests.subscriptions);
  EXPECT_EQ(tortured.requests.scans, calm.requests.scans);
  EXPECT_EQ(calm.requests.subscriptions, 10);
}

// The application is notified and the connection is requested before the line is printed. A failure
// to print the line undoes neither, and the callback must not be repeated.
TEST(SessionStepsDisconnectionTest, KeepsTheDisconnectionWhenTheErrorTextCannotBeCopied) {
  const bench::SilentOutput silent;
  const auto listener = std::make_shared<Listener>();
  fake::StrapHost host;
  const auto session = ::Zephly::Zephly::init(listener);
  host.discover();
  host.connect();
  const std::string text = "The connection has timed out unexpectedly.";
  host.disconnect(text);  // objects created once per process
  listener->calls.clear();
  const int connectionsBefore = host.requests().connections;
  // The first two allocations are the host's copies of the text, for its error object.
  bool failed = false;
  for (std::size_t number = 1; listener->calls.empty(); ++number) {
    failed = attempt(Shortage::once, number, [&] { host.disconnect(text); }).failed;
  }
  EXPECT_TRUE(failed);
  EXPECT_EQ(count(listener->calls, "disconnected"), 1U);
  EXPECT_EQ(host.requests().connections, connectionsBefore + 1);
  SessionTestAccess::release(*session);
}

}  // namespace
}  // namespace torture
