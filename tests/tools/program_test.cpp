// SPDX-License-Identifier: MIT
// The built program as a process: options, exit codes, JSON, signals.

#include <tests/support/process.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <map>
#include <ostream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

using Arguments = std::vector<std::string>;

struct BadOption {
  std::string name;
  Arguments arguments;
  std::string expected;  // the one line holds it
};

void PrintTo(const BadOption& option, std::ostream* stream) { *stream << option.name; }

class ProgramBadOptionsTest : public testing::TestWithParam<BadOption> {};

TEST_P(ProgramBadOptionsTest, AreOneLineAndExitCode2) {
  const Finished run = runProgram(GetParam().arguments);
  EXPECT_EQ(run.exitCode, 2);
  EXPECT_THAT(run.output, IsEmpty());
  EXPECT_THAT(run.errorLines(), ElementsAre(HasSubstr(GetParam().expected)));
  EXPECT_THAT(run.errors, StartsWith("zephly"));
}

// Ends the program if it starts despite the error.
Arguments brief(Arguments more) {
  more.insert(more.begin(), {"--duration", "1"});
  return simulatedMonitor(std::move(more));
}

// The same for an invalid --duration: the file cannot be created.
Arguments briefWithDuration(const std::string& duration) {
  return simulatedMonitor({"--duration", duration, "--diagnostics", "/nonexistent/file"});
}

Arguments bluetooth(Arguments more) {
  more.insert(more.begin(), {"monitor", "--bus", "unix:path=/nonexistent", "--duration", "1"});
  return more;
}

