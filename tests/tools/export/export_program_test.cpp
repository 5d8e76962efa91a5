// SPDX-License-Identifier: MIT
#include <tests/support/captures.h>
#include <tests/support/process.h>
#include <tests/support/text_of.h>
#include <tests/tools/export/session_script.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace {

using namespace std::chrono_literals;
using captures::ScratchDirectory;
using exporting_test::SessionScript;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;

// During its lifetime no file of this process and its children can grow.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t bytes) {
    ::getrlimit(RLIMIT_FSIZE, &before_);
    const rlimit limit{.rlim_cur = bytes, .rlim_max = before_.rlim_max};
    EXPECT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
  }
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;
  ~FileSizeLimit() { ::setrlimit(RLIMIT_FSIZE, &before_); }

 private:
  rlimit before_{};
};

// A column of a CSV file, with the times of its rows.
std::vector<std::pair<double, double>> columnOf(const std::filesystem::path& path,
                                                std::size_t column) {
  std::vector<std::pair<double, double>> values;
  std::istringstream lines(textOf(path));
  std::string line;
  std::getline(lines, line);
  while (std::getline(lines, line)) {
    std::vector<std::string> cells;
    std::istringstream stream(line);
    for (std::string cell; std::getline(stream, cell, ',');) cells.push_back(cell);
    values.emplace_back(std::stod(cells.at(0)), std::stod(cells.at(column)));
  }
  return values;
}

std::vector<std::string> filesIn(const std::filesystem::path& directory) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(directory)) {
    names.push_back(entry.path().filename());
  }
  std::sort(names.begin(), names.end());
  return names;
}

SessionScript secondsOfEcg(int seconds) {
  SessionScript script;
  script.connect(1s);
  for (int frame = 1; frame <= seconds * 1000 / 12; ++frame) {
    script.ecg(1s + frame * 12ms, {1, 2, 3, 4, 5, 6});
  }
  script.end(1s + seconds * 1s);
  return script;
}

