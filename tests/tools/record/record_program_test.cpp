// SPDX-License-Identifier: MIT
// The built program as a process: recording, the content of a recording, and the result of a kill,
// of a full disk and of other files than captures.

#include <capture/codec.h>
#include <tests/support/captures.h>
#include <tests/support/long_run.h>
#include <tests/support/process.h>
#include <tests/tools/record/recordings.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <nlohmann/json.hpp>
#include <algorithm>
#include <array>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <random>
#include <regex>
#include <string>
#include <vector>

namespace {

using captures::Bytes;
using captures::ReadBack;
using captures::ScratchDirectory;
using recordings::Arguments;
using recordings::inspected;
using recordings::record;
using recordings::recordWithoutBluetooth;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;
using Zephly::capture::CaptureError;
using Zephly::capture::Record;

template <class Kind>
std::ptrdiff_t countOf(const std::vector<Record>& records) {
  return std::count_if(records.begin(), records.end(),
                       [](const Record& one) { return std::holds_alternative<Kind>(one.what); });
}

// Wakes up on every write to a file of the directory, or on another event of it.
class FileWatch {
 public:
  explicit FileWatch(const std::filesystem::path& directory, std::uint32_t event = IN_MODIFY)
      : descriptor_(::inotify_init1(IN_CLOEXEC)) {
    ::inotify_add_watch(descriptor_, directory.c_str(), event);
  }
  ~FileWatch() { ::close(descriptor_); }
  FileWatch(const FileWatch&) = delete;
  FileWatch& operator=(const FileWatch&) = delete;

  void wait() const {
    std::array<char, 4096> events{};
    ASSERT_GT(::read(descriptor_, events.data(), events.size()), 0);
  }

