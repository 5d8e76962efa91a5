// SPDX-License-Identifier: MIT
#include <tools/watch/session_runner.h>

#include <tools/common/command.h>

#include <tests/support/console_lines.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <functional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace Zephly::watch {
namespace {

using namespace std::chrono_literals;
using testing::Contains;
using testing::ElementsAre;

// Notes the calls; ends the session with its source or with a signal.
class SessionRunnerTest : public testing::Test, protected SessionHandler {
 protected:
  static SourceOptions options() {
    SourceOptions options;
    options.simulated = true;
    options.speed = 1000;
    options.duration = 3s;
    return options;
  }

  void onEvent(const Event& event) override {
    note("event");
    events.push_back(event);
  }
  void onReady() override {
    note("ready");
    ready();
  }
  void onRefresh() override { note("refresh"); }
  void onSourceEnd() override {
    note("source end");
    runner.end();
  }
  void onEndSignal() override {
    note("signal");
    runner.end();
  }

  // Repetitions count once.
  void note(const std::string& call) {
    if (std::find(calls.begin(), calls.end(), call) == calls.end()) calls.push_back(call);
  }

  main_queue::MainQueue queue;
  std::vector<std::string> calls;
  std::vector<Event> events;
  std::vector<std::string> lines;
  std::function<void()> ready = [] {};
  ConsoleLines console{lines};
  SessionRunner runner{"test", queue, options(), *this, 1ms, &console};
};

TEST_F(SessionRunnerTest, RunsFromReadyToTheEndOfTheSource) {
  runner.run();
  EXPECT_THAT(calls, ElementsAre("ready", "refresh", "event", "source end"));
  EXPECT_EQ(runner.now(), 3s);
  const SourceReport report = runner.finish();
  EXPECT_EQ(report.duration, 3s);
  ASSERT_TRUE(report.strap);
  const auto received = std::count_if(events.begin(), events.end(), [](const Event& event) {
    return std::holds_alternative<EcgSample>(event.what);
  });
  EXPECT_GT(received, 0);
  EXPECT_EQ(report.strap->streams[Stream::ecg].sent, static_cast<std::uint64_t>(received));
}

TEST_F(SessionRunnerTest, AnEndSignalIsLeftToTheHandler) {
  ready = [] { static_cast<void>(std::raise(SIGTERM)); };
  runner.run();
  EXPECT_THAT(calls, Contains("signal"));
  EXPECT_THAT(calls, testing::Not(Contains("source end")));
  EXPECT_LT(runner.finish().duration, 3s);
}

TEST_F(SessionRunnerTest, AnEndSignalBeforeTheStartEndsTheSessionInOrder) {
  static_cast<void>(std::raise(SIGTERM));
  runner.run();
  EXPECT_THAT(calls, Contains("signal"));
  EXPECT_THAT(calls, testing::Not(Contains("source end")));
  EXPECT_TRUE(runner.finish().strap);
}

TEST_F(SessionRunnerTest, TheReportIsTheSameInEachCall) {
  runner.run();
  const SourceReport* first = &runner.finish();
  EXPECT_EQ(first, &runner.finish());
}

TEST_F(SessionRunnerTest, TheClockStops) {
  ready = [this] { runner.stopClock(); };
  runner.run();
  EXPECT_EQ(runner.now(), 0s);
  // All that the session reports is later.
  for (const Event& event : events) EXPECT_EQ(event.time, 0s);
}

TEST_F(SessionRunnerTest, LinesOfTheKitGoToTheConsole) {
  runner.run();
  ASSERT_FALSE(lines.empty());
  const auto diagnostic = std::find_if(events.begin(), events.end(), [](const Event& event) {
    return std::holds_alternative<Diagnostic>(event.what);
  });
  ASSERT_NE(diagnostic, events.end());
  EXPECT_THAT(lines, Contains(std::get<Diagnostic>(diagnostic->what).text));
}

TEST_F(SessionRunnerTest, ComplaintsAreLinesAndExitCode1) {
  testing::internal::CaptureStderr();
  EXPECT_EQ(runner.exitCode({}), tools::exitDone);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  testing::internal::CaptureStderr();
  EXPECT_EQ(runner.exitCode({"one", "two"}), tools::exitFailed);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "zephly test: one\nzephly test: two\n");
}

}  // namespace
}  // namespace Zephly::watch
