// SPDX-License-Identifier: MIT
#include <tests/support/captures.h>
#include <tests/support/process.h>
#include <tests/tools/vitals/reading.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace {

using captures::ScratchDirectory;
using nlohmann::json;
using reading::bytesOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using Arguments = std::vector<std::string>;

const std::string restingPerson = ZEPHLY_RECORDINGS "/resting_5min_100hz.csv";

std::string textOf(const std::filesystem::path& file) {
  const captures::Bytes bytes = captures::contentOf(file);
  return {bytes.begin(), bytes.end()};
}

Finished vitals(Arguments arguments) {
  arguments.insert(arguments.begin(), "vitals");
  return runProgram(arguments);
}

std::vector<std::string> namesIn(const std::filesystem::path& folder) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

// The times of the rows of a CSV file.
std::vector<double> timesIn(const std::filesystem::path& file) {
  std::vector<double> times;
  const std::vector<std::string> lines = linesOf(textOf(file));
  for (std::size_t i = 1; i < lines.size(); ++i) times.push_back(std::stod(lines[i]));
  return times;
}

// How many of `times` are also in `others`, `offset` later, to 5 ms.
std::size_t countNear(const std::vector<double>& times, const std::vector<double>& others,
                      double offset) {
  return static_cast<std::size_t>(std::count_if(times.begin(), times.end(), [&](double time) {
    return std::any_of(others.begin(), others.end(),
                       [&](double other) { return std::abs(other - time - offset) < 0.005; });
  }));
}

// A minute of the simulated strap.
class VitalsProgramTest : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    folder_ = std::make_unique<ScratchDirectory>();
    const Finished made =
        runProgram({"record", capture(), "--simulated", "--duration", "60", "--speed", "1000",
                    "--edf", (*folder_ / "walk.edf").string()});
    ASSERT_EQ(made.exitCode, 0) << made.errors;
  }
  static void TearDownTestSuite() { folder_.reset(); }

  static std::string capture() { return (*folder_ / "walk.zcap").string(); }

  static std::unique_ptr<ScratchDirectory> folder_;
  ScratchDirectory scratch_;
};

std::unique_ptr<ScratchDirectory> VitalsProgramTest::folder_;

TEST_F(VitalsProgramTest, FindsBeatsAndBreathsOfARecording) {
  const Finished run = vitals({restingPerson, "--rate", "100", "--json"});
  ASSERT_EQ(run.exitCode, 0) << run.errors;
  const json summary = json::parse(run.output);
  EXPECT_EQ(summary["format"], "CSV");
  EXPECT_EQ(summary["ecg"]["name"], "ECG");
  EXPECT_EQ(summary["respiration"]["name"], "RSP");
  EXPECT_DOUBLE_EQ(summary["duration"].get<double>(), 300);
  EXPECT_NEAR(summary["heartRate"]["median"].get<double>(), 82, 6);
  EXPECT_NEAR(summary["beats"]["count"].get<double>(), 5 * 86, 15);
  EXPECT_NEAR(summary["breathingRate"]["median"].get<double>(), 16, 3);
}

TEST_F(VitalsProgramTest, WritesASummary) {
  const Finished run = vitals({restingPerson, "--rate", "100"});
  ASSERT_EQ(run.exitCode, 0) << run.errors;
  EXPECT_THAT(run.output, HasSubstr("resting_5min_100hz.csv (CSV, 5:00)\n"));
  EXPECT_THAT(run.output, HasSubstr("\n  heart rate   8"));
  EXPECT_THAT(run.output, HasSubstr("\n  HRV          mean NN "));
  EXPECT_THAT(run.errors, IsEmpty());
}

TEST_F(VitalsProgramTest, WritesAllFilesOfACapture) {
  const auto path = [&](const char* name) { return (scratch_ / name).string(); };
  const Finished run =
      vitals({capture(), "--beats", path("beats.csv"), "--breaths", path("breaths.csv"), "--vitals",
              path("vitals.csv"), "--rr", path("rr.txt"), "--annotations", path("walk.zep")});
  ASSERT_EQ(run.exitCode, 0) << run.errors;
  EXPECT_THAT(namesIn(scratch_.path()),
              ElementsAre("beats.csv", "breaths.csv", "rr.txt", "vitals.csv", "walk.zep"));
  const std::vector<double> beats = timesIn(scratch_ / "beats.csv");
  EXPECT_GT(beats.size(), 20U);
  EXPECT_NEAR(static_cast<double>(timesIn(scratch_ / "vitals.csv").size()), 60, 3);
  // A note with the rate, then a word or more for each beat.
  const std::string codes = textOf(scratch_ / "walk.zep");
  EXPECT_EQ(codes.substr(4, 23), "## time resolution: 500");
  EXPECT_GE(codes.size(), 28 + 2 * beats.size() + 2);
  for (const std::string& line : linesOf(textOf(scratch_ / "rr.txt"))) {
    EXPECT_EQ(std::count(line.begin(), line.end(), '\t'), 1) << line;
  }
}