 private:
  int descriptor_;
};

class RecordProgramTest : public testing::Test {
 protected:
  ScratchDirectory scratch_;
  std::filesystem::path file_ = scratch_ / "walk.zcap";
};

TEST_F(RecordProgramTest, RecordsASessionThatCanBeInspected) {
  const Finished run = runProgram(record(file_, 60, {"--seed", "4"}));
  EXPECT_EQ(run.exitCode, 0) << run.errors;
  EXPECT_THAT(run.errors, IsEmpty());
  EXPECT_THAT(run.output, HasSubstr("0:26 link lost: The connection has timed out"));
  EXPECT_THAT(run.output, HasSubstr("Recorded 1:00: "));

  const Finished inspection = runProgram({"inspect", file_.string()});
  EXPECT_EQ(inspection.exitCode, 0) << inspection.errors;
  EXPECT_THAT(inspection.output, HasSubstr("source       simulated strap, seed 4 (simulated)"));
  EXPECT_THAT(inspection.output, HasSubstr("end          orderly"));

  const auto json = inspected(file_);
  EXPECT_EQ(json["ended"], true);
  EXPECT_EQ(json["duration"], 60);
  EXPECT_EQ(json["linkLossCount"], 2);
  EXPECT_EQ(json["connectionCount"], 3);
  EXPECT_EQ(json["damageCount"], 0);
  EXPECT_GT(json["streams"][1]["samples"], 25'000);
  EXPECT_NEAR(json["streams"][1]["perSecond"], 500, 1);

  const ReadBack back = captures::readBack(file_);
  EXPECT_THAT(back.errors, IsEmpty());
  EXPECT_TRUE(back.ended);
  EXPECT_EQ(json["records"], back.records.size());
  EXPECT_TRUE(back.preamble->simulated);
}

TEST_F(RecordProgramTest, ShowsItsProgressOnATerminal) {
  Process process({"record", file_.string(), "--simulated"}, Process::Output::terminal,
                  {"TERM=xterm"});
  // Replaces the previous file.
  const std::regex redrawn("\r\x1B\\[K\\d:\\d\\d  connected, \\d+ records");
  EXPECT_TRUE(process.readUntil(redrawn));
  process.sendSignal(SIGINT);
  const Finished run = process.finish();
  EXPECT_EQ(run.exitCode, 0) << run.errors;
  EXPECT_THAT(run.output, HasSubstr("Recorded 0:"));
}

TEST_F(RecordProgramTest, WritesNoEscapeSequencesToADumbTerminal) {
  for (const std::string type : {"TERM=dumb", "TERM="}) {
    Process process({"record", file_.string(), "--simulated", "--duration", "2.5", "--force"},
                    Process::Output::terminal, {type});
    const Finished run = process.finish();
    EXPECT_EQ(run.exitCode, 0) << run.errors;
    EXPECT_THAT(run.output, HasSubstr("Recorded 0:02"));
    EXPECT_THAT(run.output, Not(HasSubstr("\x1B"))) << type;
  }
}

TEST_F(RecordProgramTest, ASessionWithoutAStrapIsOneLineAndExitCode1) {
  const Finished run = runProgram(recordWithoutBluetooth(file_));
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(run.output, HasSubstr("Recorded 0:00: "));
  EXPECT_THAT(run.errorLines(), ElementsAre("zephly record: no strap was connected at any time "
                                            "(see docs/troubleshooting.md)"));
}

TEST_F(RecordProgramTest, OnRequestAStreamWithoutASampleIsAnError) {
  EXPECT_EQ(runProgram(record(file_, 1)).exitCode, 0);
  const Finished some = runProgram(record(file_, 1, {"--require-all", "--force"}));
  EXPECT_EQ(some.exitCode, 1);
  EXPECT_THAT(some.errorLines(), ElementsAre("zephly record: never recorded: temperature",
                                             "zephly record: never recorded: battery"));
  const Finished all = runProgram(record(file_, 60, {"--require-all", "--force"}));
  EXPECT_EQ(all.exitCode, 0) << all.errors;
}

TEST_F(RecordProgramTest, StandardOutputIsNoCapture) {
  const Finished run = runProgram(record("-", 1));
  EXPECT_EQ(run.exitCode, 2);
  EXPECT_THAT(run.errorLines(),
              ElementsAre("zephly record: FILE: expected the name of a file, because a pipe cannot "
                          "hold a capture, got \"-\""));
  EXPECT_FALSE(std::filesystem::exists("-"));
}

TEST_F(RecordProgramTest, ASignalInTheFirstMomentEndsItCleanly) {
  constexpr int rounds = longRun(40, 10);
  for (int i = 0; i < rounds; ++i) {
    std::filesystem::create_directory(scratch_ / "early");
    const FileWatch watch(scratch_ / "early", IN_CREATE);
    const auto file = scratch_ / "early/walk.zcap";
    Process process({"record", file.string(), "--simulated"});
    watch.wait();
    process.sendSignal(SIGTERM);
    const Finished run = process.finish();
    // Whether the strap was connected before is a matter of time.
    ASSERT_LT(run.exitCode, 2) << run.errors;
    ASSERT_TRUE(captures::readBack(file).ended);
    std::filesystem::remove_all(scratch_ / "early");
  }
}

TEST_F(RecordProgramTest, SignalsEndItCleanly) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    Process process({"record", file_.string(), "--simulated", "--force"});
    ASSERT_TRUE(process.readUntil("connected"));
    process.sendSignal(signal);
    EXPECT_EQ(process.finish().exitCode, 0);
    EXPECT_TRUE(captures::readBack(file_).ended);
  }
}

TEST_F(RecordProgramTest, KeepsRecordingAtSignalsThatWereIgnoredAtItsStart) {
  Process process({"-c", "trap '' HUP INT; exec \"$0\" \"$@\"", ZEPHLY_PROGRAM, "record",
                   file_.string(), "--simulated", "--duration", "3"},
                  Process::Output::pipe, {}, "/bin/sh");
  ASSERT_TRUE(process.readUntil("connected"));
  process.sendSignal(SIGHUP);
  process.sendSignal(SIGINT);
  const Finished run = process.finish();
  EXPECT_EQ(run.exitCode, 0) << run.errors;
  EXPECT_THAT(run.output, HasSubstr("Recorded 0:03"));
}

TEST_F(RecordProgramTest, KeepsRecordingWhenItsReaderCloses) {
  Process process(record(file_, 40));
  process.closeOutput();
  EXPECT_EQ(process.finish().exitCode, 0);
  EXPECT_TRUE(captures::readBack(file_).ended);
}

TEST_F(RecordProgramTest, ReplacesAnExistingFileOnlyWithForce) {
  scratch_.file("walk.zcap", {'k', 'e', 'e', 'p'});
  const Finished refused = runProgram(record(file_, 1));
  EXPECT_EQ(refused.exitCode, 1);
  EXPECT_THAT(refused.errorLines(), ElementsAre(HasSubstr("walk.zcap: it exists already")));
  EXPECT_EQ(captures::contentOf(file_), (Bytes{'k', 'e', 'e', 'p'}));
  EXPECT_EQ(runProgram(record(file_, 1, {"--force"})).exitCode, 0);
  EXPECT_TRUE(captures::readBack(file_).ended);
}

