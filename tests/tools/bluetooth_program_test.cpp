// SPDX-License-Identifier: MIT
// The built program on a machine without Bluetooth: its messages and its end.

#include <tests/support/process.h>
#include <tests/support/silent_bus.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

using nlohmann::json;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

using Arguments = std::vector<std::string>;

Arguments monitorWithoutBluetooth(Arguments more) {
  more.insert(more.begin(), {"monitor", "--bus", "unix:path=/nonexistent"});
  return more;
}

constexpr const char* noStrap =
    "zephly monitor: no strap was connected at any time (see docs/troubleshooting.md)";

std::vector<json> eventsOf(const Finished& run, const std::string& kind) {
  std::vector<json> events;
  for (const std::string& line : run.outputLines()) {
    json event = json::parse(line, nullptr, false);
    EXPECT_TRUE(event.is_object()) << line;
    if (event.is_object() && event.at("event") == kind) events.push_back(std::move(event));
  }
  return events;
}

TEST(BluetoothProgramTest, ReportsMissingPrerequisitesOnceAndEndsAfterTheDuration) {
  const Finished run = runProgram(monitorWithoutBluetooth({"--duration", "2"}));
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(run.errorLines(), ElementsAre(noStrap));
  const std::vector<json> lines = eventsOf(run, "host");
  ASSERT_THAT(lines, SizeIs(1));
  EXPECT_THAT(lines.front().at("text").get<std::string>(),
              AllOf(HasSubstr("no D-Bus system bus"), HasSubstr("apt install dbus bluez")));
  const std::vector<json> summaries = eventsOf(run, "summary");
  ASSERT_THAT(summaries, SizeIs(1));
  EXPECT_GE(summaries.front().at("duration").get<double>(), 2);
}

TEST(BluetoothProgramTest, TheSummaryOmitsDataThatOnlyTheStrapHas) {
  const Finished run = runProgram(monitorWithoutBluetooth({"--duration", "0.01"}));
  const std::vector<json> summaries = eventsOf(run, "summary");
  ASSERT_THAT(summaries, SizeIs(1));
  const json& summary = summaries.front();
  for (const char* stream : {"temperature", "ecg", "battery", "respiration", "motion"}) {
    EXPECT_EQ(summary.at("streams").at(stream), json({{"delivered", 0}}));
  }
  EXPECT_FALSE(summary.at("repetitions").contains("done"));
  EXPECT_EQ(summary.at("repetitions").at("counted").at("jumps"), 0);
  EXPECT_EQ(summary.at("connections"), 0);
  EXPECT_EQ(summary.at("linkLosses"), json::array());
}

TEST(BluetoothProgramTest, ReportsStreamsThatNeverArrivedOnRequest) {
  const Finished run = runProgram(monitorWithoutBluetooth({"--duration", "0.01", "--require-all"}));
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(run.errorLines(), AllOf(Contains("zephly monitor: never arrived: connected"),
                                      Contains("zephly monitor: never arrived: ecg")));
}

TEST(BluetoothProgramTest, ASignalEndsItWithASummary) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    Process process(monitorWithoutBluetooth({}));
    ASSERT_TRUE(process.readUntil("\"host\""));
    process.sendSignal(signal);
    const Finished run = process.finish();
    EXPECT_EQ(run.exitCode, 1) << signal;
    EXPECT_THAT(run.errorLines(), ElementsAre(noStrap));
    EXPECT_THAT(eventsOf(run, "summary"), SizeIs(1));
  }
}

// A bus that accepts connections and never answers.
TEST(BluetoothProgramTest, ASilentBusDelaysNeitherTheDurationNorASignal) {
  const SilentBus bus(std::filesystem::path(testing::TempDir()) /
                      ("silent-" + std::to_string(::getpid())));
  const Finished timed = runProgram({"monitor", "--bus", bus.address(), "--duration", "0.1"});
  EXPECT_THAT(eventsOf(timed, "summary"), SizeIs(1));
  Process process({"monitor", "--bus", bus.address()});
  ASSERT_TRUE(process.readUntil("the system bus does not answer"));
  process.sendSignal(SIGTERM);
  const Finished run = process.finish();
  EXPECT_THAT(run.errorLines(), ElementsAre(noStrap));
  EXPECT_THAT(eventsOf(run, "summary"), SizeIs(1));
}

TEST(BluetoothProgramTest, EndsQuietlyWhenItsReaderCloses) {
  Process process(monitorWithoutBluetooth({}));
  process.closeOutput();
  const Finished run = process.finish();
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_THAT(run.errors, IsEmpty());
}

TEST(BluetoothProgramTest, WritesHostLinesToTheDiagnosticsToo) {
  const std::filesystem::path path =
      std::filesystem::path(testing::TempDir()) / ("host-lines-" + std::to_string(::getpid()));
  EXPECT_EQ(runProgram(monitorWithoutBluetooth({"--duration", "2", "--diagnostics", path.string()}))
                .exitCode,
            1);
  std::ifstream stream(path);
  const std::vector<std::string> lines =
      linesOf({std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()});
  std::filesystem::remove(path);
  EXPECT_THAT(lines, ElementsAre(HasSubstr("no D-Bus system bus")));
}

TEST(BluetoothProgramTest, TheScreenShowsTheMissingPrerequisite) {
  Process process(monitorWithoutBluetooth({"--adapter", "hci7"}), Process::Output::terminal,
                  goodTerminal);
  ASSERT_TRUE(process.readUntil("waiting for "));
  process.type("q");
  const Finished run = process.finish();
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(run.errorLines(), ElementsAre(noStrap));
  EXPECT_THAT(run.output, AllOf(HasSubstr("strap over Bluetooth, adapter hci7"),
                                HasSubstr("no D-Bus system bus"), HasSubstr("delivered"),
                                Not(HasSubstr("of strap time"))));
}

TEST(BluetoothProgramTest, ADumbTerminalGetsALine) {
  Process process(monitorWithoutBluetooth({}), Process::Output::terminal, {"TERM=dumb"});
  ASSERT_TRUE(process.readUntil("0:01  Bluetooth: no D-Bus system bus"));
  process.sendSignal(SIGINT);
  EXPECT_EQ(process.finish().exitCode, 1);
}

}  // namespace