TEST(ExportProgramTest, ExportsARecordedSessionAtItsEnd) {
  const ScratchDirectory scratch;
  const Finished run =
      runProgram({"record", scratch / "a.zcap", "--simulated", "--seed", "7", "--speed", "50",
                  "--duration", "40", "--edf", scratch / "a.edf", "--csv", scratch / "csv"});
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_EQ(run.errors, "");
  // 40 seconds minus the lost link.
  EXPECT_GT(columnOf(scratch / "csv" / "ecg.csv", 3).size(), 18'000U);
  EXPECT_TRUE(std::filesystem::exists(scratch / "a.edf"));

  const Finished again = runProgram({"export", scratch / "a.zcap", "--edf", scratch / "b.edf"});
  EXPECT_EQ(again.exitCode, 0);
  EXPECT_EQ(again.errors, "");
  ASSERT_EQ(again.outputLines().size(), 1U);
  EXPECT_THAT(again.output, MatchesRegex(".*/b\\.edf  [0-9.]+ [kM]B  0:00 to 0:40\n"));
  EXPECT_TRUE(captures::contentOf(scratch / "a.edf") == captures::contentOf(scratch / "b.edf"));
}

TEST(ExportProgramTest, DoesNotRecordWhenTheExportIsImpossible) {
  const ScratchDirectory scratch;
  scratch.file("a.edf", {'o', 'l', 'd'});
  const Finished run = runProgram({"record", scratch / "a.zcap", "--simulated", "--duration", "40",
                                   "--edf", scratch / "a.edf"});
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(run.errorLines(),
              ElementsAre("zephly record: cannot write " + (scratch / "a.edf").string() +
                          ": it exists already (see --force)"));
  EXPECT_THAT(filesIn(scratch.path()), ElementsAre("a.edf"));
}

TEST(ExportProgramTest, DoesNotRecordOverItsOwnExport) {
  const ScratchDirectory scratch;
  std::filesystem::create_directory(scratch / "d");
  const auto old = scratch.file("d/ecg.csv", {'o', 'l', 'd'});
  const Finished run = runProgram({"record", old, "--simulated", "--speed", "50", "--duration", "1",
                                   "--csv", scratch / "d", "--force"});
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(run.errorLines(),
              ElementsAre("zephly record: cannot write " + (scratch / "d").string() +
                          ": the capture is to be there; name another directory"));
  EXPECT_EQ(textOf(old), "old");
}

// Compares every sample read by BioSig with the CSV files: in its slot, within a step.
TEST(ExportProgramTest, AnotherProgramReadsTheSameValuesAndAnnotations) {
  const ScratchDirectory scratch;
  ASSERT_EQ(runProgram({"record", scratch / "a.zcap", "--simulated", "--seed", "7", "--speed", "50",
                        "--duration", "40", "--edf", scratch / "a.edf", "--csv", scratch / "csv"})
                .exitCode,
            0);
  const std::string edf = (scratch / "a.edf").string();
  const Finished converted = runOther(ZEPHLY_SAVE2GDF, {"-JSON", edf});
  ASSERT_EQ(converted.exitCode, 0) << converted.errors;
  for (const char* text :
       {"\"Samplingrate\"\t: 500.000000", "\"PhysicalUnit\"\t: \"mV\"",
        "\"Label\"\t: \"ECG chest\"", "\"Label\"\t: \"Resp chest raw\"",
        "\"Description\"\t: \"BAD_not connected\"", "\"Description\"\t: \"BAD_link lost\"",
        "\"Description\"\t: \"BAD_electrodes off\"", "\"Description\"\t: \"push-up\"",
        "\"Description\"\t: \"sit-up\"", "\"Description\"\t: \"jump\"", "\"Name\"\t: \"Zephly\""}) {
    EXPECT_THAT(converted.output, HasSubstr(text));
  }
  const std::string values = (scratch / "values").string();
  ASSERT_EQ(runOther(ZEPHLY_SAVE2GDF, {"-f=ASCII", edf, values}).exitCode, 0);

  // The file begins with the whole second before the session.
  const std::string date = textOf(scratch / "csv" / "events.csv");
  const std::size_t fraction = date.find('.', date.find('T'));
  const double shift = std::stod("0" + date.substr(fraction, 10));
  struct Compared {
    const char* channel;
    const char* file;
    std::size_t column;
    double rate;
    double step;
  };
  for (const Compared& one : {Compared{"01", "ecg.csv", 3, 500, 2.42 / 32767},
                              Compared{"02", "respiration.csv", 3, 500, 2.42 / 32767},
                              Compared{"03", "respiration.csv", 4, 500, 1.0 / 65535},
                              Compared{"04", "temperature.csv", 3, 1, 0.02},
                              Compared{"05", "temperature.csv", 4, 1, 0.02}}) {
    std::istringstream stream(textOf(values + ".a" + one.channel));
    std::vector<double> read{std::istream_iterator<double>(stream), {}};
    ASSERT_GE(read.size(), 40 * one.rate);
    std::size_t wrong = 0;
    const auto rows = columnOf(scratch / "csv" / one.file, one.column);
    for (const auto& [time, value] : rows) {
      const auto slot = static_cast<std::size_t>(std::lround((time + shift) * one.rate));
      if (std::abs(read.at(slot) - value) > one.step) ++wrong;
      read.at(slot) = 0;
    }
    EXPECT_EQ(wrong, 0U) << one.file << ' ' << one.column;
    // What is not in the CSV file is zero.
    EXPECT_TRUE(std::all_of(read.begin(), read.end(), [&](double value) {
      return std::abs(value) < 0.51 * one.step;
    })) << one.channel;
  }
}

TEST(ExportProgramTest, AnotherProgramReadsADiscontinuousFile) {
  const ScratchDirectory scratch;
  SessionScript script;
  for (const auto begin : {1s, 61s}) {
    script.connect(begin);
    for (int frame = 1; frame <= 160; ++frame) {
      script.ecg(begin + frame * 12ms, {100'000, 2, 3, 4, 5, 6});
      script.respiration(begin + frame * 12ms, {100'000, 2, 3, 4, 5, 6});
    }
    script.disconnect(begin + 2s);
  }
  script.end(64s);
  const auto file = scratch.file("a.zcap", script.bytes());
  const std::string edf = (scratch / "a.edf").string();
  const Finished run = runProgram({"export", file, "--edf", edf, "--edf-discontinuous", "--utc"});
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_EQ(run.errors, "");
  const Finished converted = runOther(ZEPHLY_SAVE2GDF, {"-JSON", edf});
  ASSERT_EQ(converted.exitCode, 0) << converted.errors;
  // The samples are from 1.25 s to 3.17 s and from 61.25 s to 63.17 s of the file. Data record 4 is
  // the first one after the gap. BioSig rounds the dates.
  for (const char* text : {"\"NumberOfRecords\"\t: 7,",
                           "\"POS\"\t: 4.000000,\n\t\t\"DUR\"\t: 0.000000,\n"
                           "\t\t\"TimeStamp\"\t: \"2026-03-01 09:31:0",
                           "\"DUR\"\t: 58.080000", "\"Description\"\t: \"BAD_link lost\""}) {
    EXPECT_THAT(converted.output, HasSubstr(text));
  }
}

TEST(ExportProgramTest, OptionsOfEdfNeedIt) {
  const ScratchDirectory scratch;
  for (const char* option : {"--edf-discontinuous", "--utc"}) {
    for (const char* command : {"export", "record"}) {
      const Finished run =
          runProgram({command, scratch / "a.zcap", option, "--csv", scratch / "csv"});
      EXPECT_EQ(run.exitCode, 2);
      EXPECT_THAT(run.errorLines(), ElementsAre("zephly " + std::string(command) + ": " + option +
                                                " requires --edf"));
    }
  }
}

TEST(ExportProgramTest, ListsWhatItHasWritten) {
  const ScratchDirectory scratch;
  const auto file = scratch.file("a.zcap", secondsOfEcg(5).bytes());
  const Finished run = runProgram({"export", file, "--csv", scratch / "csv"});
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_EQ(run.errors, "");
  ASSERT_EQ(run.outputLines().size(), 9U);  // six streams and events, three of vitals
  EXPECT_THAT(run.outputLines()[0],
              MatchesRegex(".*/csv/ecg\\.csv +[0-9.]+ kB  0:01 to 0:05  2496 rows"));
  const Finished quiet = runProgram({"export", file, "--csv", scratch / "other", "--quiet"});
  EXPECT_EQ(quiet.exitCode, 0);
  EXPECT_EQ(quiet.output + quiet.errors, "");
  EXPECT_TRUE(std::filesystem::exists(scratch / "other" / "ecg.csv"));
}

TEST(ExportProgramTest, AListThatCannotBeWrittenIsAnError) {
  const ScratchDirectory scratch;
  const auto file = scratch.file("a.zcap", secondsOfEcg(1).bytes());
  const Finished run =
      Process({"export", file, "--csv", scratch / "csv"}, Process::Output::full).finish();
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(run.errorLines(),
              ElementsAre("zephly export: standard output: No space left on device"));
}

// Standard error on a terminal.
std::string statusOf(const ScratchDirectory& scratch, const std::string& terminal,
                     std::vector<std::string> options) {
  const std::string file = scratch.file("a.zcap", secondsOfEcg(5).bytes());
  const std::string command = "exec \"$0\" export \"$@\" 2>&1 >/dev/null";
  options.insert(options.begin(),
                 {"-c", command, ZEPHLY_PROGRAM, file, "--edf", scratch / "a.edf", "--force"});
  Process process(options, Process::Output::terminal, {terminal}, "/bin/sh");
  const Finished run = process.finish();
  EXPECT_EQ(run.exitCode, 0) << run.output;
  return run.output;
}

TEST(ExportProgramTest, ShowsItsProgressOnATerminal) {
  const ScratchDirectory scratch;
  const std::string status = statusOf(scratch, "TERM=xterm", {});
  EXPECT_THAT(status, testing::StartsWith("Reading the capture: 0 %"));
  EXPECT_THAT(status, HasSubstr("\r\x1B[KWriting: 0 %"));
  EXPECT_THAT(status, testing::EndsWith("\r\x1B[K"));
  EXPECT_EQ(statusOf(scratch, "TERM=dumb", {}), "");
  EXPECT_EQ(statusOf(scratch, "TERM=xterm", {"--quiet"}), "");
}

TEST(ExportProgramTest, ListsItsRequirements) {
  const Finished nothing = runProgram({"export"});
  EXPECT_EQ(nothing.exitCode, 2);
  EXPECT_EQ(nothing.errorLines().size(), 1U);
  const Finished noTarget = runProgram({"export", "a.zcap"});
  EXPECT_EQ(noTarget.exitCode, 2);
  EXPECT_THAT(
      noTarget.errorLines(),
      ElementsAre("zephly export: --edf FILE, --csv DIRECTORY or both is required (see zephly "
                  "export --help)"));
}

TEST(ExportProgramTest, AMissingOrInvalidCaptureIsOneLine) {
  const ScratchDirectory scratch;
  const Finished missing =
      runProgram({"export", scratch / "none.zcap", "--edf", scratch / "a.edf"});
  EXPECT_EQ(missing.exitCode, 1);
  ASSERT_EQ(missing.errorLines().size(), 1U);
  EXPECT_THAT(missing.errors, MatchesRegex(".*/none\\.zcap: .*[Nn]o such file.*\n"));
  EXPECT_THAT(filesIn(scratch.path()), IsEmpty());
  // The missing input is the mistake, whatever is wrong with the outputs.
  scratch.file("a.edf", {'o', 'l', 'd'});
  const Finished again = runProgram({"export", scratch / "none.zcap", "--edf", scratch / "a.edf"});
  EXPECT_EQ(again.errors, missing.errors);
}

TEST(ExportProgramTest, ExportsATruncatedCaptureAndReportsIt) {
  const ScratchDirectory scratch;
  auto bytes = secondsOfEcg(5).bytes();
  bytes.resize(bytes.size() - 3);
  const auto file = scratch.file("a.zcap", bytes);
  const Finished run = runProgram({"export", file, "--csv", scratch / "csv"});
  EXPECT_EQ(run.exitCode, 1);
  ASSERT_EQ(run.errorLines().size(), 1U);
  EXPECT_THAT(run.errors, HasSubstr(file.string() + ": at byte "));
  EXPECT_EQ(columnOf(scratch / "csv" / "ecg.csv", 3).size(), 2496U);
}

// Like a full disk, for each file and each position in it.
TEST(ExportProgramTest, AtTheFileSizeLimitWritesOneLineAndNoFile) {
  const ScratchDirectory scratch;
  const auto file = scratch.file("a.zcap", secondsOfEcg(60).bytes());
  for (const rlim_t limit : {100U, 3'000U, 100'000U}) {
    for (const char* option : {"--edf", "--csv"}) {
      const FileSizeLimit held(limit);
      const Finished run = runProgram({"export", file, option, scratch / "out"});
      EXPECT_EQ(run.exitCode, 1) << limit << option;
      ASSERT_EQ(run.errorLines().size(), 1U) << run.errors;
      EXPECT_THAT(run.errors, HasSubstr("cannot write " + (scratch / "out").string()));
      EXPECT_THAT(run.errors, HasSubstr("File too large"));
      EXPECT_THAT(filesIn(scratch.path()), ElementsAre("a.zcap"));
    }
  }
}

TEST(ExportProgramTest, PlacesThatCannotBeWrittenAreOneLine) {
  const ScratchDirectory scratch;
  const auto file = scratch.file("a.zcap", secondsOfEcg(1).bytes());
  const std::string nowhere = scratch / "nowhere" / "a";
  for (const char* option : {"--edf", "--csv"}) {
    const Finished run = runProgram({"export", file, option, nowhere});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_THAT(run.errorLines(), ElementsAre("zephly export: cannot write " + nowhere +
                                              ": No such file or directory"));
  }
  const Finished overFile = runProgram({"export", file, "--csv", file});
  EXPECT_EQ(overFile.exitCode, 1);
  EXPECT_EQ(overFile.errorLines().size(), 1U);
}

}  // namespace