INSTANTIATE_TEST_SUITE_P(
    Program, ProgramBadOptionsTest,
    testing::Values(
        BadOption{"NoSubcommand", {}, "example: zephly monitor --simulated (see zephly --help)"},
        BadOption{"UnknownSubcommand",
                  {"dance"},
                  "zephly: unknown subcommand \"dance\" (see zephly --help)"},
        BadOption{"MisspeltSubcommand",
                  {"montior", "--simulated"},
                  "unknown subcommand \"montior\"; did you mean monitor? (see zephly --help)"},
        BadOption{"HelpOfAMisspeltSubcommand",
                  {"help", "recrod"},
                  "zephly help: unknown subcommand \"recrod\"; did you mean record?"},
        BadOption{"OptionWithoutItsSubcommand",
                  {"--simulated"},
                  "--simulated belongs behind a subcommand: zephly monitor --simulated"},
        BadOption{"UnknownOptionOfTheProgram", {"--loud"}, "zephly: unknown option \"--loud\""},
        BadOption{"RecordWithoutFile", {"record"}, "FILE is required (see zephly record --help)"},
        BadOption{"InspectWithoutFile", {"inspect"}, "is required (see zephly inspect --help)"},
        BadOption{"ReplayWithoutFile", {"replay"}, "is required (see zephly replay --help)"},
        BadOption{"ExportWithoutFile", {"export"}, "is required (see zephly export --help)"},
        BadOption{"ExportWithoutTarget",
                  {"export", "a.zcap"},
                  "--edf FILE, --csv DIRECTORY or both is required (see zephly export --help)"},
        BadOption{"SeedOfARealStrap", bluetooth({"--seed", "7"}), "--seed requires --simulated"},
        BadOption{"SpeedOfARealStrap", bluetooth({"--speed", "1"}), "--speed requires --simulated"},
        BadOption{"RecordingOfARealStrap", bluetooth({"--recording", "a.csv"}),
                  "--recording requires --simulated"},
        BadOption{"RateOfARealStrap", bluetooth({"--rate", "9"}), "--rate requires --simulated"},
        BadOption{"AdapterOfASimulatedStrap", brief({"--adapter", "hci0"}),
                  "--simulated excludes --adapter"},
        BadOption{"NotificationsOfASimulatedStrap", brief({"--notifications", "signals"}),
                  "--simulated excludes --notifications"},
        BadOption{"BusOfASimulatedStrap", brief({"--bus", "unix:path=/nonexistent"}),
                  "--simulated: excludes --bus"},
        BadOption{"AdapterMissing", bluetooth({"--adapter"}), "--adapter: expected exactly one"},
        BadOption{"AdapterEmpty", bluetooth({"--adapter", ""}), "--adapter: expected hciN or"},
        BadOption{"AdapterNumber", bluetooth({"--adapter", "0"}), "hciN or an address like"},
        BadOption{"AdapterWithPath", bluetooth({"--adapter", "/org/bluez/hci0"}), "expected hciN"},
        BadOption{"AdapterShortAddress", bluetooth({"--adapter", "00:11:22:33:44"}), "got \"00:11"},
        BadOption{"NotificationsUnknown", bluetooth({"--notifications", "Signals"}),
                  "--notifications: expected signals or descriptors, got \"Signals\""},
        BadOption{"UnknownOption", brief({"--loud"}),
                  "unknown option \"--loud\" (see zephly monitor --help)"},
        BadOption{"MisspeltOption", brief({"--requireall"}), "did you mean --require-all? (see"},
        BadOption{"BeginningOfAnOption", {"monitor", "--simulate"}, "did you mean --simulated?"},
        BadOption{"UnknownOptionWithValue", brief({"--from", "3"}),
                  "unknown option \"--from\" (see"},
        BadOption{"UnknownOptionWithEqualsSign", brief({"--spee=3"}),
                  "unknown option \"--spee\"; did you mean --speed?"},
        BadOption{"ExtraArgument", brief({"extra"}), "unexpected argument \"extra\" (see"},
        BadOption{"LineBreakInArgument", brief({"two\nlines"}), "argument \"two lines\""},
        BadOption{"FlagWithValue", brief({"--json=perhaps"}), "--json: expected no value"},
        BadOption{"FlagWithNumber", brief({"--json=3"}), "--json: expected no value"},
        BadOption{"FlagTakenBack", brief({"--json=false"}), "--json: expected no value"},
        BadOption{"SpeedMissing", brief({"--speed"}), "--speed: expected exactly one value"},
        BadOption{"SpeedTwice", brief({"--speed", "1", "--speed", "2"}), "--speed: expected"},
        BadOption{"SpeedIsAnOption", brief({"--speed", "--json"}), "--speed: expected a number"},
        BadOption{"SpeedZero", brief({"--speed", "0"}), "--speed: expected a number greater"},
        BadOption{"SpeedNegative", brief({"--speed", "-1"}), "greater than 0, got \"-1\""},
        BadOption{"SpeedNan", brief({"--speed", "nan"}), "greater than 0, got \"nan\""},
        BadOption{"SpeedInfinite", brief({"--speed", "inf"}), "greater than 0, got \"inf\""},
        BadOption{"SpeedText", brief({"--speed", "abc"}), "greater than 0, got \"abc\""},
        BadOption{"SpeedTrailingText", brief({"--speed", "2x"}), "greater than 0, got \"2x\""},
        BadOption{"SpeedEmpty", brief({"--speed", ""}), "--speed: expected a number"},
        BadOption{"SpeedTooBig", brief({"--speed", "1e999"}), "--speed: expected a number"},
        BadOption{"DurationMissing",
                  simulatedMonitor({"--diagnostics", "/nonexistent/file", "--duration"}),
                  "--duration: expected exactly one"},
        BadOption{"DurationNegative", briefWithDuration("-3"),
                  "--duration: expected a time like 90"},
        BadOption{"DurationTooShort", briefWithDuration("1e-10"), "a time greater than 0, got"},
        BadOption{"DurationZero", briefWithDuration("0"), "--duration: expected a time greater"},
        BadOption{"DurationNan", briefWithDuration("nan"), "--duration: expected a time like"},
        BadOption{"DurationTooLong", briefWithDuration("1e10"), "at most 31 years, got"},
        BadOption{"SeedNegative", brief({"--seed", "-1"}), "--seed: expected a whole number"},
        BadOption{"SeedFraction", brief({"--seed", "1.5"}), "--seed: expected a whole number"},
        BadOption{"SeedTooBig", brief({"--seed", "18446744073709551616"}), "--seed: expected"},
        BadOption{"RecordingAlone", brief({"--recording", "a.csv"}), "--recording: needs --rate"},
        BadOption{"RecordingEmpty", brief({"--recording", "", "--rate", "9"}), "name of a file"},
        BadOption{"RateAlone", brief({"--rate", "9"}), "--rate: needs --recording"},
        BadOption{"RateZero", brief({"--recording", "a.csv", "--rate", "0"}), "--rate: expected"},
        BadOption{"RateNan", brief({"--recording", "a.csv", "--rate", "nan"}), "--rate: expected"},
        BadOption{"RateTooFast", brief({"--recording", "a.csv", "--rate", "1e6"}),
                  "to 100000, got \"1e6\""}),
    [](const auto& instance) { return instance.param.name; });