// The wearer takes the electrodes off in each cycle of the simulation.
TEST_F(VitalsProgramTest, FindsNothingWithoutContact) {
  const auto path = [&](const char* name) { return (scratch_ / name).string(); };
  ASSERT_EQ(
      vitals({capture(), "--beats", path("beats.csv"), "--vitals", path("vitals.csv")}).exitCode,
      0);
  const std::vector<double> beats = timesIn(scratch_ / "beats.csv");
  const std::vector<std::string> rows = linesOf(textOf(scratch_ / "vitals.csv"));
  int without = 0;
  for (std::size_t i = 2; i < rows.size(); ++i) {
    if (!rows[i].ends_with(",0") || !rows[i - 1].ends_with(",0")) continue;
    ++without;
    const double end = std::stod(rows[i]);
    EXPECT_TRUE(std::none_of(beats.begin(), beats.end(), [&](double beat) {
      return beat > end - 1 && beat < end;
    })) << rows[i];
    EXPECT_THAT(rows[i], HasSubstr(",,0.000,"));  // no heart rate
  }
  EXPECT_GT(without, 0);
}

TEST_F(VitalsProgramTest, FindsWhatAnExportWrites) {
  const auto path = [&](const char* name) { return (scratch_ / name).string(); };
  ASSERT_EQ(vitals({capture(), "--beats", path("beats.csv"), "--breaths", path("breaths.csv"),
                    "--vitals", path("vitals.csv")})
                .exitCode,
            0);
  ASSERT_EQ(runProgram({"export", capture(), "--csv", path("csv")}).exitCode, 0);
  for (const std::string name : {"beats.csv", "breaths.csv", "vitals.csv"}) {
    const std::vector<std::string> plain = linesOf(textOf(scratch_ / name));
    const std::vector<std::string> dated = linesOf(textOf(scratch_ / "csv" / name));
    ASSERT_EQ(plain.size(), dated.size()) << name;
    EXPECT_GT(plain.size(), 1U) << name;
    for (std::size_t i = 0; i < plain.size(); ++i) {
      const std::size_t date = dated[i].find(',');
      const std::string undated =
          dated[i].substr(0, date) + dated[i].substr(dated[i].find(',', date + 1));
      ASSERT_EQ(plain[i], undated) << name;
    }
  }
}

TEST_F(VitalsProgramTest, AnnotatesBeatsAndBreathsInEdfOnRequest) {
  const auto path = [&](const char* name) { return (scratch_ / name).string(); };
  ASSERT_EQ(
      vitals({capture(), "--beats", path("beats.csv"), "--breaths", path("breaths.csv")}).exitCode,
      0);
  ASSERT_EQ(runProgram({"export", capture(), "--edf", path("a.edf"), "--edf-vitals"}).exitCode, 0);
  const auto count = [](const std::string& text, const std::string& word) {
    std::size_t found = 0;
    for (auto at = text.find(word); at != std::string::npos; at = text.find(word, at + 1)) ++found;
    return found;
  };
  const std::string with = textOf(scratch_ / "a.edf");
  const std::string without = textOf(*folder_ / "walk.edf");
  const std::string beats = textOf(scratch_ / "beats.csv");
  EXPECT_EQ(count(with,
                  "\x14"
                  "beat\x14"),
            count(beats, ",normal,"));
  EXPECT_EQ(count(with,
                  "\x14"
                  "ectopic beat\x14"),
            count(beats, ",ectopic,"));
  EXPECT_EQ(count(with,
                  "\x14"
                  "breath\x14"),
            timesIn(scratch_ / "breaths.csv").size());
  EXPECT_EQ(count(without,
                  "\x14"
                  "beat\x14"),
            0U);
}

