// SPDX-License-Identifier: MIT
// `zephly replay` as a process: output, exit codes, invalid files, signals, readers that close.

#include <capture/bytes.h>
#include <capture/format.h>
#include <tests/support/captures.h>
#include <tests/support/long_run.h>
#include <tests/support/process.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace Zephly {
namespace {

using captures::Bytes;
using captures::ScratchDirectory;
using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

using Arguments = std::vector<std::string>;

// A session of the strap with seed 7.
std::filesystem::path recordInto(const ScratchDirectory& scratch, const std::string& duration) {
  std::filesystem::path file = scratch / "session.zcap";
  const Finished run = runProgram({"record", file.string(), "--simulated", "--seed", "7", "--speed",
                                   "1000", "--duration", duration});
  EXPECT_EQ(run.exitCode, 0) << run.errors;
  return file;
}

Finished replay(const std::filesystem::path& file, Arguments more = {}) {
  more.insert(more.begin(), {"replay", file.string()});
  return runProgram(more);
}

Arguments monitorOfTheSame(const std::string& duration, Arguments more = {}) {
  more.insert(more.begin(),
              {"monitor", "--simulated", "--seed", "7", "--speed", "1000", "--duration", duration});
  return more;
}

std::string contentOf(const std::filesystem::path& file) {
  std::ifstream stream(file);
  return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

// The common part of two runs of the same session. After the electrodes were off, filtered
// respiration depends on the processor time used by the run; that a replay of the same run repeats
// it is tested by SameSessionTest.
std::string common(const std::string& line) {
  const std::size_t value = line.find(R"(,"value")");
  return line.find(R"("event":"respiration")") == std::string::npos ? line : line.substr(0, value);
}

// Drops the summary, and the vitals that are held back until the end of a session before it.
void dropEnd(std::vector<std::string>& lines) {
  const auto isVitals = [](const std::string& line) {
    const json event = json::parse(line).at("event");
    return event == "beat" || event == "breath" || event == "vitals";
  };
  lines.pop_back();
  while (!lines.empty() && isVitals(lines.back())) lines.pop_back();
}

class ReplayProgramTest : public testing::Test {
 protected:
  const ScratchDirectory scratch_;
};

TEST_F(ReplayProgramTest, WritesTheEventsOfTheMonitor) {
  const std::string seconds = longRun("62", "31");
  const auto file = recordInto(scratch_, seconds);
  const Finished live = runProgram(monitorOfTheSame(seconds));
  const Finished again = replay(file, {"--fast", "--json"});
  EXPECT_EQ(again.exitCode, 0) << again.errors;
  EXPECT_THAT(again.errors, IsEmpty());
  std::vector<std::string> expected = live.outputLines();
  std::vector<std::string> actual = again.outputLines();
  ASSERT_GT(expected.size(), longRun(60'000U, 30'000U));
  ASSERT_EQ(expected.size(), actual.size());
  const json was = json::parse(expected.back());
  const json is = json::parse(actual.back());
  expected.pop_back();
  actual.pop_back();
  const auto [left, right] = std::mismatch(
      expected.begin(), expected.end(), actual.begin(),
      [](const auto& one, const auto& other) { return common(one) == common(other); });
  EXPECT_TRUE(left == expected.end()) << *left << "\n" << *right;

  // The summary is the same except for the strap's counts, which a capture does not contain.
  for (const char* same : {"duration", "connections", "disconnections", "reconnections",
                           "leadOffChanges", "neverArrived"}) {
    EXPECT_EQ(was.at(same), is.at(same)) << same;
  }
  EXPECT_EQ(was.at("repetitions").at("counted"), is.at("repetitions").at("counted"));
  for (const char* stream : {"temperature", "ecg", "battery", "respiration", "motion"}) {
    EXPECT_EQ(was.at("streams").at(stream).at("delivered"),
              is.at("streams").at(stream).at("delivered"));
    EXPECT_FALSE(is.at("streams").at(stream).contains("lost"));
  }
}

TEST_F(ReplayProgramTest, WritesTheSameDiagnosticLinesToAFile) {
  const auto file = recordInto(scratch_, "3");
  const auto lines = [&](const char* name) { return (scratch_ / name).string(); };
  EXPECT_EQ(runProgram(monitorOfTheSame("3", {"--diagnostics", lines("live")})).exitCode, 0);
  EXPECT_EQ(replay(file, {"--fast", "--diagnostics", lines("again")}).exitCode, 0);
  EXPECT_THAT(contentOf(lines("live")), HasSubstr("47366E80"));
  EXPECT_EQ(contentOf(lines("live")), contentOf(lines("again")));
}

TEST_F(ReplayProgramTest, DoesNotOverwriteTheCaptureWithItsDiagnosticLines) {
  const auto file = recordInto(scratch_, "3");
  const std::string before = contentOf(file);
  const Finished run = replay(file, {"--fast", "--force", "--diagnostics", file.string()});
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(run.errorLines(), ElementsAre(HasSubstr(": it is the input ")));
  EXPECT_EQ(contentOf(file), before);
}

// As with a pager: the reader takes a part, and the rest seconds later.
TEST_F(ReplayProgramTest, WaitsForItsReaderAsLongAsItNeeds) {
  const auto file = recordInto(scratch_, "140");
  Process process({"replay", file.string(), "--fast", "--json"});
  ASSERT_TRUE(process.readUntil("\"ecg\""));
  EXPECT_FALSE(process.waitForEnd(std::chrono::seconds(2)));
  const Finished run = process.finish();
  EXPECT_EQ(run.exitCode, 0) << run.errors;
  EXPECT_GT(run.output.size(), 4'500'000U);  // more than queue and pipe hold
  EXPECT_THAT(run.output, Not(HasSubstr("\"dropped\"")));
}

TEST_F(ReplayProgramTest, HostLinesAreNotReplayed) {
  const auto file = scratch_ / "waiting.zcap";
  Process recording({"record", file.string(), "--bus", "unix:path=/nonexistent"});
  ASSERT_TRUE(recording.readUntil("no D-Bus system bus"));  // the host's line
  recording.sendSignal(SIGTERM);
  ASSERT_EQ(recording.finish().exitCode, 1);
  const Finished run = replay(file, {"--fast"});
  EXPECT_EQ(run.exitCode, 0) << run.errors;
  EXPECT_THAT(run.output, Not(HasSubstr("\"host\"")));
}

TEST_F(ReplayProgramTest, ReportsStreamsThatNeverArrivedOnRequest) {
  const auto file = recordInto(scratch_, "2");
  EXPECT_EQ(replay(file, {"--fast"}).exitCode, 0);
  const Finished run = replay(file, {"--fast", "--require-all"});
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(run.errorLines(), ElementsAre("zephly replay: never arrived: disconnected",
                                            "zephly replay: never arrived: pushUp",
                                            "zephly replay: never arrived: sitUp",
                                            "zephly replay: never arrived: jump"));
}

TEST_F(ReplayProgramTest, ReplaysEveryKindOfCallbackOfATraining) {
  const Finished run = replay(recordInto(scratch_, "32"), {"--speed", "1000", "--require-all"});
  EXPECT_EQ(run.exitCode, 0) << run.errors;
}

TEST_F(ReplayProgramTest, ShowsAScreenOnATerminal) {
  const auto file = recordInto(scratch_, "8");
  Process process({"replay", file.string(), "--speed", "20"}, Process::Output::terminal,
                  goodTerminal);
  ASSERT_TRUE(process.readUntil("zephly replay"));
  ASSERT_TRUE(process.readUntil("speed 20"));
  ASSERT_TRUE(process.readUntil("Session of 8.0 s"));
  const Finished run = process.finish();
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_THAT(run.output, HasSubstr("session.zcap: simulated strap, seed 7"));
  EXPECT_THAT(run.output, HasSubstr("per second"));
  EXPECT_THAT(run.output, Not(HasSubstr("of strap time")));
}

TEST_F(ReplayProgramTest, WritesLinesWithoutAScreen) {
  const auto file = recordInto(scratch_, "40");
  Process process({"replay", file.string(), "--speed", "20"}, Process::Output::terminal,
                  {"TERM=dumb", "LC_ALL=C"});
  ASSERT_TRUE(process.readUntil("electrodes on skin"));
  EXPECT_THAT(process.finish().output, HasSubstr("Session of 40.0 s"));
}

class ReplaySignalTest : public ReplayProgramTest, public testing::WithParamInterface<int> {};

TEST_P(ReplaySignalTest, EndsItWithASummary) {
  const auto file = recordInto(scratch_, "60");
  Process process({"replay", file.string()});
  ASSERT_TRUE(process.readUntil("\"ecg\""));
  process.sendSignal(GetParam());
  const Finished run = process.finish();
  EXPECT_EQ(run.exitCode, 0) << run.errors;
  EXPECT_THAT(run.errors, IsEmpty());
  const json summary = json::parse(run.outputLines().back());
  EXPECT_EQ(summary.at("event"), "summary");
  EXPECT_LT(summary.at("duration"), 60);
}

INSTANTIATE_TEST_SUITE_P(ReplayProgramTest, ReplaySignalTest,
                         testing::Values(SIGINT, SIGTERM, SIGHUP), [](const auto& instance) {
                           return "Signal" + std::to_string(instance.param);
                         });

TEST_F(ReplayProgramTest, EndsQuietlyWhenItsReaderCloses) {
  const auto file = recordInto(scratch_, "60");
  for (const char* pace : {"--fast", "--speed=20"}) {
    Process process({"replay", file.string(), pace});
    ASSERT_TRUE(process.readUntil("\"ecg\""));
    process.closeOutput();
    const Finished run = process.finish();
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_THAT(run.errors, IsEmpty());
  }
}

TEST_F(ReplayProgramTest, ASignalEndsItDespiteAStalledReader) {
  const auto file = recordInto(scratch_, "60");
  Process process({"replay", file.string(), "--fast"});
  ASSERT_TRUE(process.readUntil("\"ecg\""));
  process.sendSignal(SIGTERM);
  EXPECT_TRUE(process.waitForEnd(std::chrono::seconds(30)));
}

TEST_F(ReplayProgramTest, AFullDiskIsOneLineAndExitCode1) {
  Process process({"replay", recordInto(scratch_, "2").string(), "--fast"}, Process::Output::full);
  const Finished run = process.finish();
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(run.errorLines(),
              ElementsAre("zephly replay: standard output: No space left on device"));
}

// One line with the file, and exit code 1.
void expectRefused(const std::filesystem::path& file, const std::string& reason) {
  const Finished run = replay(file, {"--fast"});
  EXPECT_EQ(run.exitCode, 1) << file;
  EXPECT_THAT(run.output, IsEmpty());
  EXPECT_THAT(run.errorLines(),
              ElementsAre(testing::AllOf(StartsWith("zephly replay: " + file.string() + ": "),
                                         HasSubstr(reason))));
}

TEST_F(ReplayProgramTest, AFileThatIsNotACaptureIsOneLineAndExitCode1) {
  const auto pipe = scratch_ / "pipe.zcap";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  expectRefused(scratch_.path(), "a directory");
  expectRefused(pipe, "not a regular file");
  expectRefused("/dev/null", "not a regular file");
  expectRefused(scratch_ / "missing.zcap", "no such file");
  expectRefused(scratch_.file("empty.zcap", {}), "");
  expectRefused(scratch_.file("text.zcap", Bytes(1000, 'a')), "not a capture");
}

TEST_F(ReplayProgramTest, ATruncatedOrDamagedHeaderIsOneLineAndExitCode1) {
  const Bytes bytes = captures::captureOf({});
  for (std::size_t length = 1; length < bytes.size(); length += 9) {
    expectRefused(
        scratch_.file("cut.zcap",
                      Bytes(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(length))),
        "");
  }
  for (std::size_t position = 0; position < bytes.size(); position += 9) {
    Bytes flipped = bytes;
    flipped[position] = static_cast<std::uint8_t>(flipped[position] ^ 0x10U);
    expectRefused(scratch_.file("flipped.zcap", flipped), "");
  }
}

TEST_F(ReplayProgramTest, ALaterVersionIsOneLineAndExitCode1) {
  capture::ByteSink head;
  head.raw(capture::magic);
  head.number(static_cast<std::uint16_t>(capture::majorVersion + 1));
  head.number(std::uint16_t{0});
  head.number(std::uint32_t{0});
  head.number(capture::checksum(head.bytes()));
  expectRefused(scratch_.file("later.zcap", head.take()), "version");
}

TEST_F(ReplayProgramTest, PlaysATruncatedCaptureToItsEnd) {
  const auto file = recordInto(scratch_, "3");
  const std::vector<std::string> whole = replay(file, {"--fast"}).outputLines();
  std::filesystem::resize_file(file, std::filesystem::file_size(file) / 2);
  const Finished run = replay(file, {"--fast"});
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(run.errorLines(),
              ElementsAre(StartsWith("zephly replay: " + file.string() + ": at byte ")));
  std::vector<std::string> part = run.outputLines();
  ASSERT_GT(part.size(), 1000U);
  EXPECT_EQ(json::parse(part.back()).at("event"), "summary");
  dropEnd(part);
  EXPECT_TRUE(std::equal(part.begin(), part.end(), whole.begin()));
}

TEST_F(ReplayProgramTest, PlaysADamagedCaptureUpToTheDamage) {
  const auto file = recordInto(scratch_, "3");
  const std::vector<std::string> whole = replay(file, {"--fast"}).outputLines();
  Bytes bytes = captures::contentOf(file);
  bytes.at(bytes.size() / 2) = static_cast<std::uint8_t>(bytes.at(bytes.size() / 2) ^ 1U);
  const auto damaged = scratch_.file("damaged.zcap", bytes);
  const Finished run = replay(damaged, {"--fast"});
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(run.errorLines(),
              ElementsAre(StartsWith("zephly replay: " + damaged.string() + ": at byte ")));
  std::vector<std::string> part = run.outputLines();
  ASSERT_GT(part.size(), 1000U);
  ASSERT_LT(part.size(), whole.size());
  dropEnd(part);
  EXPECT_TRUE(std::equal(part.begin(), part.end(), whole.begin()));
}

TEST_F(ReplayProgramTest, ServesACaptureOnTheLivePage) {
  const auto file = recordInto(scratch_, "3");
  const Arguments page = {"view", "--port", "0", "--exit-at-end", "--fast", "--replay"};
  const auto view = [&] {
    Arguments arguments = page;
    arguments.push_back(file.string());
    return runProgram(arguments);
  };
  const Finished whole = view();
  EXPECT_EQ(whole.exitCode, 0) << whole.errors;
  EXPECT_THAT(whole.output, HasSubstr("Live page: "));
  std::filesystem::resize_file(file, std::filesystem::file_size(file) / 2);
  const Finished cut = view();
  EXPECT_EQ(cut.exitCode, 1);
  EXPECT_THAT(cut.errorLines(),
              ElementsAre(StartsWith("zephly view: " + file.string() + ": at byte ")));
}

TEST_F(ReplayProgramTest, BadOptionsAreOneLineAndExitCode2) {
  const auto file = recordInto(scratch_, "1").string();
  for (const Arguments& arguments :
       {Arguments{}, Arguments{""}, Arguments{file, file}, Arguments{file, "--speed", "0"},
        Arguments{file, "--speed", "nan"}, Arguments{file, "--speed", "1", "--fast"},
        Arguments{file, "--fast=yes"}, Arguments{file, "--simulated"}}) {
    Arguments whole = arguments;
    whole.insert(whole.begin(), "replay");
    const Finished run = runProgram(whole);
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_THAT(run.output, IsEmpty());
    EXPECT_THAT(run.errorLines(), ElementsAre(StartsWith("zephly replay: ")));
  }
}

TEST_F(ReplayProgramTest, HelpListsEveryOption) {
  const Finished run = runProgram({"replay", "--help"});
  EXPECT_EQ(run.exitCode, 0);
  for (const char* option :
       {"FILE", "--speed", "--fast", "--json", "--diagnostics", "--require-all", "Exit code"}) {
    EXPECT_THAT(run.output, HasSubstr(option));
  }
  EXPECT_THAT(run.output, Not(HasSubstr("--simulated")));
}

}  // namespace
}  // namespace Zephly