TEST(ProgramTest, PrintsTheKitsVersion) {
  const Finished run = runProgram({"--version"});
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_EQ(run.output, "zephly 1.0 (PROGRAM:Zephly  PROJECT:Zephly-SDK-1)\n");
}

TEST(ProgramTest, HelpListsEveryOption) {
  const Finished run = runProgram({"monitor", "--help"});
  EXPECT_EQ(run.exitCode, 0);
  for (const char* option :
       {"--simulated", "--seed", "--speed", "--duration", "--recording", "--rate", "--json",
        "--diagnostics", "--require-all", "--adapter", "--notifications", "Exit code"}) {
    EXPECT_THAT(run.output, HasSubstr(option));
  }
  EXPECT_THAT(run.output, Not(HasSubstr("--bus")));
  EXPECT_THAT(runProgram({"--help"}).output, HasSubstr("monitor"));
}

TEST(ProgramTest, TakesTimesInMinutesHoursAndAsAClockShowsThem) {
  const auto durationOf = [](const std::string& text) {
    const Finished run = runProgram(simulatedMonitor({"--duration", text, "--speed", "1000"}));
    return json::parse(run.outputLines().back()).at("duration").get<double>();
  };
  EXPECT_EQ(durationOf("1.5"), 1.5);
  EXPECT_EQ(durationOf("0.1m"), 6);
  EXPECT_EQ(durationOf("0:07"), 7);
}

TEST(ProgramTest, HelpIsASubcommandToo) {
  EXPECT_EQ(runProgram({"help"}).output, runProgram({"--help"}).output);
  const Finished run = runProgram({"help", "record"});
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_EQ(run.output, runProgram({"record", "--help"}).output);
  EXPECT_THAT(runProgram({"help", "help"}).output, HasSubstr("zephly help"));
}

TEST(ProgramTest, EveryHelpHasTwoExamples) {
  const std::string help = runProgram({"--help"}).output;
  EXPECT_THAT(help, HasSubstr("Examples:\n  zephly monitor --simulated "));
  for (const std::string name : {"monitor", "view", "record", "inspect", "replay", "export",
                                 "vitals", "report", "process", "strap"}) {
    EXPECT_THAT(help, HasSubstr("\n  " + name + " "));
    const std::string text = runProgram({name, "--help"}).output;
    const std::size_t examples = text.find("\nExamples:\n");
    ASSERT_NE(examples, std::string::npos) << name;
    const std::string example = "  zephly " + name;
    const std::size_t first = text.find(example, examples);
    ASSERT_NE(first, std::string::npos) << name;
    EXPECT_NE(text.find(example, first + 1), std::string::npos) << name;
  }
}

// Runs the program with its standard output closed, as `>&-` does in a shell.
Finished withClosedOutput(Arguments arguments) {
  arguments.insert(arguments.begin(), {"-c", "exec \"$0\" \"$@\" >&-", ZEPHLY_PROGRAM});
  return Process(arguments, Process::Output::pipe, {}, "/bin/sh").finish();
}

TEST(ProgramTest, AClosedStandardOutputIsOneLineAndExitCode1) {
  const std::filesystem::path capture = std::filesystem::path(testing::TempDir()) /
                                        ("closed-" + std::to_string(::getpid()) + ".zcap");
  const std::vector<std::pair<Arguments, std::string>> runs = {
      {{"--help"}, "zephly"},
      {{"--version"}, "zephly"},
      {{"--licenses"}, "zephly"},
      {{"help", "view"}, "zephly"},
      {{"monitor", "--help"}, "zephly"},
      {simulatedMonitor({"--duration", "1", "--speed", "100"}), "zephly monitor"},
      {{"record", capture.string(), "--simulated", "--duration", "1"}, "zephly record"},
      {{"inspect", capture.string()}, "zephly inspect"},
      {{"replay", capture.string(), "--fast"}, "zephly replay"},
      {{"view", "--replay", capture.string(), "--fast", "--exit-at-end", "--port", "0"},
       "zephly view"}};
  for (const auto& [arguments, who] : runs) {
    const Finished run = withClosedOutput(arguments);
    EXPECT_EQ(run.exitCode, 1) << arguments.front();
    EXPECT_THAT(run.errorLines(), ElementsAre(who + ": standard output: it is closed"));
  }
  // The recording itself is complete.
  EXPECT_EQ(runProgram({"inspect", capture.string()}).exitCode, 0);
  std::filesystem::remove(capture);
}

