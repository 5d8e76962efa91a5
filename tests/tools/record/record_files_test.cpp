// SPDX-License-Identifier: MIT
// The built program as a process: the files of a recording on a full disk, over an old file,
// through a link, and over its own input.

#include <tests/support/captures.h>
#include <tests/support/long_run.h>
#include <tests/support/process.h>
#include <tests/tools/record/recordings.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <nlohmann/json.hpp>
#include <csignal>
#include <filesystem>
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
using testing::ContainsRegex;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class RecordFilesTest : public testing::Test {
 protected:
  ScratchDirectory scratch_;
  std::filesystem::path file_ = scratch_ / "walk.zcap";
};

constexpr rlim_t mostBytes = longRun(300'000, 150'000);

// The program inherits the limit of the size of a file.
class SizeLimit {
 public:
  SizeLimit() : handler_(std::signal(SIGXFSZ, SIG_DFL)) {
    EXPECT_EQ(::getrlimit(RLIMIT_FSIZE, &before_), 0);
    const rlimit limit{mostBytes, before_.rlim_max};
    EXPECT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
  }
  ~SizeLimit() {
    EXPECT_EQ(::setrlimit(RLIMIT_FSIZE, &before_), 0);
    static_cast<void>(std::signal(SIGXFSZ, handler_));
  }
  SizeLimit(const SizeLimit&) = delete;
  SizeLimit& operator=(const SizeLimit&) = delete;

 private:
  rlimit before_{};
  void (*handler_)(int);
};

TEST_F(RecordFilesTest, ContinuesInAnotherFileWhenOneCannotBeWritten) {
  constexpr int seconds = longRun(60, 30);
  const Arguments all = record(file_, seconds);
  const Finished run = [&] {
    const SizeLimit limit;
    return runProgram(all);
  }();
  EXPECT_EQ(run.exitCode, 0) << run.errors;
  const std::vector<std::string> errors = run.errorLines();
  ASSERT_FALSE(errors.empty());
  EXPECT_THAT(errors.front(), AllOf(HasSubstr("the recording continues in "),
                                    HasSubstr("walk.2.zcap, nothing was lost")));
  EXPECT_THAT(run.output, HasSubstr(" in " + std::to_string(errors.size() + 1) + " files"));
  EXPECT_LE(std::filesystem::file_size(file_), mostBytes);

  // The same session in one file.
  const auto whole = scratch_ / "whole.zcap";
  ASSERT_EQ(runProgram(record(whole, seconds)).exitCode, 0);
  const auto expected = inspected(whole);
  const auto continued = inspected(file_);
  EXPECT_EQ(continued["damageCount"], 0);
  EXPECT_EQ(continued["ended"], true);
  EXPECT_EQ(continued["files"], errors.size() + 1);
  EXPECT_EQ(continued["records"], expected["records"]);
  EXPECT_EQ(continued["streams"], expected["streams"]);
  const auto linesOfReplay = [](const std::filesystem::path& file) {
    return runProgram({"replay", file.string(), "--fast", "--json"});
  };
  const Finished replayed = linesOfReplay(file_);
  EXPECT_EQ(replayed.exitCode, 0) << replayed.errors;
  EXPECT_EQ(replayed.output, linesOfReplay(whole).output);
  const auto csv = scratch_ / "csv";
  EXPECT_EQ(runProgram({"export", file_.string(), "--csv", csv.string()}).exitCode, 0);

  // A file in the middle is no recording of its own.
  const Finished alone = linesOfReplay(scratch_ / "walk.2.zcap");
  EXPECT_EQ(alone.exitCode, 1);
  EXPECT_THAT(alone.errorLines(), ElementsAre(HasSubstr("part 2 of a recording")));
}

// With --force it would be lost, and with it the rest of the recording.
TEST_F(RecordFilesTest, NeverReplacesAFileThatContinuesAnInput) {
  {
    const SizeLimit limit;
    ASSERT_EQ(runProgram(record(file_, 20)).exitCode, 0);
  }
  const std::string second = (scratch_ / "walk.2.zcap").string();
  const Bytes before = captures::contentOf(second);
  ASSERT_FALSE(before.empty());
  const std::string refusal =
      ": cannot write " + second + ": it continues the input " + file_.string();
  for (const Arguments& arguments :
       {Arguments{"export", file_.string(), "--edf", second},
        Arguments{"vitals", file_.string(), "--beats", second},
        Arguments{"vitals", file_.string(), "--annotations", second},
        Arguments{"replay", file_.string(), "--fast", "--diagnostics", second}}) {
    Arguments forced = arguments;
    forced.emplace_back("--force");
    const Finished run = runProgram(forced);
    EXPECT_EQ(run.exitCode, 1) << arguments[0];
    EXPECT_THAT(run.errorLines(), ElementsAre("zephly " + arguments[0] + refusal));
    EXPECT_TRUE(captures::contentOf(second) == before) << arguments[0];
  }
}

