// SPDX-License-Identifier: MIT
// The n-th call of a function of the system fails while captures are processed, in the process that
// distributes the work and in the one that does it. Whatever that leaves, the next run makes it
// right.

#include <tests/failures/content.h>
#include <tests/support/process.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <map>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

struct Failure {
  const char* name;
  const char* function;
  int error;  // -1, of write: writes only a part
  bool lasting = false;
};

void PrintTo(const Failure& failure, std::ostream* stream) { *stream << failure.name; }

using Results = std::map<std::string, std::string>;

// The names of the files that are not the same in both.
std::vector<std::string> differences(const Results& results, const Results& expected) {
  std::vector<std::string> names;
  for (const auto& [name, content] : expected) {
    const auto found = results.find(name);
    if (found == results.end()) names.push_back("missing: " + name);
    if (found != results.end() && found->second != content) names.push_back("other: " + name);
  }
  for (const auto& [name, content] : results) {
    if (!expected.contains(name)) names.push_back("additional: " + name);
  }
  return names;
}

class ProcessFailuresTest : public testing::TestWithParam<Failure> {
 protected:
  ProcessFailuresTest()
      : folder_(fs::path(testing::TempDir()) / ("process-failures-" + std::to_string(::getpid()))) {
    fs::create_directories(folder_);
    const Finished made = runProgram(
        {"record", capture().string(), "--simulated", "--duration", "2", "--speed", "1000"});
    EXPECT_EQ(made.exitCode, 0) << made.errors;
  }
  ~ProcessFailuresTest() override { fs::remove_all(folder_); }

  fs::path capture() const { return folder_ / "in.zcap"; }
  fs::path out() const { return folder_ / "out"; }

  Finished run(const std::vector<std::string>& environment) const {
    return Process({"process", capture().string(), "--out", out().string(), "--hdf5", "--edf"},
                   Process::Output::pipe, environment)
        .finishWithin(10s);
  }

  // Every file of the results, by its name.
  Results results() const {
    Results contents;
    if (!fs::exists(out())) return contents;
    for (const auto& entry : fs::recursive_directory_iterator(out())) {
      if (!entry.is_directory()) {
        contents[fs::relative(entry.path(), out()).string()] = failures::contentOf(entry.path());
      }
    }
    return contents;
  }

  fs::path folder_;
};

TEST_P(ProcessFailuresTest, EndWithASentenceAndTheNextRunIsRight) {
  const Failure& failure = GetParam();
  ASSERT_EQ(run({}).exitCode, 0);
  const Results expected = results();
  ASSERT_EQ(expected.size(), 6U);
  int failed = 0;
  // Each of the few calls, and fewer and fewer of the many.
  const bool isRare = failure.error == ENOSPC && std::string_view(failure.function) == "rename";
  for (long n = 1, done = 0; done < 2; n += 1 + (isRare ? 0 : n)) {
    SCOPED_TRACE(std::string(failure.function) + ", call " + std::to_string(n));
    fs::remove_all(out());
    std::vector<std::string> environment = {
        "LD_PRELOAD=" ZEPHLY_FAILING_CALLS, std::string("FAIL_CALL=") + failure.function,
        "FAIL_AT=" + std::to_string(n), "FAIL_ERRNO=" + std::to_string(failure.error)};
    if (failure.lasting) environment.emplace_back("FAIL_FOREVER=1");
    const Finished broken = run(environment);
    ASSERT_LT(broken.exitCode, 128) << broken.errors;
    EXPECT_EQ(broken.errors.find("std::"), std::string::npos) << broken.errors;
    if (broken.exitCode == 0) {
      ++done;
      EXPECT_THAT(differences(results(), expected), testing::IsEmpty()) << broken.errors;
      continue;
    }
    done = 0;
    ++failed;
    // What cannot be written at all is no sentence either.
    if (!failure.lasting || std::string_view(failure.function) != "write") {
      EXPECT_TRUE(broken.errors.starts_with("zephly")) << broken.errors;
    }
    const Finished again = run({});
    EXPECT_EQ(again.exitCode, 0) << again.errors;
    EXPECT_THAT(differences(results(), expected), testing::IsEmpty()) << broken.errors;
  }
  EXPECT_TRUE(failed > 0 || failure.error == EINTR || failure.error == -1);
}

INSTANTIATE_TEST_SUITE_P(
    Process, ProcessFailuresTest,
    testing::Values(Failure{"Open", "open", EMFILE}, Failure{"Read", "read", EIO},
                    Failure{"ReadInterrupted", "read", EINTR},
                    Failure{"WriteDiskFull", "write", ENOSPC},
                    Failure{"WriteDiskFullForGood", "write", ENOSPC, true},
                    Failure{"WritePart", "write", -1}, Failure{"Fsync", "fsync", EIO},
                    Failure{"Rename", "rename", ENOSPC}, Failure{"Memory", "malloc", ENOMEM},
                    Failure{"MemoryForGood", "malloc", ENOMEM, true}),
    [](const auto& instance) { return instance.param.name; });

}  // namespace