TEST(ProgramTest, ALimitOfTheFileSizeIsAnErrorOfTheWrite) {
  const std::filesystem::path file =
      std::filesystem::path(testing::TempDir()) / ("limited-" + std::to_string(::getpid()));
  Process process({"-c", "ulimit -f 8; exec \"$0\" \"$@\" >" + file.string(), ZEPHLY_PROGRAM,
                   "monitor", "--simulated", "--duration", "30", "--speed", "100"},
                  Process::Output::pipe, {}, "/bin/sh");
  const Finished run = process.finish();
  std::filesystem::remove(file);
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(run.errorLines(), ElementsAre("zephly monitor: standard output: File too large"));
}

TEST(ProgramTest, HelpThatCannotBeWrittenIsOneLineAndExitCode1) {
  for (const Arguments& arguments :
       {Arguments{"--help"}, Arguments{"--version"}, Arguments{"monitor", "--help"}}) {
    Process process(arguments, Process::Output::full);
    const Finished run = process.finish();
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_THAT(run.errorLines(), ElementsAre("zephly: standard output: No space left on device"));
  }
}

TEST(ProgramTest, AnUnusableDiagnosticsFileIsOneLineAndExitCode1) {
  const std::vector<std::pair<std::string, std::string>> files = {
      {"/nonexistent/file", "No such file or directory"},
      {"/dev/full", "not a regular file"},
      {testing::TempDir(), "not a regular file"}};
  for (const auto& [file, reason] : files) {
    const Finished run = runProgram(simulatedMonitor({"--duration", "1", "--diagnostics", file}));
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_THAT(run.errorLines(),
                ElementsAre("zephly monitor: cannot write " + file + ": " + reason));
    EXPECT_THAT(run.output, IsEmpty());
  }
}

// A session's JSON lines, each parsed.
std::vector<json> parsed(const Finished& run) {
  std::vector<json> events;
  for (const std::string& line : run.outputLines()) {
    json event = json::parse(line, nullptr, false);
    EXPECT_TRUE(event.is_object()) << line;
    if (event.is_object()) events.push_back(std::move(event));
  }
  return events;
}

std::map<std::string, int> countsOf(const std::vector<json>& events) {
  std::map<std::string, int> counts;
  for (const json& event : events) ++counts[event.at("event").get<std::string>()];
  return counts;
}

