// SPDX-License-Identifier: MIT
#include <simulator/recording.h>
#include <zephly/protocol/streams.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <limits>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace Zephly::simulator {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

Recording parse(std::string_view text, double rate = 100) {
  return Recording::parse(text, "file.csv", rate);
}

// The message of the error for this text; "none" without an error.
std::string errorOf(std::string_view text, double rate = 100) {
  try {
    parse(text, rate);
  } catch (const RecordingError& error) {
    EXPECT_THAT(error.what(), StartsWith("file.csv:" + std::to_string(error.line()) + ":" +
                                         std::to_string(error.column()) + ": "));
    return error.what();
  }
  return "none";
}

std::string errorOfFile(const std::filesystem::path& file) {
  try {
    Recording::load(file, 100);
  } catch (const RecordingError& error) {
    return error.what();
  }
  return "none";
}

constexpr std::string_view motionNames =
    "Accelerometer X,Accelerometer Y,Accelerometer Z,Gyroscope X,Gyroscope Y,Gyroscope Z";

TEST(RecordingTest, ReadsNamedColumns) {
  const Recording recording = parse("ECG,PPG,RSP\n0.5,7,-1e-1\n-2,8,3\n");
  EXPECT_EQ(recording.rows(), 2U);
  EXPECT_EQ(recording.rowsPerSecond(), 100);
  EXPECT_THAT(recording.ecg(), ElementsAre(0.5, -2));
  EXPECT_THAT(recording.respiration(), ElementsAre(-0.1, 3));
  EXPECT_THAT(recording.skinTemperature(), IsEmpty());
  EXPECT_TRUE(recording.has(Stream::ecg));
  EXPECT_TRUE(recording.has(Stream::respiration));
  EXPECT_FALSE(recording.has(Stream::temperature));
  EXPECT_FALSE(recording.has(Stream::motion));
  EXPECT_FALSE(recording.has(Stream::battery));
}

TEST(RecordingTest, CaseBlanksAndUnitsDoNotMatter) {
  const Recording recording = parse(
      " ecg (mV) ,RESPIRATION,skin Temperature (\xC2\xB0"
      "C)\n 1 ,\t2,3 ");
  EXPECT_THAT(recording.ecg(), ElementsAre(1));
  EXPECT_THAT(recording.respiration(), ElementsAre(2));
  EXPECT_THAT(recording.skinTemperature(), ElementsAre(3));
}

TEST(RecordingTest, ReadsMotionInAnyOrderOfColumns) {
  const Recording recording = parse(
      "Gyroscope Z (deg/s),Accelerometer X (g),Accelerometer Z (g),Time (s),Gyroscope X (deg/s),"
      "Gyroscope Y (deg/s),Accelerometer Y (g)\n1,2,3,4,5,6,7\n");
  ASSERT_TRUE(recording.has(Stream::motion));
  EXPECT_THAT(recording.acceleration(),
              ElementsAre(ElementsAre(2), ElementsAre(7), ElementsAre(3)));
  EXPECT_THAT(recording.rotation(), ElementsAre(ElementsAre(5), ElementsAre(6), ElementsAre(1)));
}

TEST(RecordingTest, AcceptsByteOrderMarkAndCarriageReturns) {
  const Recording recording = parse(
      "\xEF\xBB\xBF"
      "ECG,RSP\r\n1,2\r\n3,4\r\n");
  EXPECT_THAT(recording.ecg(), ElementsAre(1, 3));
  EXPECT_THAT(recording.respiration(), ElementsAre(2, 4));
}

TEST(RecordingTest, TheLastLineEndIsOptionalAndEmptyLinesAtTheEndAreIgnored) {
  EXPECT_EQ(parse("ECG\n1\n2").rows(), 2U);
  EXPECT_EQ(parse("ECG\n1\n2\n").rows(), 2U);
  EXPECT_EQ(parse("ECG\n1\n2\n\r\n\n").rows(), 2U);
}