TEST_F(RecordFilesTest, SaysHowMuchWasRecordedWhenTheDiskStaysFull) {
  const auto folder = scratch_ / "folder";
  std::filesystem::create_directory(folder);
  const Finished run = [&] {
    const SizeLimit limit;
    Process process({"record", (folder / "walk.zcap").string(), "--simulated", "--speed", "20",
                     "--duration", "60"});
    EXPECT_TRUE(process.readUntil("connected"));
    // No other file can be created from now on.
    std::filesystem::rename(folder, scratch_ / "moved");
    return process.finish();
  }();
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(
      run.errorLines(),
      ElementsAre(AllOf(HasSubstr("walk.2.zcap: No such file or directory; recorded until "),
                        HasSubstr("trying to continue in another file")),
                  ContainsRegex("; recorded until 0:[0-9][0-9], [0-9]+ records lost$")));
  EXPECT_THAT(run.output, HasSubstr("0:56 link lost"));
  const ReadBack back = captures::readBack(scratch_ / "moved/walk.zcap");
  EXPECT_THAT(back.errors, IsEmpty());
  EXPECT_GT(back.records.size(), 1000U);
  const Finished inspection = runProgram({"inspect", (scratch_ / "moved/walk.zcap").string()});
  EXPECT_EQ(inspection.exitCode, 1);
  EXPECT_THAT(inspection.errorLines(), ElementsAre(HasSubstr("ends without an end record")));
}

TEST_F(RecordFilesTest, AnOldFileStaysWhenNoStrapWasConnected) {
  const Bytes old = {'k', 'e', 'e', 'p'};
  scratch_.file("walk.zcap", old);
  Arguments arguments = recordWithoutBluetooth(file_);
  arguments.insert(arguments.end(), {"--force", "--csv", (scratch_ / "csv").string()});
  const Finished run = runProgram(arguments);
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(run.output, HasSubstr("walk.zcap was not replaced."));
  EXPECT_EQ(captures::contentOf(file_), old);
  EXPECT_FALSE(std::filesystem::exists(scratch_ / "csv/ecg.csv"));
}

TEST_F(RecordFilesTest, AnInputIsNeverAnOutput) {
  const Bytes rows = {'E', 'C', 'G', '\n', '0', '\n'};
  const auto csv = scratch_.file("r.csv", rows);
  std::filesystem::create_hard_link(csv, scratch_ / "hard");
  std::filesystem::create_symlink(csv, scratch_ / "symbolic");
  for (const auto& output : {csv, scratch_ / "hard", scratch_ / "symbolic"}) {
    const Finished run =
        runProgram(record(output, 1, {"--force", "--recording", csv.string(), "--rate", "500"}));
    EXPECT_EQ(run.exitCode, 1) << output;
    EXPECT_THAT(run.errorLines(), ElementsAre(HasSubstr("it is the input ")));
    EXPECT_EQ(captures::contentOf(csv), rows);
  }
  const Finished edf = runProgram(record(
      file_, 1, {"--force", "--recording", csv.string(), "--rate", "500", "--edf", csv.string()}));
  EXPECT_THAT(edf.errorLines(), ElementsAre(HasSubstr("it is the input ")));
  EXPECT_EQ(captures::contentOf(csv), rows);
}

TEST_F(RecordFilesTest, ASymbolicLinkStaysAndItsTargetIsReplaced) {
  scratch_.file("target.zcap", {'o', 'l', 'd'});
  std::filesystem::create_symlink("target.zcap", file_);
  EXPECT_EQ(runProgram(record(file_, 1)).exitCode, 1);
  EXPECT_EQ(runProgram(record(file_, 1, {"--force"})).exitCode, 0);
  EXPECT_TRUE(std::filesystem::is_symlink(file_));
  EXPECT_TRUE(captures::readBack(scratch_ / "target.zcap").ended);
  const auto broken = scratch_ / "broken.zcap";
  std::filesystem::create_symlink("nothing", broken);
  EXPECT_THAT(runProgram(record(broken, 1, {"--force"})).errorLines(),
              ElementsAre(HasSubstr("a symbolic link to a file that does not exist")));
}

}  // namespace