TEST_F(RecordProgramTest, AnUnwritableFileIsOneLine) {
  const auto pipe = scratch_ / "pipe";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  for (const std::filesystem::path& place :
       {scratch_ / "no/such/place", scratch_.path(), std::filesystem::path("/dev/full"), pipe}) {
    const Finished run = runProgram(record(place, 1, {"--force"}));
    EXPECT_EQ(run.exitCode, 1) << place;
    EXPECT_THAT(run.errorLines(), ElementsAre(AllOf(StartsWith("zephly record: cannot write "),
                                                    HasSubstr(place.string()))));
  }
}

TEST_F(RecordProgramTest, AnUnusableSourceLeavesNoFile) {
  const Finished run =
      runProgram(record(file_, 1, {"--recording", "/nonexistent", "--rate", "500"}));
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(run.errorLines(), SizeIs(1));
  EXPECT_FALSE(std::filesystem::exists(file_));
}

TEST_F(RecordProgramTest, InvalidOptionsAreExitCode2) {
  for (const Arguments& arguments :
       {Arguments{"record"}, Arguments{"record", ""}, Arguments{"inspect"},
        Arguments{"inspect", "a", "b"}, Arguments{"record", "a", "--speed", "2"}}) {
    const Finished run = runProgram(arguments);
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_THAT(run.errorLines(), SizeIs(1));
  }
}

struct BadFile {
  std::string name;
  Bytes content;
  std::string expected;
};

std::vector<BadFile> badFiles() {
  const std::vector<Record> records = captures::someOfEach();
  const Bytes whole = captures::captureOf(records);
  const auto beginnings = captures::beginningsOf(records);
  Bytes flipped = whole;
  flipped[beginnings[3] + 40] ^= 4;
  Bytes later = whole;
  later[8] = 2;
  // With a valid checksum: CRC-32C of the 16 bytes.
  const std::uint32_t sum = Zephly::capture::checksum(std::span(later).first(16));
  for (std::size_t i = 0; i < 4; ++i) later[16 + i] = static_cast<std::uint8_t>(sum >> (8 * i));
  return {
      {"empty", {}, "at byte 0: an empty file"},
      {"text", {'a', '\n', 'b'}, "at byte 0: not a capture"},
      {"cut", {whole.begin(), whole.end() - 1}, "cut off in the middle of a record, 19 whole"},
      {"cutInTheHead", {whole.begin(), whole.begin() + 30}, "at byte 30: cut off in the preamble"},
      {"flipped", flipped, "at byte " + std::to_string(beginnings[3]) + ": damaged record"},
      {"later", later, "at byte 8: format version 2, this program reads version 1"}};
}

TEST_F(RecordProgramTest, AnIncompleteCaptureIsOneLineWithFileAndOffset) {
  for (const BadFile& bad : badFiles()) {
    const auto file = scratch_.file(bad.name, bad.content);
    for (const bool json : {false, true}) {
      Arguments arguments = {"inspect", file.string()};
      if (json) arguments.emplace_back("--json");
      const Finished run = runProgram(arguments);
      EXPECT_EQ(run.exitCode, 1) << bad.name;
      EXPECT_THAT(run.errorLines(),
                  ElementsAre(AllOf(StartsWith("zephly inspect: " + file.string()),
                                    HasSubstr(bad.expected))));
    }
  }
}

TEST_F(RecordProgramTest, InspectsTheReadablePartOfADamagedCapture) {
  const auto file = scratch_.file("flipped", badFiles()[4].content);
  const auto json = inspected(file);
  EXPECT_EQ(json["records"], 19);
  EXPECT_EQ(json["damageCount"], 1);
  EXPECT_THAT(json["damage"][0]["what"], HasSubstr("checksum is wrong"));
  EXPECT_THAT(runProgram({"inspect", file.string()}).output, HasSubstr("damage       at byte "));
}

TEST_F(RecordProgramTest, RefusesDirectoriesAndPipesImmediately) {
  const auto pipe = scratch_ / "pipe";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  EXPECT_THAT(runProgram({"inspect", pipe.string()}).errorLines(),
              ElementsAre(HasSubstr("pipe: is a pipe, not a regular file: save the")));
  const Finished run = runProgram({"inspect", scratch_.path().string()});
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(run.errorLines(), ElementsAre(HasSubstr(": is a directory, not a capture")));
}

