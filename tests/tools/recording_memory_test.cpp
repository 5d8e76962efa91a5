// SPDX-License-Identifier: MIT
// The built program playing recordings with little memory. Not with sanitizers, whose shadow memory
// needs more address space than these tests allow.

#include <tests/support/process.h>

#include <tests/support/captures.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <fstream>
#include <string>

namespace {

using testing::ElementsAre;

// The shell limits the memory: of the file, only the numbers are kept.
Finished playWithLittleMemory(const std::string& file, const std::string& rate) {
  return runOther("/bin/sh", {"-c", "ulimit -v 300000; exec \"$0\" \"$@\"", ZEPHLY_PROGRAM,
                              "monitor", "--json", "--simulated", "--recording", file, "--rate",
                              rate, "--duration", "0.1", "--speed", "1000"});
}

TEST(RecordingMemoryTest, FollowsTheNumbersAndNotTheFile) {
  // 320 MB: few numbers in long lines.
  const captures::ScratchDirectory scratch;
  const std::string file = scratch / "recording.csv";
  {
    std::ofstream text(file);
    text << "ECG,note\n";
    const std::string row = "1," + std::string(60'000, 'x') + "\n";
    for (int i = 0; i < 5'300; ++i) text << row;
  }
  const Finished run = playWithLittleMemory(file, "1000");
  EXPECT_EQ(run.exitCode, 0) << run.errors;
  const auto summary = nlohmann::json::parse(run.outputLines().back());
  EXPECT_EQ(summary.at("streams").at("ecg").at("recording").at("rows"), 5'300);
}

TEST(RecordingMemoryTest, TooLittleOfItIsOneLine) {
  const captures::ScratchDirectory scratch;
  const std::string file = scratch / "recording.csv";
  {
    std::ofstream text(file);
    text << "ECG\n";
    std::string rows;
    for (int i = 0; i < 1'000'000; ++i) rows += "1\n";
    for (int i = 0; i < 30; ++i) text << rows;
  }
  const Finished run = playWithLittleMemory(file, "1000");
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(run.errorLines(),
              ElementsAre("zephly monitor: " + file + ": not enough memory to load it"));
}

}  // namespace
