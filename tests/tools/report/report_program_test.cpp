// SPDX-License-Identifier: MIT
// `zephly report` as a process, with a page that holds nothing but the data.

#include <tests/support/captures.h>
#include <tests/support/process.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using captures::ScratchDirectory;
using nlohmann::json;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;
using Arguments = std::vector<std::string>;

constexpr const char* precious = "precious\n";

std::string textOf(const fs::path& file) {
  const captures::Bytes bytes = captures::contentOf(file);
  return {bytes.begin(), bytes.end()};
}

// The data of a report: the line after the first one.
json dataOf(const fs::path& file) {
  const std::vector<std::string> lines = linesOf(textOf(file));
  EXPECT_EQ(lines.size(), 2U);
  return lines.size() == 2 ? json::parse(lines[1]) : json();
}

Finished report(Arguments arguments) {
  arguments.insert(arguments.begin(), "report");
  return runProgram(arguments);
}

std::vector<std::string> namesBelow(const fs::path& folder) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(folder)) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

// The cells of a column of a CSV file.
std::vector<std::string> columnOf(const fs::path& file, const std::string& name) {
  const auto cellsOf = [](const std::string& line) {
    std::vector<std::string> cells;
    std::istringstream rest(line);
    for (std::string cell; std::getline(rest, cell, ',');) cells.push_back(cell);
    return cells;
  };
  const std::vector<std::string> lines = linesOf(textOf(file));
  const std::vector<std::string> names = cellsOf(lines.at(0));
  const auto index = std::find(names.begin(), names.end(), name) - names.begin();
  std::vector<std::string> column;
  for (std::size_t i = 1; i < lines.size(); ++i) {
    const std::vector<std::string> cells = cellsOf(lines[i]);
    const auto at = static_cast<std::size_t>(index);
    column.push_back(at < cells.size() ? cells[at] : "");  // an empty last one is not split off
  }
  return column;
}

void expectEqual(const json& column, const std::vector<std::string>& cells, double tolerance) {
  ASSERT_EQ(column.size(), cells.size());
  for (std::size_t i = 0; i < cells.size(); ++i) {
    ASSERT_EQ(column[i].is_null(), cells[i].empty()) << "row " << i;
    if (!cells[i].empty()) {
      ASSERT_NEAR(column[i].get<double>(), std::stod(cells[i]), tolerance) << "row " << i;
    }
  }
}

// A minute of the simulated strap, which loses link and contact every 30 s.
class ReportProgramTest : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    folder_ = std::make_unique<ScratchDirectory>();
    const Finished made = runProgram(
        {"record", original().string(), "--simulated", "--duration", "60", "--speed", "1000"});
    ASSERT_EQ(made.exitCode, 0) << made.errors;
  }
  static void TearDownTestSuite() { folder_.reset(); }

  static fs::path original() { return *folder_ / "original.zcap"; }

  ReportProgramTest() { fs::create_symlink(original(), capture_); }

  // Not the whole minute, where the content does not matter: a report plays the capture twice.
  void cutCapture(std::uintmax_t bytes) {
    fs::remove(capture_);
    fs::copy_file(original(), capture_);
    fs::resize_file(capture_, bytes);
  }

  static std::unique_ptr<ScratchDirectory> folder_;
  ScratchDirectory scratch_;
  fs::path capture_ = scratch_ / "walk.zcap";
  fs::path page_ = scratch_ / "walk.html";
};

std::unique_ptr<ScratchDirectory> ReportProgramTest::folder_;