TEST(RecordingTest, ReadsTheFilesOfTheExportWithTheirGaps) {
  const Recording ecg = parse(
      "time_s,date_utc,gap_s,ecg_mV\n"
      "0.012,2026-11-21T19:18:01.012000000Z,0.5,0.25\n"
      "0.014,2026-11-21T19:18:01.014000000Z,,-1\n"
      "1.564,2026-11-21T19:18:02.564000000Z,1.548,2\n"
      "1.566,2026-11-21T19:18:02.566000000Z,0,3\n");
  EXPECT_THAT(ecg.ecg(), ElementsAre(0.25, -1, 2, 3));
  ASSERT_EQ(ecg.gaps().size(), 1U) << "none before the first row, and none of 0 s";
  EXPECT_EQ(ecg.gaps()[0].row, 2U);
  EXPECT_EQ(ecg.gaps()[0].seconds, 1.548);
  const Recording respiration = parse("time_s,date_utc,gap_s,raw,processed\n0,Z,,1,0.5\n");
  EXPECT_THAT(respiration.respiration(), ElementsAre(1));
  const Recording temperature = parse("time_s,date_utc,gap_s,skin_degC\n0,Z,,33.5\n");
  EXPECT_THAT(temperature.skinTemperature(), ElementsAre(33.5));
  EXPECT_FALSE(parse("ECG,raw\n1,2\n").has(Stream::respiration)) << "not a file of the export";
}

TEST(RecordingErrorTest, GapsThatAreNoTime) {
  for (const std::string cell : {"-1", "86401"}) {
    EXPECT_EQ(errorOf("gap_s,ECG\n,1\n" + cell + ",2\n"),
              "file.csv:3:1: a gap of 0 to 86400 seconds expected, found \"" + cell + "\"");
  }
  EXPECT_EQ(errorOf("gap_s,ECG\nlong,1\n"), "file.csv:2:1: a number expected, found \"long\"");
  EXPECT_THAT(
      errorOf("gap_s,ECG\n,1\n50000,2\n50000,3\n"),
      HasSubstr("at most 24 hours expected, found 3 rows that take longer with their gaps"));
}

TEST(RecordingErrorTest, EmptyFiles) {
  EXPECT_EQ(errorOf(""), "file.csv:1:1: column names expected, found an empty file");
  EXPECT_EQ(errorOf("\xEF\xBB\xBF"), "file.csv:1:1: column names expected, found an empty file");
  EXPECT_THAT(errorOf("\n\n"), StartsWith("file.csv:1:1: "));
  EXPECT_NE(errorOf("\n\n"), "none");
}

TEST(RecordingErrorTest, NoRows) {
  const std::string expected = "file.csv:2:1: a row of numbers expected, found the end of the file";
  EXPECT_EQ(errorOf("ECG"), expected);
  EXPECT_EQ(errorOf("ECG\n"), expected);
  EXPECT_EQ(errorOf("ECG\r\n\r\n"), expected);
}

TEST(RecordingErrorTest, NothingToPlay) {
  EXPECT_THAT(errorOf("PPG,Time\n1,2\n"), AllOf(StartsWith("file.csv:1:1: a column ECG, RSP"),
                                                HasSubstr("found \"PPG,Time\"")));
}

TEST(RecordingErrorTest, MissingColumnsOfMotion) {
  EXPECT_EQ(errorOf("Accelerometer X,Accelerometer Y,Accelerometer Z\n1,2,3\n"),
            "file.csv:1:1: accelerometer and gyroscope with X, Y and Z expected, found no column "
            "Gyroscope X");
  EXPECT_THAT(errorOf("Gyroscope X,Gyroscope Y,Gyroscope Z,ECG\n1,2,3,4\n"),
              HasSubstr("found no column Accelerometer X"));
  // Each of the six is reported as missing.
  const std::string all(motionNames);
  EXPECT_EQ(errorOf(all + "\n1,2,3,4,5,6\n"), "none");
  for (const std::string name : {"Accelerometer X", "Accelerometer Y", "Accelerometer Z",
                                 "Gyroscope X", "Gyroscope Y", "Gyroscope Z"}) {
    std::string names = all;
    names.replace(names.find(name), name.size(), "Other");
    EXPECT_THAT(errorOf(names + "\n1,2,3,4,5,6\n"), HasSubstr("found no column " + name));
  }
}

TEST(RecordingErrorTest, TheSameColumnTwice) {
  EXPECT_EQ(errorOf("ECG,PPG,ecg (mV)\n1,2,3\n"),
            "file.csv:1:9: one column ECG expected, found another one");
  EXPECT_THAT(errorOf("RSP,Respiration\n1,2\n"), StartsWith("file.csv:1:5: one column RSP"));
}

