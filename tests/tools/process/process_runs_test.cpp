// SPDX-License-Identifier: MIT
// `zephly process` as a process: runs that are repeated, interrupted, killed, or side by side.

#include <tests/support/captures.h>
#include <tests/support/process.h>
#include <tests/tools/process/process_fixture.h>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

using process_test::bytesOf;
using process_test::contentsBelow;
using process_test::namesBelow;
using process_test::process;
using process_test::textOf;
using testing::ElementsAre;
using testing::HasSubstr;

class ProcessRunsTest : public process_test::Fixture {
 protected:
  static ino_t inodeOf(const fs::path& file) {
    struct stat status {};
    EXPECT_EQ(::stat(file.c_str(), &status), 0) << file;
    return status.st_ino;
  }

  // Whether the result was written again, in place of being skipped.
  bool isRedone(const std::vector<std::string>& more = {}) {
    const ino_t before = inodeOf(result("rest"));
    std::vector<std::string> arguments = {capture("rest"), "--out", out_};
    arguments.insert(arguments.end(), more.begin(), more.end());
    const Finished run = process(arguments);
    EXPECT_EQ(run.exitCode, 0) << run.errors;
    const bool redone = inodeOf(result("rest")) != before;
    EXPECT_THAT(run.output, HasSubstr(redone ? "1 done, 0 already" : "0 done, 1 already"));
    return redone;
  }