TEST_F(ReportProgramTest, HasTheNumbersOfZephlyVitals) {
  const Finished run = report({capture_.string(), "--title", "A <b>walk</b>"});
  ASSERT_EQ(run.exitCode, 0) << run.errors;
  EXPECT_THAT(run.errors, IsEmpty());
  EXPECT_THAT(run.output, AllOf(HasSubstr("walk.html"), HasSubstr(" to 1:00")));
  const json data = dataOf(page_);
  EXPECT_EQ(data["title"], "A <b>walk</b>");
  EXPECT_THAT(textOf(page_), Not(HasSubstr("<b>")));
  EXPECT_EQ(data["file"], capture_.string());
  EXPECT_EQ(data["simulated"], true);
  EXPECT_NEAR(data["duration"].get<double>(), 60, 0.1);
  EXPECT_THAT(data["complaints"], IsEmpty());
  const auto now = std::chrono::system_clock::now().time_since_epoch() / 1ms;
  EXPECT_NEAR(data["clock"]["began"].get<double>(), static_cast<double>(now), 600'000);

  const fs::path beats = scratch_ / "beats.csv";
  const fs::path seconds = scratch_ / "vitals.csv";
  const Finished vitals = runProgram({"vitals", capture_.string(), "--json", "--beats",
                                      beats.string(), "--vitals", seconds.string()});
  ASSERT_EQ(vitals.exitCode, 0) << vitals.errors;
  EXPECT_EQ(data["vitals"], json::parse(vitals.output));
  EXPECT_GT(data["beats"]["t"].size(), 20U);
  expectEqual(data["beats"]["t"], columnOf(beats, "time_s"), 0.00051);
  EXPECT_EQ(data["beats"]["class"].get<std::string>().size(), data["beats"]["t"].size());
  const std::vector<std::pair<const char*, const char*>> columns = {
      {"t", "time_s"},
      {"heartRate", "heart_rate_per_min"},
      {"heartRateQuality", "heart_rate_quality"},
      {"ecgQuality", "ecg_quality"},
      {"breathingRate", "breathing_rate_per_min"},
      {"breathingQuality", "breathing_quality"},
      {"breathingDerived", "breathing_derived"},
      {"respirationQuality", "respiration_quality"},
      {"contact", "contact"}};
  for (const auto& [name, column] : columns) {
    SCOPED_TRACE(name);
    expectEqual(data["seconds"][name], columnOf(seconds, column), 0.0051);
  }
  // The window is the whole recording.
  ASSERT_EQ(data["windows"].size(), 1U);
  EXPECT_EQ(data["windows"][0]["hrv"], data["vitals"]["hrv"]);
}

TEST_F(ReportProgramTest, HasTheEventsAndReadingsOfZephlyExport) {
  ASSERT_EQ(report({capture_.string()}).exitCode, 0);
  const json data = dataOf(page_);
  EXPECT_EQ(data["title"], "walk");
  const fs::path csv = scratch_ / "csv";
  ASSERT_EQ(runProgram({"export", capture_.string(), "--csv", csv.string()}).exitCode, 0);
  json times = json::array();
  json names = json::array();
  json durations = json::array();
  for (const json& event : data["events"]) {
    times.push_back(event["t"]);
    names.push_back(event["event"]);
    durations.push_back(event.value("duration", json()));
  }
  expectEqual(times, columnOf(csv / "events.csv", "time_s"), 0.00051);
  EXPECT_EQ(names, columnOf(csv / "events.csv", "event"));
  expectEqual(durations, columnOf(csv / "events.csv", "duration_s"), 0.00051);
  EXPECT_THAT(names, testing::Contains("link lost"));
  EXPECT_THAT(names, testing::Contains("push-up"));
  expectEqual(data["temperature"]["t"], columnOf(csv / "temperature.csv", "time_s"), 0.00051);
  expectEqual(data["battery"]["t"], columnOf(csv / "battery.csv", "time_s"), 0.00051);
  const json& contact = data["contact"];
  EXPECT_GT(contact["share"].get<double>(), 0.7);
  EXPECT_LT(contact["share"].get<double>(), 1);
}

TEST_F(ReportProgramTest, ReplacesAFileOnlyWithForce) {
  cutCapture(30'000);
  std::ofstream(page_) << precious;
  const Finished refused = report({capture_.string()});
  EXPECT_EQ(refused.exitCode, 1);
  EXPECT_THAT(refused.errors, EndsWith("it exists already (see --force)\n"));
  EXPECT_EQ(textOf(page_), precious);
  EXPECT_EQ(report({capture_.string(), "--force"}).exitCode, 1);  // it is cut
  EXPECT_THAT(textOf(page_), StartsWith("<!doctype html>"));
}

TEST_F(ReportProgramTest, NeverReplacesItsCapture) {
  cutCapture(30'000);
  const std::string before = textOf(capture_);
  fs::create_hard_link(capture_, scratch_ / "linked");
  fs::create_symlink(capture_, scratch_ / "pointing");
  for (const char* name : {"walk.zcap", "linked", "pointing"}) {
    const Finished run =
        report({capture_.string(), "--out", (scratch_ / name).string(), "--force"});
    EXPECT_EQ(run.exitCode, 1) << name;
    EXPECT_THAT(run.errors, StartsWith("zephly report: ")) << name;
    EXPECT_EQ(textOf(capture_), before) << name;
  }
}

TEST_F(ReportProgramTest, NeverReplacesAFileThatContinuesItsCapture) {
  const fs::path first = scratch_ / "long.zcap";
  const fs::path second = scratch_ / "long.2.zcap";
  runOther("/bin/sh", {"-c", "ulimit -f 200; exec \"$0\" \"$@\"", ZEPHLY_PROGRAM, "record",
                       first.string(), "--simulated", "--duration", "10", "--speed", "1000"});
  ASSERT_TRUE(fs::exists(second));
  const std::string before = textOf(second);
  const Finished run = report({first.string(), "--out", second.string(), "--force"});
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(run.errors, HasSubstr("long.2.zcap"));
  EXPECT_EQ(textOf(second), before);
  // The whole of the recording is in the report.
  const fs::path page = scratch_ / "long.html";
  EXPECT_EQ(report({first.string()}).exitCode, 0);
  EXPECT_NEAR(dataOf(page)["duration"].get<double>(), 10, 0.1);
}

TEST_F(ReportProgramTest, ADamagedCaptureIsShownUpToTheDamage) {
  cutCapture(fs::file_size(original()) / 2);
  const Finished run = report({capture_.string()});
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(run.errorLines(), ElementsAre(HasSubstr("walk.zcap")));
  const json data = dataOf(page_);
  ASSERT_EQ(data["complaints"].size(), 1U);
  EXPECT_EQ("zephly report: " + data["complaints"][0].get<std::string>() + "\n", run.errors);
  EXPECT_GT(data["duration"].get<double>(), 20);
  EXPECT_LT(data["duration"].get<double>(), 40);
}

TEST_F(ReportProgramTest, WithoutACaptureNothingIsWritten) {
  std::ofstream(scratch_ / "text.zcap") << "no capture\n";
  fs::remove(capture_);
  for (const char* name : {"text.zcap", "missing.zcap", "."}) {
    const Finished run = report({(scratch_ / name).string(), "--out", page_.string()});
    EXPECT_EQ(run.exitCode, 1) << name;
    EXPECT_EQ(run.errorLines().size(), 1U) << name;
  }
  EXPECT_THAT(namesBelow(scratch_.path()), ElementsAre("text.zcap"));
}

TEST_F(ReportProgramTest, RefusesWhatIsNoFile) {
  cutCapture(30'000);
  ASSERT_EQ(::mkfifo((scratch_ / "fifo").c_str(), 0600), 0);
  for (const fs::path& place :
       {scratch_ / "fifo", scratch_.path(), fs::path("/dev/full"), scratch_ / "none" / "a.html"}) {
    const Finished run = report({capture_.string(), "--out", place.string(), "--force"});
    EXPECT_EQ(run.exitCode, 1) << place;
    EXPECT_EQ(run.errorLines().size(), 1U) << place << run.errors;
  }
  EXPECT_THAT(namesBelow(scratch_.path()), ElementsAre("fifo", "walk.zcap"));
}

TEST_F(ReportProgramTest, LeavesNothingOnAFullDisk) {
  const Finished run = runOther("/bin/sh", {"-c", "ulimit -f 8; exec \"$0\" \"$@\"", ZEPHLY_PROGRAM,
                                            "report", capture_.string()});
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(run.errors, AllOf(HasSubstr("walk.html"), HasSubstr("File too large")));
  EXPECT_THAT(namesBelow(scratch_.path()), ElementsAre("walk.zcap"));
}

TEST_F(ReportProgramTest, WritesNothingAfterCtrlC) {
  Process process({"report", capture_.string()});
  ASSERT_TRUE(process.waitUntilItReads(original()));
  process.sendSignal(SIGINT);
  const Finished run = process.finish();
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(run.errorLines(), ElementsAre(HasSubstr("interrupted; nothing was written")));
  EXPECT_THAT(namesBelow(scratch_.path()), ElementsAre("walk.zcap"));
}

TEST_F(ReportProgramTest, ReportsThatItsOutputFailed) {
  cutCapture(30'000);
  const Finished run = Process({"report", capture_.string()}, Process::Output::full).finish();
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(run.errors, HasSubstr("zephly report: standard output: No space left on device\n"));
  EXPECT_THAT(textOf(page_), StartsWith("<!doctype html>"));
}

TEST_F(ReportProgramTest, OptionsNeedAFile) {
  EXPECT_EQ(report({}).exitCode, 2);
  EXPECT_EQ(report({capture_.string(), "--out"}).exitCode, 2);
  EXPECT_EQ(report({capture_.string(), "--out", ""}).exitCode, 2);
}

}  // namespace
