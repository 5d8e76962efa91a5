// SPDX-License-Identifier: MIT
// The built program playing recordings.

#include <tests/support/process.h>

#include <tests/support/captures.h>
#include <tests/support/long_run.h>
#include <tests/support/recording.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <unistd.h>

#include <cmath>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <ostream>
#include <string>
#include <vector>

namespace {

using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// A temporary CSV file of one test.
class File {
 public:
  explicit File(const std::string& text)
      : path_(std::filesystem::path(testing::TempDir()) /
              ("recording-" + std::to_string(::getpid()) + ".csv")) {
    std::ofstream(path_) << text;
  }
  File(const File&) = delete;
  File& operator=(const File&) = delete;
  ~File() { std::filesystem::remove(path_); }

  std::string path() const { return path_.string(); }

 private:
  std::filesystem::path path_;
};

Finished play(const std::string& file, const std::string& rate) {
  return runProgram({"monitor", "--simulated", "--recording", file, "--rate", rate, "--json",
                     "--speed", "10000"});
}

// The summary's entry of one stream.
json streamOf(const Finished& run, const std::string& stream) {
  const std::vector<std::string> lines = run.outputLines();
  if (lines.empty()) return {};
  return json::parse(lines.back()).at("streams").at(stream);
}

std::size_t eventCount(const Finished& run, const std::string& kind) {
  std::size_t count = 0;
  for (const std::string& line : run.outputLines()) {
    count += line.find(R"("event":")" + kind + R"(")") != std::string::npos ? 1 : 0;
  }
  return count;
}

void expectEverySampleArrived(const Finished& run, const std::string& stream, std::size_t rows,
                              std::size_t samples) {
  const json entry = streamOf(run, stream);
  EXPECT_EQ(entry.at("recording").at("rows"), rows) << entry;
  EXPECT_EQ(entry.at("recording").at("samples"), samples) << entry;
  const std::size_t filled = entry.at("recording").at("filled").get<std::size_t>();
  EXPECT_LT(filled, 6U);
  EXPECT_EQ(entry.at("sent"), samples + filled);
  EXPECT_EQ(entry.at("delivered"), samples + filled);
  EXPECT_EQ(entry.at("lost"), 0);
  EXPECT_EQ(eventCount(run, stream), samples + filled);
}

TEST(RecordingTest, EverySampleOfASmallFileArrivesAndTheProgramEnds) {
  std::string text = "ECG,RSP\n";
  for (int row = 0; row < 700; ++row) {
    text += std::to_string(std::sin(row * 0.5)) + "," + std::to_string(std::cos(row * 0.02)) + "\n";
  }
  const File file(text);
  const Finished run = play(file.path(), "100");
  EXPECT_EQ(run.exitCode, 0) << run.errors;
  expectEverySampleArrived(run, "ecg", 700, 3500);
  expectEverySampleArrived(run, "respiration", 700, 3500);
}

TEST(RecordingTest, EverySampleOfFiveMinutesArrives) {
  const auto rows = longRun<std::size_t>(30'000, 3'000);
  std::ifstream whole(recordingPath("resting_5min_100hz.csv"));
  std::string text;
  std::string line;
  for (std::size_t index = 0; index <= rows && std::getline(whole, line); ++index) {
    text += line + "\n";
  }
  const File file(text);
  const Finished run = play(file.path(), "100");
  EXPECT_EQ(run.exitCode, 0) << run.errors;
  expectEverySampleArrived(run, "ecg", rows, rows * 5);
  expectEverySampleArrived(run, "respiration", rows, rows * 5);
}

// The standard session loses its link for two seconds.
TEST(RecordingTest, PlaysTheFilesOfAnExportWithTheirGaps) {
  const std::filesystem::path folder = std::filesystem::path(testing::TempDir()) /
                                       ("recording-export-" + std::to_string(::getpid()));
  std::filesystem::create_directories(folder);
  const std::string capture = (folder / "walk.zcap").string();
  const std::string csv = (folder / "csv").string();
  ASSERT_EQ(runProgram({"record", capture, "--simulated", "--speed", "1000", "--duration", "32"})
                .exitCode,
            0);
  ASSERT_EQ(runProgram({"export", capture, "--csv", csv}).exitCode, 0);
  const Finished ecg = play(csv + "/ecg.csv", "500");
  EXPECT_EQ(ecg.exitCode, 0) << ecg.errors;
  const json entry = streamOf(ecg, "ecg");
  EXPECT_EQ(entry.at("lost"), 0);
  EXPECT_GT(entry.at("recording").at("rows"), 14'000);
  EXPECT_GT(entry.at("longestGap"), 1.4) << "the stretch without a link";
  const Finished respiration = play(csv + "/respiration.csv", "500");
  EXPECT_EQ(respiration.exitCode, 0) << respiration.errors;
  EXPECT_GT(streamOf(respiration, "respiration").at("longestGap"), 1.4);
  const Finished temperature = play(csv + "/temperature.csv", "1");
  EXPECT_EQ(temperature.exitCode, 0) << temperature.errors;
  EXPECT_GT(streamOf(temperature, "temperature").at("recording").at("rows"), 25);
  std::filesystem::remove_all(folder);
}

TEST(RecordingTest, EndsAtAnEarlierDuration) {
  std::string text = "ECG\n";
  for (int row = 0; row < 1000; ++row) text += std::to_string(row % 7) + "\n";
  const File file(text);
  const Finished run = runProgram({"monitor", "--simulated", "--recording", file.path(), "--rate",
                                   "100", "--duration", "2", "--speed", "1000"});
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_EQ(json::parse(run.outputLines().back()).at("duration"), 2);
  EXPECT_LT(streamOf(run, "ecg").at("delivered"), 1000);
}

struct Malformed {
  std::string name;
  std::string text;
  std::string place;  // line and column
};

void PrintTo(const Malformed& malformed, std::ostream* stream) { *stream << malformed.name; }

class RecordingMalformedTest : public testing::TestWithParam<Malformed> {};

TEST_P(RecordingMalformedTest, IsOneLineWithItsPositionAndExitCode1) {
  const File file(GetParam().text);
  const Finished run = play(file.path(), "100");
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(run.output, IsEmpty());
  EXPECT_THAT(run.errorLines(), ElementsAre(HasSubstr(file.path() + GetParam().place)));
}

INSTANTIATE_TEST_SUITE_P(
    Program, RecordingMalformedTest,
    testing::Values(Malformed{"Empty", "", ":1:1: "}, Malformed{"NoRows", "ECG\n", ":2:1: "},
                    Malformed{"NoKnownColumn", "PPG,Time\n1,2\n", ":1:1: "},
                    Malformed{"TextInANumber", "ECG,RSP\n1,2\n3,four\n", ":3:3: "},
                    Malformed{"EmptyCell", "ECG,RSP\n1,\n", ":2:3: "},
                    Malformed{"ShortRow", "ECG,RSP\n1,2\n3\n", ":3:"},
                    Malformed{"LongRow", "ECG,RSP\n1,2,3\n", ":2:"},
                    Malformed{"Nan", "ECG\nnan\n", ":2:1: "},
                    Malformed{"Infinity", "ECG\n1\ninf\n", ":3:1: "},
                    Malformed{"OneAxis", "Accelerometer X\n1\n", ":1:"}),
    [](const auto& instance) { return instance.param.name; });

TEST(RecordingLimitTest, ALargeFileIsRefusedWithoutBeingRead) {
  const File file("ECG\n1\n");
  std::filesystem::resize_file(file.path(), (1ULL << 30U) + 1);
  const Finished run = play(file.path(), "100");
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(run.output, IsEmpty());
  EXPECT_THAT(run.errorLines(), ElementsAre("zephly monitor: " + file.path() +
                                            ": larger than 1 GiB, the most that a recording may "
                                            "have"));
}

TEST(RecordingLimitTest, APipeIsRefusedAtOnce) {
  const Finished run = runOther(
      "/bin/bash",
      {"-c", "exec \"$0\" monitor --simulated --rate 100 --recording <(yes)", ZEPHLY_PROGRAM});
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(run.errorLines(), ElementsAre(HasSubstr("is a pipe, not a regular file")));
}

TEST(RecordingTest, AMissingFileIsOneLineAndExitCode1) {
  const Finished run = play("/nonexistent/recording.csv", "100");
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(run.errorLines(), ElementsAre(HasSubstr("/nonexistent/recording.csv: no such file")));
}

// Reading takes a tenth of a second or more. Once the session has begun, a signal ends it in order,
// with another exit code and with files.
TEST(RecordingTest, ASignalWhileItReadsEndsTheProgramAtOnceAndLeavesNothing) {
  const captures::ScratchDirectory scratch;
  const std::string file = scratch / "signals.csv";
  {
    std::ofstream text(file);
    text << "ECG\n";
    std::string rows;
    for (int i = 0; i < 1'000'000; ++i) rows += "1\n";
    for (int i = 0; i < 10; ++i) text << rows;
  }
  const std::vector<std::vector<std::string>> commands = {
      {"monitor", "--json", "--diagnostics", scratch / "diagnostics.txt"},
      {"record", scratch / "walk.zcap"},
      {"record", scratch / "walk.zcap", "--edf", scratch / "walk.edf"}};
  for (std::vector<std::string> command : commands) {
    command.insert(command.end(), {"--simulated", "--recording", file, "--rate", "500"});
    Process process(command);
    ASSERT_TRUE(process.waitUntilItReads(file)) << process.finish().errors;
    process.sendSignal(SIGTERM);
    EXPECT_EQ(process.finish().exitCode, 128 + SIGTERM) << command[0];
    const std::filesystem::directory_iterator files(std::filesystem::path(file).parent_path());
    EXPECT_EQ(std::distance(begin(files), end(files)), 1) << command[0];
  }
}

}  // namespace
