// SPDX-License-Identifier: MIT
#include <tools/vitals/csv_reader.h>

#include <tests/tools/vitals/reading.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace {

using namespace Zephly::recorders;
using captures::ScratchDirectory;
using reading::bytesOf;
using reading::errorOf;
using reading::readAll;
using reading::secondsOf;
using reading::valuesOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class CsvReaderTest : public testing::Test {
 protected:
  std::unique_ptr<SignalFile> open(const std::string& text, const OpenOptions& options = {}) const {
    return openSignalFile(scratch_.file("a.csv", bytesOf(text)), options);
  }
  std::vector<float> values(const std::string& text, const OpenOptions& options = {}) const {
    return valuesOf(readAll(*open(text, options), {0}));
  }
  std::string errorWith(const std::string& text, const OpenOptions& options = {.rate = 100}) const {
    return errorOf(scratch_.file("a.csv", bytesOf(text)), options);
  }

  ScratchDirectory scratch_;
};

TEST_F(CsvReaderTest, ReadsRowsAtARate) {
  const auto file = open("ECG,RSP\n1,-0.5\n2.5,1e-2\n", {.rate = 250});
  EXPECT_STREQ(file->format(), "CSV");
  ASSERT_EQ(file->signals().size(), 2U);
  EXPECT_EQ(file->signals()[1].name, "RSP");
  EXPECT_EQ(file->signals()[1].rate, 250);
  const auto samples = readAll(*file, {0, 1});
  EXPECT_THAT(valuesOf(samples, 0), ElementsAre(1, 2.5F));
  EXPECT_THAT(valuesOf(samples, 1), ElementsAre(-0.5F, 0.01F));
  EXPECT_THAT(secondsOf(samples, 1), ElementsAre(0, 0.004));
}

