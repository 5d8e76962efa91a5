// SPDX-License-Identifier: MIT
// The n-th call of a function of the system fails, for whole commands. The rule: exit code 0 and
// the full result, or a sentence and another exit code; what existed is there afterwards.

#include <tests/failures/content.h>
#include <tests/support/process.h>

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <ostream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace {

namespace fs = std::filesystem;
using failures::contentOf;

constexpr int shortWrite = -1;  // for failing_calls.c

// The errors that the manual page of each function allows, as far as they can happen here.
const std::map<std::string, std::vector<int>> errorsOf = {
    {"open", {EACCES, EMFILE, ENOMEM, ENOSPC}},
    {"read", {EIO, EINTR}},
    {"write", {ENOSPC, EIO, EINTR, EAGAIN, shortWrite}},
    {"fsync", {EIO, ENOSPC, EINTR}},
    {"fdatasync", {EIO, ENOSPC, EINTR}},
    {"rename", {EACCES, ENOSPC, EXDEV}},
    {"ftruncate", {EIO, EINTR}},
    {"mmap", {ENOMEM}},
    {"malloc", {ENOMEM}},
};

struct Command {
  std::string name;
  std::vector<std::string> arguments;  ///< IN is a capture, OUT a name without an ending
  std::vector<std::string> outputs;    ///< endings of the files that it writes
};

void PrintTo(const Command& command, std::ostream* stream) { *stream << command.name; }

bool isCapture(const fs::path& path) {
  return !runProgram({"inspect", path.string()}).output.empty();
}

class FailuresTest : public testing::TestWithParam<Command> {
 protected:
  FailuresTest()
      : folder_(fs::path(testing::TempDir()) / ("failures-" + std::to_string(::getpid()))) {
    fs::create_directories(folder_);
    const Finished made = runProgram({"record", (folder_ / "in.zcap").string(), "--simulated",
                                      "--duration", "2", "--speed", "1000"});
    EXPECT_EQ(made.exitCode, 0) << made.errors;
  }
  ~FailuresTest() override { fs::remove_all(folder_); }

  Finished run(const std::vector<std::string>& environment) {
    std::vector<std::string> arguments;
    for (const std::string& argument : GetParam().arguments) {
      arguments.push_back(argument == "IN"              ? (folder_ / "in.zcap").string()
                          : argument.starts_with("OUT") ? output(argument.substr(3)).string()
                                                        : argument);
    }
    std::vector<std::string> all = {"LD_PRELOAD=" ZEPHLY_FAILING_CALLS};
    all.insert(all.end(), environment.begin(), environment.end());
    Process process(arguments, Process::Output::pipe, all);
    return process.finish();
  }

  fs::path output(const std::string& ending) const { return folder_ / ("out" + ending); }

  // Every output exists already, with a content that must not be lost.
  void prepare() {
    for (const std::string& ending : GetParam().outputs) {
      fs::remove_all(output(ending));
      std::ofstream(output(ending)) << "precious\n";
    }
  }

  std::map<std::string, std::string> outputs() const {
    std::map<std::string, std::string> contents;
    for (const std::string& ending : GetParam().outputs)
      contents[ending] = contentOf(output(ending));
    return contents;
  }

  std::map<std::string, long> countCalls() {
    const fs::path counts = folder_ / "counts";
    prepare();
    const Finished reference = run({"FAIL_COUNTS=" + counts.string()});
    EXPECT_EQ(reference.exitCode, 0) << reference.errors;
    reference_ = reference.output;
    referenceOutputs_ = outputs();
    std::map<std::string, long> result;
    std::ifstream file(counts);
    std::string name;
    for (long count = 0; file >> name >> count;) result[name] = count;
    return result;
  }

  void judge(const Finished& finished) {
    ++runs_;
    if (finished.exitCode == 0) {
      EXPECT_EQ(finished.output, reference_);
      for (const auto& [ending, content] : outputs()) {
        // A capture has the time of its recording in it: its size says whether it is whole.
        EXPECT_EQ(content.size(), referenceOutputs_.at(ending).size()) << ending;
      }
      return;
    }
    ++failed_;
    EXPECT_LT(finished.exitCode, 128) << "ended by a signal\n" << finished.errors;
    EXPECT_TRUE(finished.errors.starts_with("zephly")) << '"' << finished.errors << '"';
    EXPECT_EQ(finished.errors.find("std::"), std::string::npos) << finished.errors;
    for (const auto& [ending, content] : outputs()) {
      // A capture replaces the old one when a connection has been recorded, and then grows.
      const bool readable = ending == ".zcap" && isCapture(output(ending));
      EXPECT_TRUE(readable || content == "precious\n" ||
                  content.size() == referenceOutputs_.at(ending).size())
          << ending << " has " << content.size() << " bytes";
    }
  }

  fs::path folder_;
  std::string reference_;
  std::map<std::string, std::string> referenceOutputs_;
  int runs_ = 0;
  int failed_ = 0;
};

TEST_P(FailuresTest, EndWithASentenceOrTheFullResult) {
  const auto counts = countCalls();
  ASSERT_EQ(counts.size(), errorsOf.size());
  for (const auto& [function, errors] : errorsOf) {
    // Not the last allocations: destructors that allocate (those of the JSON library and of the
    // simulated radio) end the program by abort when they cannot. See docs/reliability.md.
    const long all = counts.at(function);
    const long count = function == "malloc" ? all * 9 / 10 : all;
    std::size_t turn = 0;
    // All of the first calls, then fewer and fewer, and the last ones.
    std::vector<long> places;
    for (long n = 1; n <= count; n += std::max(1L, n / 3)) places.push_back(n);
    if (count > 1) places.push_back(count);
    for (const long n : places) {
      const int error = errors.at(turn++ % errors.size());
      SCOPED_TRACE(function + ", call " + std::to_string(n) + " of " + std::to_string(count) +
                   ", error " + std::to_string(error));
      prepare();
      judge(run({"FAIL_CALL=" + function, "FAIL_AT=" + std::to_string(n),
                 "FAIL_ERRNO=" + std::to_string(error)}));
    }
  }
  EXPECT_GT(failed_, 5);
  RecordProperty("runs", runs_);
}

// The shell closes what it has inherited, so that the dynamic linker has a descriptor left.
TEST(FailuresLimitTest, TooFewDescriptorsAreASentence) {
  const Finished run = runOther(
      "/bin/sh", {"-c", "exec 3>&- 4>&- 5>&- 6>&- 7>&- 8>&- 9>&-; ulimit -n 4; exec \"$0\" \"$@\"",
                  ZEPHLY_PROGRAM, "monitor", "--simulated", "--duration", "1"});
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_TRUE(run.errors.starts_with("zephly monitor: ")) << run.errors;
  EXPECT_TRUE(run.errors.ends_with(": Too many open files\n")) << run.errors;
}

INSTANTIATE_TEST_SUITE_P(
    Program, FailuresTest,
    testing::Values(Command{"Inspect", {"inspect", "IN", "--json"}, {}},
                    Command{"Export", {"export", "IN", "--edf", "OUT.edf", "--force"}, {".edf"}},
                    Command{
                        "Replay",
                        {"replay", "IN", "--fast", "--json", "--diagnostics", "OUT.txt", "--force"},
                        {".txt"}},
                    Command{"Record",
                            {"record", "OUT.zcap", "--simulated", "--duration", "1", "--speed",
                             "1000", "--force"},
                            {".zcap"}}),
    [](const auto& instance) { return instance.param.name; });

}  // namespace