TEST(RecordingErrorTest, UnitsThatChangeTheNumbers) {
  std::string names(motionNames);
  names.replace(names.find("Gyroscope X"), 11, "Gyroscope X (rad/s)");
  EXPECT_EQ(errorOf(names + "\n1,2,3,4,5,6\n"),
            "file.csv:1:49: Gyroscope X in deg/s expected, found \"rad/s\"");
  EXPECT_THAT(errorOf("Skin temperature (K)\n300\n"), HasSubstr("expected, found \"K\""));
}

TEST(RecordingErrorTest, CellsThatAreNotNumbers) {
  EXPECT_EQ(errorOf("ECG,RSP\n1,2\n3,four\n"), "file.csv:3:3: a number expected, found \"four\"");
  EXPECT_EQ(errorOf("ECG,RSP\n1,\n"), "file.csv:2:3: a number expected, found an empty cell");
  EXPECT_EQ(errorOf("ECG,RSP\n1 2,3\n"), "file.csv:2:1: a number expected, found \"1 2\"");
  EXPECT_EQ(errorOf("ECG\n0x1F\n"), "file.csv:2:1: a number expected, found \"0x1F\"");
  EXPECT_EQ(errorOf("ECG;RSP\n1;2\n").substr(0, 13), "file.csv:1:1:");
}

TEST(RecordingErrorTest, OtherColumnsMayHoldAnything) {
  EXPECT_EQ(errorOf("ECG,Note\n1,ok\n2,\n"), "none");
}

TEST(RecordingErrorTest, NumbersThatAreNotFiniteOrTooLarge) {
  for (const std::string cell : {"nan", "NaN", "inf", "-inf", "infinity", "1e31", "-1e300"})
    EXPECT_EQ(errorOf("ECG,RSP\n1," + cell + "\n"),
              "file.csv:2:3: a finite number of at most 1e30 expected, found \"" + cell + "\"");
  EXPECT_THAT(errorOf("ECG\n1e999\n"), HasSubstr("within the range of a double"));
  EXPECT_EQ(errorOf("ECG\n1e30\n"), "none");
}

TEST(RecordingErrorTest, RaggedRows) {
  EXPECT_EQ(errorOf("ECG,RSP\n1,2\n3\n"), "file.csv:3:2: 2 cells expected, found 1");
  EXPECT_EQ(errorOf("ECG,RSP\n1,2,3\n"), "file.csv:2:5: 2 cells expected, found 3");
  EXPECT_EQ(errorOf("ECG,RSP\n1,2,\n"), "file.csv:2:5: 2 cells expected, found 3");
  EXPECT_EQ(errorOf("ECG\n1\n\n2\n"), "file.csv:3:1: a number expected, found an empty cell");
}

TEST(RecordingErrorTest, ColumnsCountCharactersNotBytes) {
  EXPECT_EQ(errorOf("Gr\xC3\xB6\xC3\x9F"
                    "e,ECG,ECG\n1,2,3\n")
                .substr(0, 14),
            "file.csv:1:11:");
}