  // The directory that a run of `walk` writes; empty when it ends before there is one.
  fs::path unfinishedOf(const Process& running) const {
    for (int i = 0; i < 6000 && !running.waitForEnd(std::chrono::seconds(0)); ++i) {
      if (fs::exists(out_)) {
        for (const std::string& name : namesBelow(out_)) {
          if (name.starts_with("walk.part-")) return out_ / name;
        }
      }
      ::usleep(10'000);
    }
    return {};
  }

  // Until nothing unfinished is left.
  bool isTidyInTime() const {
    for (int i = 0; i < 6000; ++i) {
      const std::vector<std::string> names = namesBelow(out_);
      if (std::none_of(names.begin(), names.end(), [](const std::string& name) {
            return name.find(".part-") != std::string::npos;
          })) {
        return true;
      }
      ::usleep(10'000);
    }
    return false;
  }
};

TEST_F(ProcessRunsTest, SkipsWhatIsDone) {
  ASSERT_EQ(process({capture("rest"), "--out", out_}).exitCode, 0);
  EXPECT_FALSE(isRedone());
}

TEST_F(ProcessRunsTest, RedoesWhatIsNoLongerRight) {
  ASSERT_EQ(process({capture("rest"), "--out", out_}).exitCode, 0);
  const auto events = bytesOf(result("rest") / "events.csv");
  // A byte of an output, with its size.
  std::fstream(result("rest") / "events.csv") << "T";
  EXPECT_TRUE(isRedone());
  EXPECT_EQ(bytesOf(result("rest") / "events.csv"), events);
  fs::remove(result("rest") / "summary.json");
  EXPECT_TRUE(isRedone());
  fs::resize_file(result("rest") / "manifest.json", 100);
  EXPECT_TRUE(isRedone());
  EXPECT_TRUE(isRedone({"--csv"})) << "other options";
  EXPECT_FALSE(isRedone({"--csv"}));
  EXPECT_TRUE(isRedone()) << "the first options again";
  EXPECT_EQ(namesBelow(result("rest")).size(), 4U);
}

TEST_F(ProcessRunsTest, RedoesAChangedCapture) {
  const fs::path file = scratch_ / "a.zcap";
  fs::copy_file(capture("rest"), file);
  ASSERT_EQ(process({file, "--out", out_}).exitCode, 0);
  const auto before = bytesOf(result("a") / "manifest.json");
  fs::copy_file(capture("walk"), file, fs::copy_options::overwrite_existing);
  ASSERT_EQ(process({file, "--out", out_}).exitCode, 0);
  EXPECT_NE(bytesOf(result("a") / "manifest.json"), before);
}

TEST_F(ProcessRunsTest, SweepsWhatKilledRunsHaveLeft) {
  const auto leave = [&](const std::string& name) {
    fs::create_directories(out_ / name);
    for (const char* file : {"ecg.csv", "signals.edf.part-4711", "summary.json"}) {
      std::ofstream(out_ / name / file) << "half\n";
    }
    return out_ / name;
  };
  leave("gone.part-4711");
  const fs::path used = leave("used.part-4712");
  const int lock = ::open(used.c_str(), O_RDONLY | O_DIRECTORY);
  ASSERT_EQ(::flock(lock, LOCK_EX | LOCK_NB), 0);
  const fs::path foreign = leave("foreign.part-4713");
  std::ofstream(foreign / "precious") << "precious\n";
  EXPECT_EQ(process({"--out", out_}).exitCode, 0);
  EXPECT_THAT(namesBelow(out_), ElementsAre("cohort.csv", "foreign.part-4713", "used.part-4712"));
  EXPECT_EQ(namesBelow(used).size(), 3U);
  EXPECT_THAT(namesBelow(foreign), ElementsAre("precious"));
  ::close(lock);
}

TEST_F(ProcessRunsTest, CtrlCEndsItAndLosesNothingFinished) {
  ASSERT_EQ(process({capture("rest"), "--out", out_}).exitCode, 0);
  const auto before = contentsBelow(result("rest"));
  Process running({"process", capture("rest"), capture("walk"), "--out", out_, "--csv"});
  ASSERT_FALSE(unfinishedOf(running).empty());
  running.sendSignal(SIGINT);
  const Finished run = running.finishWithin(std::chrono::seconds(30));
  EXPECT_EQ(run.exitCode, 130);
  EXPECT_THAT(run.errors, HasSubstr("interrupted"));
  EXPECT_EQ(run.errorLines().size(), 1U) << run.errors;
  EXPECT_TRUE(isTidyInTime());
  EXPECT_FALSE(fs::exists(result("walk")));
  ASSERT_EQ(process({capture("rest"), capture("walk"), "--out", out_}).exitCode, 0);
  EXPECT_EQ(contentsBelow(result("rest")), before);
}

TEST_F(ProcessRunsTest, WorkersEndWithTheirProcess) {
  Process running({"process", capture("walk"), "--out", out_, "--csv"});
  ASSERT_FALSE(unfinishedOf(running).empty());
  running.sendSignal(SIGKILL);
  running.finish();
  EXPECT_TRUE(isTidyInTime());
  EXPECT_FALSE(fs::exists(result("walk")));
}

TEST_F(ProcessRunsTest, TwoRunsAtTheSameTimeGiveTheResultsOfOne) {
  const fs::path alone = scratch_ / "alone";
  ASSERT_EQ(process({capture("walk"), capture("rest"), "--out", alone}).exitCode, 0);
  const std::vector<std::string> arguments = {
      "process", capture("walk"), capture("rest"), "--out", out_, "--jobs", "2"};
  Process one(arguments);
  Process other(arguments);
  const Finished first = one.finish();
  const Finished second = other.finish();
  EXPECT_EQ(first.exitCode, 0) << first.errors;
  EXPECT_EQ(second.exitCode, 0) << second.errors;
  EXPECT_EQ(contentsBelow(out_), contentsBelow(alone));
  EXPECT_TRUE(isTidyInTime());
}

// As on a full disk: a file cannot grow beyond 100 kB.
TEST_F(ProcessRunsTest, ALackOfSpaceLeavesNothingAndIsASentence) {
  for (const char* form : {"--csv", "--edf", "--hdf5"}) {
    const Finished run =
        runOther("/bin/sh", {"-c", "ulimit -f 200; exec \"$0\" \"$@\"", ZEPHLY_PROGRAM, "process",
                             capture("walk"), "--out", out_, form});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.errorLines().size(), 1U) << run.errors;
    EXPECT_THAT(run.errors, HasSubstr("zephly process: cannot write "));
    EXPECT_THAT(run.errors, HasSubstr("File too large"));
    EXPECT_THAT(namesBelow(out_), ElementsAre("cohort.csv"));
  }
}

}  // namespace