TEST_F(RecordProgramTest, DoesNotCrashOnRandomBytes) {
  std::mt19937_64 random(91);
  const Bytes whole = captures::captureOf(captures::someOfEach());
  for (int round = 0; round < 40; ++round) {
    Bytes bytes = whole;
    for (int change = 0; change < 5; ++change) {
      const auto at = static_cast<std::ptrdiff_t>(random() % bytes.size());
      if (random() % 3 == 0) {
        bytes.erase(bytes.begin() + at, std::min(bytes.begin() + at + 9, bytes.end()));
      } else {
        bytes[static_cast<std::size_t>(at)] = static_cast<std::uint8_t>(random());
      }
    }
    // Half of them have random clocks and contents with valid checksums.
    if (round % 2 == 0) {
      bytes = captures::captureOf(captures::randomRecords(random, 50));
    }
    const Finished run = runProgram({"inspect", scratch_.file("c.zcap", bytes).string()});
    ASSERT_EQ(run.exitCode, 1) << "round " << round << "\n" << run.errors;
    ASSERT_THAT(run.errorLines(), SizeIs(1)) << "round " << round;
  }
}

// Bytes of the longest record of a session.
std::size_t longestRecord(const ReadBack& session) {
  std::size_t longest = 0;
  for (const Record& one : session.records) {
    longest = std::max(longest, Zephly::capture::encodeRecord(one, 0).size());
  }
  return longest;
}

// A record without the clocks of the machine.
bool alike(const Record& left, const Record& right) {
  return left.stamp.monotonic == right.stamp.monotonic && left.what == right.what;
}

constexpr int wholeSeconds = longRun(600, 120);
constexpr double latestKill = longRun(540, 90);

// Ten minutes of strap time, in which the link is lost every half a minute. One session is recorded
// to its end; the others, of the same seed, are killed as soon as their file has come to some size:
// most of them within the first half a minute, to save time, the others anywhere.
TEST_F(RecordProgramTest, AfterAKillTheFileIsReadableToItsLastCompleteRecord) {
  constexpr int seconds = 600;
  constexpr int kills = longRun(50, 6);
  constexpr int anywhere = longRun(10, 3);  // one in so many
  const auto wholeFile = scratch_ / "whole.zcap";
  ASSERT_EQ(runProgram(record(wholeFile, wholeSeconds)).exitCode, 0);
  const ReadBack whole = captures::readBack(wholeFile);
  ASSERT_TRUE(whole.ended);
  ASSERT_EQ(countOf<Zephly::capture::Disconnected>(whole.records), wholeSeconds / 30);
  const double bytesPerSecond =
      static_cast<double>(std::filesystem::file_size(wholeFile)) / wholeSeconds;

  std::filesystem::create_directory(scratch_ / "killed");
  const auto file = scratch_ / "killed" / "walk.zcap";
  const FileWatch watch(file.parent_path());
  std::mt19937_64 random(20'261'121);
  std::ptrdiff_t losses = 0;
  for (int i = 0; i < kills; ++i) {
    const double moment =
        std::uniform_real_distribution(0.0, i % anywhere == 0 ? latestKill : 30)(random);
    const auto wanted = static_cast<std::uintmax_t>(moment * bytesPerSecond);
    std::filesystem::remove(file);
    Process process(record(file, seconds));
    std::error_code absent;
    do {
      watch.wait();
    } while (std::filesystem::file_size(file, absent) < wanted || absent);
    process.sendSignal(SIGKILL);
    ASSERT_EQ(process.finish().exitCode, 128 + SIGKILL);

    const ReadBack back = captures::readBack(file);
    ASSERT_TRUE(back.preamble) << back.errors.front().what();
    ASSERT_FALSE(back.ended);
    // A prefix of the complete file without its end record.
    const std::size_t common = std::min(back.records.size(), whole.records.size() - 1);
    ASSERT_TRUE(std::equal(whole.records.begin(),
                           whole.records.begin() + static_cast<std::ptrdiff_t>(common),
                           back.records.begin(), alike));
    losses += countOf<Zephly::capture::Disconnected>(back.records);
    if (back.errors.empty()) continue;
    // Only the record being written may be truncated.
    ASSERT_THAT(back.errors, SizeIs(1));
    ASSERT_EQ(back.errors[0].kind(), CaptureError::Kind::cut) << back.errors[0].what();
    ASSERT_LT(std::filesystem::file_size(file) - back.errors[0].offset(), longestRecord(whole));
  }
  EXPECT_GE(losses, longRun(5, 1));
}

}  // namespace