TEST(ProgramTest, DeliversTheWholePlanWithoutLoss) {
  const Finished run =
      runProgram(simulatedMonitor({"--duration", "32", "--speed", "1000", "--require-all"}));
  EXPECT_EQ(run.exitCode, 0) << run.errors;
  EXPECT_THAT(run.errors, IsEmpty());
  const std::vector<json> events = parsed(run);
  ASSERT_FALSE(events.empty());

  double time = 0;
  for (const json& event : events) {
    EXPECT_GE(event.at("t").get<double>(), time) << event;
    time = event.at("t").get<double>();
  }

  const json& summary = events.back();
  EXPECT_EQ(summary.at("event"), "summary");
  EXPECT_EQ(summary.at("duration"), 32);
  EXPECT_THAT(summary.at("neverArrived"), IsEmpty());
  const std::map<std::string, int> counts = countsOf(events);
  for (const char* stream : {"temperature", "ecg", "battery", "respiration", "motion"}) {
    const json& entry = summary.at("streams").at(stream);
    EXPECT_EQ(entry.at("lost"), 0) << stream;
    EXPECT_EQ(entry.at("sent"), entry.at("delivered")) << stream;
    EXPECT_EQ(entry.at("delivered"), counts.at(stream)) << stream;
  }
  // 32 s minus the time before the first subscription and that of the lost link.
  EXPECT_GT(counts.at("ecg"), 15'000);
  EXPECT_LT(counts.at("ecg"), 16'000);
  EXPECT_EQ(summary.at("reconnections"), counts.at("connected") - 1);
  EXPECT_EQ(summary.at("disconnections"), counts.at("disconnected"));
  EXPECT_EQ(summary.at("leadOffChanges"), counts.at("leadoff") - 1);
  EXPECT_EQ(summary.at("repetitions").at("done"), summary.at("repetitions").at("counted"));
  EXPECT_EQ(summary.at("repetitions").at("counted").at("pushUps"), counts.at("pushUp"));
  EXPECT_EQ(summary.at("repetitions").at("counted").at("sitUps"), counts.at("sitUp"));
  EXPECT_EQ(summary.at("repetitions").at("counted").at("jumps"), counts.at("jump"));
  EXPECT_GT(counts.at("diagnostic"), 5);
}

TEST(ProgramTest, RatesAppearWithinTenSecondsOfContactAndVanishWithIt) {
  const Finished run = runProgram(simulatedMonitor({"--duration", "32", "--speed", "1000"}));
  const std::vector<json> events = parsed(run);
  ASSERT_FALSE(events.empty());
  double contact = 0;  // since when; 0: none
  double noContact = 0;
  double longestWait = 0;
  bool known = false;
  int beats = 0;
  for (const json& event : events) {
    const double time = event.at("t").get<double>();
    const std::string kind = event.at("event").get<std::string>();
    if (kind == "leadoff") {
      known = false;
      contact = event.at("value").get<bool>() ? 0 : time;
      if (contact == 0) noContact = time;
    } else if (kind == "beat") {
      ++beats;
      EXPECT_LE(event.at("at").get<double>(), time);
      EXPECT_GT(event.at("at").get<double>(), time - 1);
    } else if (kind == "vitals") {
      const bool rate = !event.at("heartRate").is_null();
      if (event.at("at").get<double>() > noContact + 1 && contact == 0) {
        EXPECT_FALSE(rate) << event;
        EXPECT_TRUE(event.at("breathingRate").is_null()) << event;
      }
      if (rate && contact > 0 && !known) {
        known = true;
        longestWait = std::max(longestWait, time - contact);
      }
    }
  }
  EXPECT_TRUE(known);
  EXPECT_GT(longestWait, 0);
  EXPECT_LT(longestWait, 10);
  const json& vitals = events.back().at("vitals");
  const std::map<std::string, int> counts = countsOf(events);
  EXPECT_GT(beats, 20);
  EXPECT_EQ(vitals.at("seconds"), counts.at("vitals"));
  EXPECT_EQ(vitals.at("breaths"), counts.at("breath"));
  int summed = 0;
  for (const auto& [kind, count] : vitals.at("beats").items()) summed += count.get<int>();
  EXPECT_EQ(summed, beats);
}

TEST(ProgramTest, SameSeedGivesTheSameSession) {
  const Arguments first = simulatedMonitor({"--duration", "3", "--speed", "1000", "--seed", "7"});
  const Arguments other = simulatedMonitor({"--duration", "3", "--speed", "1000", "--seed", "8"});
  const std::string output = runProgram(first).output;
  EXPECT_EQ(output, runProgram(first).output);
  EXPECT_NE(output, runProgram(other).output);
}

TEST(ProgramTest, WritesOneLinePerMissingStreamAndExitsWithCode1) {
  const Finished run =
      runProgram(simulatedMonitor({"--duration", "2", "--speed", "1000", "--require-all"}));
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(run.errorLines(), ElementsAre("zephly monitor: never arrived: disconnected",
                                            "zephly monitor: never arrived: pushUp",
                                            "zephly monitor: never arrived: sitUp",
                                            "zephly monitor: never arrived: jump"));
  EXPECT_EQ(runProgram(simulatedMonitor({"--duration", "2", "--speed", "1000"})).exitCode, 0);
}

TEST(ProgramTest, WritesDiagnosticLinesToAFileUnchanged) {
  const std::filesystem::path file =
      std::filesystem::path(testing::TempDir()) / ("diagnostics-" + std::to_string(::getpid()));
  const Finished run = runProgram(
      simulatedMonitor({"--duration", "2", "--speed", "1000", "--diagnostics", file.string()}));
  EXPECT_EQ(run.exitCode, 0);
  std::ifstream stream(file);
  const std::vector<std::string> lines =
      linesOf({std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()});
  std::filesystem::remove(file);
  const std::map<std::string, int> counts = countsOf(parsed(run));
  EXPECT_EQ(lines.size(), static_cast<std::size_t>(counts.at("motion") + counts.at("diagnostic")));
  EXPECT_THAT(lines, testing::Contains(HasSubstr("47366E80")));
}

TEST(ProgramTest, KeepsAnExistingFileFromBecomingTheDiagnosticsWithoutForce) {
  const std::filesystem::path file =
      std::filesystem::path(testing::TempDir()) / ("existing-" + std::to_string(::getpid()));
  std::ofstream(file) << "keep\n";
  Arguments arguments =
      simulatedMonitor({"--duration", "1", "--speed", "100", "--diagnostics", file.string()});
  const Finished run = runProgram(arguments);
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(run.errorLines(), ElementsAre(HasSubstr("it exists already (see --force)")));
  EXPECT_EQ(std::filesystem::file_size(file), 5U);
  arguments.emplace_back("--force");
  EXPECT_EQ(runProgram(arguments).exitCode, 0);
  EXPECT_GT(std::filesystem::file_size(file), 5U);
  std::filesystem::remove(file);
}

class ProgramSignalTest : public testing::TestWithParam<int> {};

TEST_P(ProgramSignalTest, EndsTheSessionCleanly) {
  Process process(simulatedMonitor({}));
  ASSERT_TRUE(process.readUntil("\"ecg\""));
  process.sendSignal(GetParam());
  const Finished run = process.finish();
  EXPECT_EQ(run.exitCode, 0) << run.errors;
  EXPECT_THAT(run.errors, IsEmpty());
  const std::vector<json> events = parsed(run);
  ASSERT_FALSE(events.empty());
  EXPECT_EQ(events.back().at("event"), "summary");
  EXPECT_EQ(events.back().at("streams").at("ecg").at("lost"), 0);
}

INSTANTIATE_TEST_SUITE_P(Program, ProgramSignalTest, testing::Values(SIGINT, SIGTERM, SIGHUP),
                         [](const auto& instance) {
                           return "Signal" + std::to_string(instance.param);
                         });

TEST(ProgramTest, EndsQuietlyWhenItsReaderCloses) {
  Process process(simulatedMonitor({"--speed", "20"}));
  ASSERT_TRUE(process.readUntil("\"ecg\""));
  process.closeOutput();
  const Finished run = process.finish();
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_THAT(run.errors, IsEmpty());
}

// The pipe holds 64 KiB of about 200 KiB. The time limit of the test catches a session that waits.
TEST(ProgramTest, EndsInTimeDespiteAStalledReaderAndCountsTheLostLines) {
  Process process(simulatedMonitor({"--duration", "3"}));
  const auto start = std::chrono::steady_clock::now();
  ASSERT_TRUE(process.waitForEnd(std::chrono::seconds(30)));
  // 3 s, and 2 s for the last lines. More than twice that is allowed to a machine under load.
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(12));
  const Finished run = process.finish();
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(run.errorLines(), ElementsAre(testing::MatchesRegex(
                                    "zephly monitor: standard output: [0-9]+ lines were "
                                    "lost because the reader is too slow")));
  EXPECT_EQ(run.output.back(), '\n');
  EXPECT_THAT(parsed(run), Not(IsEmpty()));
}

// Faster than real time, far more than the pipe and the queue hold.
TEST(ProgramTest, ASimulationWaitsForASlowReader) {
  Process process(simulatedMonitor({"--duration", "140", "--speed", "1000"}));
  ASSERT_TRUE(process.readUntil("\"ecg\""));
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  const Finished run = process.finish();
  EXPECT_EQ(run.exitCode, 0) << run.errors;
  const std::map<std::string, int> counts = countsOf(parsed(run));
  EXPECT_EQ(counts.count("dropped"), 0U);
  EXPECT_GT(run.output.size(), 4'500'000U);  // more than queue and pipe hold
}

TEST(ProgramTest, ASignalEndsItDespiteAStalledReader) {
  Process process(simulatedMonitor({"--speed", "1000"}));
  ASSERT_TRUE(process.readUntil("\"ecg\""));
  // The pipe is full now or soon; the program ends in both cases.
  process.sendSignal(SIGTERM);
  EXPECT_TRUE(process.waitForEnd(std::chrono::seconds(30)));
}

}  // namespace