TEST(RecordingErrorTest, RatesOutOfRange) {
  for (const double rate : {0.0, -1.0, 0.0005, 1e6, std::numeric_limits<double>::infinity(),
                            std::numeric_limits<double>::quiet_NaN()})
    EXPECT_THAT(errorOf("ECG\n1\n", rate),
                HasSubstr("a rate of 0.001 to 100000 rows per second expected, found"));
  EXPECT_EQ(errorOf("ECG\n1\n", 0.001), "none");
  EXPECT_EQ(errorOf("ECG\n1\n", 100'000), "none");
}

TEST(RecordingErrorTest, MoreThanADay) {
  std::string text = "ECG\n";
  for (int i = 0; i < 87; ++i) text += "1\n";
  EXPECT_THAT(errorOf(text, 0.001), HasSubstr("at most 24 hours expected"));
  EXPECT_EQ(errorOf(text, 0.0011), "none");
}

TEST(RecordingErrorTest, HugeLines) {
  const std::string huge(Recording::longestLine + 1, '1');
  EXPECT_EQ(errorOf(huge),
            "file.csv:1:1: a line of at most 65536 bytes expected, found a longer one");
  EXPECT_EQ(errorOf("ECG\n" + huge + "\n"),
            "file.csv:2:1: a line of at most 65536 bytes expected, found a longer one");
}

TEST(RecordingErrorTest, BinaryGarbageIsAPrintableError) {
  std::mt19937_64 random(1);
  for (int i = 0; i < 2000; ++i) {
    std::string text = i % 2 == 0 ? "" : "ECG,RSP\n";
    for (int k = 0; k < 200; ++k) text += static_cast<char>(random() & 0xFFU);
    const std::string error = errorOf(text);
    ASSERT_NE(error, "none");
    for (const char character : error) ASSERT_TRUE(character >= ' ' && character <= '~');
    ASSERT_LT(error.size(), 300U);
  }
}

TEST(RecordingErrorTest, FilesThatCannotBeRead) {
  const std::filesystem::path folder = testing::TempDir();
  EXPECT_EQ(errorOfFile(folder), folder.string() + ": is a directory");
  EXPECT_EQ(errorOfFile(folder / "none.csv"), (folder / "none.csv").string() + ": no such file");
  const std::filesystem::path loop = folder / ("loop-" + std::to_string(::getpid()));
  std::filesystem::create_symlink(loop, loop);
  EXPECT_EQ(errorOfFile(loop), loop.string() + ": Too many levels of symbolic links");
  std::filesystem::remove(loop);
}

// Before anything is read: the file has no data on the disk.
TEST(RecordingErrorTest, TooLargeFilesAreNotRead) {
  const std::filesystem::path file =
      std::filesystem::path(testing::TempDir()) / ("large-" + std::to_string(::getpid()));
  std::ofstream(file, std::ios::binary) << "ECG\n1\n";
  std::filesystem::resize_file(file, Recording::largestFile + 1);
  EXPECT_EQ(errorOfFile(file),
            file.string() + ": larger than 1 GiB, the most that a recording may have");
  // Of the size that is allowed, the first line decides.
  std::filesystem::resize_file(file, Recording::largestFile);
  EXPECT_EQ(errorOfFile(file),
            file.string() + ":3:1: a line of at most 65536 bytes expected, found a longer one");
  std::filesystem::remove(file);
}

// A pipe without a writer would hold the program up without end, like one that nobody closes.
TEST(RecordingErrorTest, PipesAndDevicesAreRefusedAtOnce) {
  const std::filesystem::path pipe =
      std::filesystem::path(testing::TempDir()) / ("pipe-" + std::to_string(::getpid()));
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  EXPECT_EQ(errorOfFile(pipe),
            pipe.string() + ": is a pipe, not a regular file: save the recording to a file first");
  std::filesystem::remove(pipe);
  EXPECT_EQ(errorOfFile("/dev/zero"), "/dev/zero: is not a regular file");
}

// The program would otherwise keep all of the rows before it finds that they are too many.
TEST(RecordingErrorTest, TooManyRowsEndTheReading) {
  std::string text = "ECG\n";
  for (int i = 0; i < 87; ++i) text += "1\n";
  EXPECT_THAT(errorOf(text + "no number\n", 0.001), HasSubstr(":88:1: at most 24 hours expected"));
}

TEST(RecordingTest, ReadsLinesOfAnyLengthUpToTheLongest) {
  std::string names = "ECG";
  std::string row = "7";
  while (names.size() + 2 < Recording::longestLine) {
    names += ",x";
    row += ",1";
  }
  std::string text = names + "\r\n";
  for (int i = 0; i < 20; ++i) text += row + "\n";
  const Recording recording = parse(text);
  EXPECT_EQ(recording.rows(), 20U);
  EXPECT_EQ(recording.ecg().back(), 7);
  EXPECT_EQ(parse("ECG\n" + std::string(Recording::longestLine - 1, '0') + "5").ecg().front(), 5);
}

TEST(RecordingTest, LoadsFiles) {
  const std::filesystem::path file =
      std::filesystem::path(testing::TempDir()) / "strap_recording_test.csv";
  std::ofstream(file, std::ios::binary) << "ECG\r\n1\r\n2\r\n";
  EXPECT_THAT(Recording::load(file, 250).ecg(), ElementsAre(1, 2));
  std::ofstream(file, std::ios::binary) << "ECG\n1\nx\n";
  EXPECT_EQ(errorOfFile(file), file.string() + ":3:1: a number expected, found \"x\"");
  std::filesystem::remove(file);
}

}  // namespace
}  // namespace Zephly::simulator