TEST_F(CsvReaderTest, ReadsAColumnOfTimes) {
  const auto file = open(
      "time_s,date_utc,gap_s,ecg_mV\n5.002,x,,1\n5.004,x,,2\n5.006,x,,3\n"
      "9,x,3.9,4\n");
  EXPECT_NEAR(file->signals()[0].rate, 500, 1e-6);
  EXPECT_EQ(file->signals()[2].name, "ecg_mV");
  EXPECT_EQ(file->signals()[2].unit, "mV");
  EXPECT_EQ(file->begin().count(), 5'002'000'000);
  const auto samples = readAll(*file, {2});
  EXPECT_THAT(valuesOf(samples), ElementsAre(1, 2, 3, 4));
  EXPECT_THAT(secondsOf(samples), ElementsAre(5.002, 5.004, 5.006, 9));
}

TEST_F(CsvReaderTest, KnowsUnitsOfTime) {
  for (const std::string name : {"time (ms)", "Time [ms]", "t_ms", "\"timestamp (ms)\""}) {
    const auto file = open(name + ",ecg\n1000,1\n1004,2\n");
    EXPECT_NEAR(file->signals()[0].rate, 250, 1e-6) << name;
    EXPECT_THAT(secondsOf(readAll(*file, {0})), ElementsAre(1, 1.004)) << name;
  }
  EXPECT_NEAR(open("t (us),ecg\n0,1\n4000,2\n")->signals()[0].rate, 250, 1e-6);
  EXPECT_NEAR(open("t_ns,ecg\n0,1\n4000000,2\n")->signals()[0].rate, 250, 1e-6);
  for (const std::string name : {"t (sec)", "elapsed [seconds]", "Elapsed time", "t (\u00B5s)"}) {
    const bool micro = name.ends_with("s)");
    const auto file = open(name + ",ecg\n0,1\n" + (micro ? "500000" : "0.5") + ",2\n");
    EXPECT_NEAR(file->signals()[0].rate, 2, 1e-6) << name;
  }
}

TEST_F(CsvReaderTest, TakesNoOtherColumnForTimes) {
  for (const std::string name : {"t (min)", "time of day", "clock", ""}) {
    EXPECT_THAT(errorWith(name + ",ecg\n0,1\n1,2\n", {}), HasSubstr("no column of times")) << name;
    EXPECT_EQ(open(name + ",ecg\n0,1\n", {.rate = 100})->signals().size(), 2U) << name;
  }
  // The second one is a signal.
  EXPECT_EQ(open("t,time,ecg\n0,0,1\n1,0,2\n")->signals()[0].name, "time");
}

// 360 Hz in whole milliseconds: steps of 2 and 3 ms.
TEST_F(CsvReaderTest, MeasuresTheRateOfRoundedTimes) {
  std::string text = "time_ms,ecg\n";
  for (int i = 0; i < 3600; ++i) text += std::to_string((i * 1000 + 180) / 360) + ",0\n";
  EXPECT_NEAR(open(text)->signals()[0].rate, 360, 0.1);
}

TEST_F(CsvReaderTest, MeasuresTheRateWithoutGaps) {
  const auto rate = [&](const std::vector<int>& milliseconds) {
    std::string text = "time_ms,ecg\n";
    for (const int time : milliseconds) text += std::to_string(time) + ",0\n";
    return open(text)->signals()[0].rate;
  };
  EXPECT_NEAR(rate({0, 2, 5, 7}), 3 / 0.007, 1e-6);                   // rounded
  EXPECT_NEAR(rate({0, 1, 2, 4}), 3 / 0.004, 1e-6);                   // rounded
  EXPECT_NEAR(rate({0, 4, 8, 18}), 250, 1e-6);                        // a gap
  EXPECT_NEAR(rate({0, 4, 8, 12, 21, 30, 39, 48}), 7 / 0.048, 1e-6);  // irregular
  EXPECT_NEAR(rate({1000, 1004, 1008, 900'000, 900'004, 900'008}), 250, 1e-6);
}

TEST_F(CsvReaderTest, PrefersTheRateOfTheUser) {
  const auto file = open("time_s,ecg\n0,1\n7,2\n", {.rate = 200});
  EXPECT_EQ(file->signals()[0].rate, 200);
  EXPECT_THAT(secondsOf(readAll(*file, {0})), ElementsAre(0, 0.005));
}

TEST_F(CsvReaderTest, ReadsRowsWithoutNames) {
  const auto file = open("1\n2\n3\n", {.rate = 100});
  EXPECT_EQ(file->signals()[0].name, "1");
  EXPECT_THAT(valuesOf(readAll(*file, {0})), ElementsAre(1, 2, 3));
  EXPECT_EQ(open("1,2\n", {.rate = 100})->signals()[1].name, "2");
  EXPECT_EQ(open("ecg,2\n3,4\n", {.rate = 100})->signals()[1].name, "2");
  EXPECT_THAT(values("ecg,2\n3,4\n", {.rate = 100}), ElementsAre(3));
}

TEST_F(CsvReaderTest, ReadsWhatOtherProgramsWrite) {
  EXPECT_THAT(values("\xEF\xBB\xBF"
                     "ecg\r\n1\r\n2\r\n",
                     {.rate = 100}),
              ElementsAre(1, 2));
  EXPECT_THAT(values("ecg;rsp\n1;2\n", {.rate = 100}), ElementsAre(1));
  EXPECT_THAT(values("ecg\trsp\n1\t2\n", {.rate = 100}), ElementsAre(1));
  EXPECT_THAT(values("# made by\n#\n\n\"ecg\" , \"rsp\"\n \"1\" , +2\n", {.rate = 100}),
              ElementsAre(1));
  EXPECT_THAT(values("ecg\n1\n2\n\n\n", {.rate = 100}), ElementsAre(1, 2));
  EXPECT_THAT(values("ecg\n1\n2", {.rate = 100}), ElementsAre(1, 2));
  EXPECT_THAT(values("+1\n\t +2\t\n", {.rate = 100}), ElementsAre(1, 2));
  EXPECT_EQ(open("a;b\t,c\n1,2\n", {.rate = 100})->signals()[0].name, "a;b");
  EXPECT_EQ(open("a\tb;c\n1;2\n", {.rate = 100})->signals()[0].name, "a\tb");
}

TEST_F(CsvReaderTest, LeavesOutAByteOrderMark) {
  EXPECT_EQ(open("\xEF\xBB\xBF"
                 "ecg\n1\n",
                 {.rate = 100})
                ->signals()[0]
                .name,
            "ecg");
  EXPECT_THAT(values("\xEF\xBB\xBF"
                     "1\n2\n",
                     {.rate = 100}),
              ElementsAre(1, 2));
  EXPECT_THAT(errorWith("\xEF\xBB\xBF"
                        "1\nx\n"),
              HasSubstr("at byte 5: "));
}

TEST_F(CsvReaderTest, LeavesOutSamplesThatAreMissing) {
  const auto file = open("a,b\n1,0\n,0\nnan,0\nNaN,0\n\"\",0\n6,0\n", {.rate = 100});
  const auto samples = readAll(*file, {0});
  EXPECT_THAT(valuesOf(samples), ElementsAre(1, 6));
  EXPECT_THAT(secondsOf(samples), ElementsAre(0, 0.05));
}

TEST_F(CsvReaderTest, IgnoresCellsThatAreNotRead) {
  EXPECT_THAT(values("ecg,note\n1,x\n2,y\n", {.rate = 100}), ElementsAre(1, 2));
}

TEST_F(CsvReaderTest, ReadsMoreThanItsBuffer) {
  std::string text = "ecg,filling\n";
  for (int i = 0; i < 20'000; ++i) text += std::to_string(i) + ",----------------------------\n";
  const std::vector<float> all = values(text, {.rate = 100});
  ASSERT_EQ(all.size(), 20'000U);
  for (int i = 0; i < 20'000; ++i) ASSERT_EQ(all[static_cast<std::size_t>(i)], i);
}

TEST_F(CsvReaderTest, SaysWhereACellIsWrong) {
  EXPECT_EQ(errorWith("ecg,b\n1,2\nx,2\n"),
            "a.csv: at byte 10: a number of at most 1e30 expected, found \"x\"");
  EXPECT_EQ(errorOf(scratch_.file("b.csv", bytesOf("a,ecg\n1,2\n1,y\n")), {.rate = 100}, {1}),
            "b.csv: at byte 12: a number of at most 1e30 expected, found \"y\"");
  EXPECT_EQ(errorWith("ecg\n\"\n"),
            "a.csv: at byte 4: a number of at most 1e30 expected, found \"\"\"");
  EXPECT_EQ(errorWith("ecg\n1\n1,5\n"), "a.csv: at byte 6: 1 cells expected, found 2");
  EXPECT_EQ(errorWith("ecg;b\n1,5;2\n"),
            "a.csv: at byte 6: a number of at most 1e30 expected, found \"1,5\"");
  EXPECT_EQ(errorWith("ecg\ninf\n"),
            "a.csv: at byte 4: a number of at most 1e30 expected, found \"inf\"");
  EXPECT_EQ(errorWith("ecg\n1e31\n"),
            "a.csv: at byte 4: a number of at most 1e30 expected, found \"1e31\"");
  EXPECT_EQ(errorWith("ecg\n1e999\n"),
            "a.csv: at byte 4: a number of at most 1e30 expected, found \"1e999\"");
  EXPECT_EQ(errorWith("ecg\r\n1\r\n\r\n2\r\n"),
            "a.csv: at byte 8: a row expected, found an empty line");
}

TEST_F(CsvReaderTest, ReadsTheLargestNumbers) {
  EXPECT_THAT(values("ecg\n1e30\n-1e30\n", {.rate = 100}), ElementsAre(1e30F, -1e30F));
  EXPECT_THAT(secondsOf(readAll(*open("t,ecg\n-4e9,1\n4e9,2\n"), {0})), ElementsAre(-4e9, 4e9));
}

// The rate is that of the first 5000 steps.
TEST_F(CsvReaderTest, ComparesTheTimesOfAllRows) {
  std::string text = "t,ecg\n";
  for (int i = 0; i < 6000; ++i) text += std::to_string(i) + ",1\n";
  EXPECT_THAT(errorWith(text, {}), IsEmpty());
  EXPECT_EQ(errorWith(text + "5999,1\n", {}),
            "a.csv: at byte " + std::to_string(text.size()) +
                ": a time after that of the row before expected, found \"5999\"");
}

TEST_F(CsvReaderTest, SaysWhereATimeIsWrong) {
  EXPECT_EQ(errorWith("t,ecg\n1,1\n2,1\n2,1\n", {}),
            "a.csv: at byte 14: a time after that of the row before expected, found \"2\"");
  EXPECT_EQ(errorWith("t,ecg\n1,1\n,1\n", {}),
            "a.csv: at byte 10: a number expected, found an empty cell");
  EXPECT_EQ(errorWith("t,ecg\n1,1\nnan,1\n", {}),
            "a.csv: at byte 10: a number expected, found \"nan\"");
  EXPECT_EQ(errorWith("t,ecg\n1,1\n1e300,1\n", {}),
            "a.csv: at byte 10: a time of at most 4e9 seconds expected, found \"1e300\"");
  EXPECT_EQ(errorWith("t,ecg\n1,1\n", {}), "a.csv: at byte 6: two rows with times expected");
}

TEST_F(CsvReaderTest, RefusesFilesWithoutRows) {
  EXPECT_EQ(errorWith(""), "a.csv: at byte 0: rows of numbers expected, found none");
  EXPECT_EQ(errorWith("\n\n"), "a.csv: at byte 2: rows of numbers expected, found none");
  EXPECT_EQ(errorWith("ecg\n"),
            "a.csv: at byte 4: a row of numbers expected, found the end of the file");
  EXPECT_EQ(errorWith("time_s\n1\n"), "a.csv: at byte 0: a column beside the times expected");
}

// As samples of a WFDB record are named, but without a header beside it.
TEST_F(CsvReaderTest, ReadsAFileWithAnyName) {
  EXPECT_THAT(errorOf(scratch_.file("a.dat", bytesOf("ecg\n1\n")), {.rate = 100}), IsEmpty());
}

TEST_F(CsvReaderTest, NeedsARateOrTimes) {
  EXPECT_EQ(errorWith("ecg\n1\n", {}),
            "a.csv: it has no column of times: give its rows per second with --rate");
}

TEST_F(CsvReaderTest, RefusesOtherFiles) {
  EXPECT_EQ(errorWith(std::string("\x7F"
                                  "ELF\0\1\n",
                                  7)),
            "a.csv: at byte 0: neither a capture nor EDF, BDF, WFDB or CSV");
  EXPECT_EQ(errorWith("ecg\n" + std::string(70'000, '1')),
            "a.csv: at byte 4: a line of more than 65536 bytes");
  EXPECT_EQ(errorOf(scratch_ / "none.csv"), "none.csv: no such file");
  EXPECT_EQ(errorOf(scratch_ / "."), ".: is a directory");
}

}  // namespace