// The slots of the EDF+ file are those of the samples to half a period.
TEST_F(VitalsProgramTest, FindsTheSameBeatsInAnExportedFile) {
  const auto path = [&](const char* name) { return (scratch_ / name).string(); };
  ASSERT_EQ(vitals({capture(), "--beats", path("a.csv")}).exitCode, 0);
  const Finished run = vitals({(*folder_ / "walk.edf").string(), "--beats", path("b.csv")});
  ASSERT_EQ(run.exitCode, 0) << run.errors;
  EXPECT_THAT(run.output, HasSubstr("ECG chest, 500 samples per second"));
  EXPECT_THAT(run.output, HasSubstr("Resp chest raw, 500 samples per second"));
  const std::vector<double> ofCapture = timesIn(scratch_ / "a.csv");
  const std::vector<double> ofEdf = timesIn(scratch_ / "b.csv");
  ASSERT_FALSE(ofCapture.empty());
  // The file begins with the second in which the session began, up to a second before it.
  std::size_t most = 0;
  for (const double first : ofEdf) {
    const double offset = first - ofCapture.front();
    if (offset < -0.01 || offset > 1) continue;
    most = std::max(most, countNear(ofCapture, ofEdf, offset));
  }
  EXPECT_GT(static_cast<double>(most), 0.9 * static_cast<double>(ofCapture.size()));
}

TEST_F(VitalsProgramTest, ReadsSeveralInputs) {
  const Finished run = vitals({capture(), restingPerson, "--rate", "100", "--json"});
  EXPECT_EQ(run.exitCode, 1);  // a capture has its rate
  const Finished two = vitals({capture(), (*folder_ / "walk.edf").string(), "--json"});
  ASSERT_EQ(two.exitCode, 0) << two.errors;
  const std::vector<std::string> lines = two.outputLines();
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_EQ(json::parse(lines[0])["format"], "capture");
  EXPECT_EQ(json::parse(lines[1])["format"], "EDF+");
}

TEST_F(VitalsProgramTest, WritesFilesOfOneInputOnly) {
  const Finished run = vitals({capture(), capture(), "--rr", (scratch_ / "rr.txt").string()});
  EXPECT_EQ(run.exitCode, 2);
  EXPECT_THAT(run.errorLines(),
              ElementsAre("zephly vitals: an output file is that of one INPUT: run zephly vitals "
                          "once for each of them"));
  EXPECT_THAT(namesIn(scratch_.path()), IsEmpty());
}

TEST_F(VitalsProgramTest, GoesOnAfterABrokenInput) {
  const Finished run = vitals({(scratch_ / "none.edf").string(), capture(), "--json"});
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(run.errorLines(),
              ElementsAre("zephly vitals: " + (scratch_ / "none.edf").string() + ": no such file"));
  EXPECT_EQ(run.outputLines().size(), 1U);
}

TEST_F(VitalsProgramTest, WritesNothingOfABrokenInput) {
  std::string rows = "ecg\n";
  for (int i = 0; i < 10'000; ++i) rows += std::to_string(i % 100) + "\n";
  const auto input = scratch_.file("ecg.csv", bytesOf(rows + "broken\n"));
  const Finished run =
      vitals({input.string(), "--rate", "250", "--beats", (scratch_ / "beats.csv").string(),
              "--annotations", (scratch_ / "ecg.zep").string()});
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(run.output, IsEmpty());
  EXPECT_THAT(
      run.errorLines(),
      ElementsAre("zephly vitals: " + input.string() + ": at byte " + std::to_string(rows.size()) +
                  ": a number of at most 1e30 expected, found \"broken\""));
  EXPECT_THAT(namesIn(scratch_.path()), ElementsAre("ecg.csv"));
}

// As `zephly export` does.
TEST_F(VitalsProgramTest, ReadsADamagedCaptureUpToTheDamage) {
  captures::Bytes bytes = captures::contentOf(capture());
  bytes.resize(bytes.size() / 2);
  const auto input = scratch_.file("cut.zcap", bytes);
  const Finished run = vitals({input.string(), "--beats", (scratch_ / "beats.csv").string()});
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(run.errors, HasSubstr("cut.zcap: at byte "));
  EXPECT_GT(timesIn(scratch_ / "beats.csv").size(), 5U);
}

TEST_F(VitalsProgramTest, RefusesAnythingElse) {
  const auto input = scratch_.file("a.zcap", bytesOf("text"));
  EXPECT_THAT(vitals({input.string()}).errors, StartsWith("zephly vitals: " + input.string()));
  const Finished rate = vitals({capture(), "--rate", "0"});
  EXPECT_EQ(rate.exitCode, 2);
  EXPECT_THAT(rate.errors, HasSubstr("--rate: expected rows per second from 0.001 to 100000"));
  EXPECT_EQ(vitals({}).exitCode, 2);
}

}  // namespace
