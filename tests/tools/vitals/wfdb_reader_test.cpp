// SPDX-License-Identifier: MIT
#include <tools/vitals/wfdb_reader.h>

#include <tests/tools/vitals/reading.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdint>
#include <string>
#include <vector>

namespace {

using namespace Zephly::recorders;
using captures::Bytes;
using captures::ScratchDirectory;
using reading::bytesOf;
using reading::errorOf;
using reading::int16Bytes;
using reading::readAll;
using reading::secondsOf;
using reading::valuesOf;
using testing::ElementsAre;
using testing::Eq;
using testing::HasSubstr;
using testing::IsEmpty;

// As header(5) and signal(5) have it: two samples in three bytes.
Bytes format212(const std::vector<int>& samples) {
  Bytes bytes;
  for (std::size_t i = 0; i < samples.size(); i += 2) {
    const auto first = static_cast<unsigned>(samples[i]) & 0xFFFU;
    const bool paired = i + 1 < samples.size();
    const auto second = paired ? static_cast<unsigned>(samples[i + 1]) & 0xFFFU : 0U;
    bytes.push_back(static_cast<std::uint8_t>(first & 0xFFU));
    bytes.push_back(static_cast<std::uint8_t>(first >> 8U | (second >> 8U) << 4U));
    if (paired) bytes.push_back(static_cast<std::uint8_t>(second & 0xFFU));
  }
  return bytes;
}

class WfdbReaderTest : public testing::Test {
 protected:
  // The samples of all signals alternate.
  std::filesystem::path record(const std::string& header, const Bytes& samples) const {
    static_cast<void>(scratch_.file("a.dat", samples));
    return scratch_.file("a.hea", bytesOf(header));
  }
  std::string errorWith(const std::string& header, const Bytes& samples) const {
    return errorOf(record(header, samples));
  }

  ScratchDirectory scratch_;
};

TEST_F(WfdbReaderTest, ReadsFormat212) {
  WfdbReader file(record("a 1 360 5\na.dat 212 200 11 1024 0 0 0 MLII\n",
                         format212({1024, 1224, 824, 2047, -2047})));
  EXPECT_STREQ(file.format(), "WFDB");
  ASSERT_EQ(file.signals().size(), 1U);
  EXPECT_EQ(file.signals()[0].name, "MLII");
  EXPECT_EQ(file.signals()[0].unit, "mV");
  EXPECT_EQ(file.signals()[0].rate, 360);
  EXPECT_EQ(file.annotationRate(), 360);
  // The checksum in the header is 0, which it is not.
  EXPECT_THROW(readAll(file, {0}), InputError);

  WfdbReader right(record("a 1 360 5\na.dat 212 200 11 1024 1024 3072 0 MLII\n",
                          format212({1024, 1224, 824, 2047, -2047})));
  const auto samples = readAll(right, {0});
  EXPECT_THAT(valuesOf(samples), ElementsAre(0, 1, -1, 5.115F, -15.355F));
  EXPECT_THAT(secondsOf(samples),
              ElementsAre(0, 0.002777778, 0.005555556, 0.008333333, 0.011111111));
}

TEST_F(WfdbReaderTest, ReadsFormat16OfSeveralSignals) {
  WfdbReader file(record("a 2 250 3\na.dat 16 100(50)/uV 16 7 0\na.dat 16 1/mV\n",
                         int16Bytes({50, -7, 150, 32'767, -32'767, 3})));
  EXPECT_EQ(file.signals()[0].unit, "uV");
  EXPECT_EQ(file.signals()[0].name, "signal 1");
  const auto samples = readAll(file, {0, 1});
  EXPECT_THAT(valuesOf(samples, 0), ElementsAre(0, 1, -328.17F));
  EXPECT_THAT(valuesOf(samples, 1), ElementsAre(-7, 32'767, 3));
  EXPECT_THAT(secondsOf(samples, 1), ElementsAre(0, 0.004, 0.008));
  // In order of time.
  EXPECT_EQ(samples[1].signal, 1U);
}

TEST_F(WfdbReaderTest, ReadsOneSignalOfTwoInFormat212) {
  WfdbReader file(
      record("a 2 360 3\na.dat 212 1\na.dat 212 1\n", format212({1, -2, 3, -4, 5, -6})));
  EXPECT_THAT(valuesOf(readAll(file, {1})), ElementsAre(-2, -4, -6));
}

TEST_F(WfdbReaderTest, ReadsAnOddNumberOfSamplesInAFrame) {
  std::vector<int> samples;
  for (int i = 0; i < 3 * 2000; ++i) samples.push_back(i % 3 == 2 ? i / 3 : -1);
  WfdbReader file(
      record("a 3 360 2000\na.dat 212 1\na.dat 212 1\na.dat 212 1\n", format212(samples)));
  const auto values = valuesOf(readAll(file, {2}));
  ASSERT_EQ(values.size(), 2000U);
  for (int i = 0; i < 2000; ++i) ASSERT_EQ(values[static_cast<std::size_t>(i)], i);
}

TEST_F(WfdbReaderTest, ReadsSeveralSamplesInAFrame) {
  WfdbReader file(
      record("a 2 100 2\na.dat 16x3 1\na.dat 16 1\n", int16Bytes({1, 2, 3, 10, 4, 5, 6, 20})));
  EXPECT_DOUBLE_EQ(file.signals()[0].rate, 300);
  EXPECT_DOUBLE_EQ(file.signals()[1].rate, 100);
  EXPECT_EQ(file.annotationRate(), 100);
  const auto samples = readAll(file, {0, 1});
  EXPECT_THAT(valuesOf(samples, 0), ElementsAre(1, 2, 3, 4, 5, 6));
  EXPECT_THAT(valuesOf(samples, 1), ElementsAre(10, 20));
  EXPECT_THAT(secondsOf(samples, 1), ElementsAre(0, 0.01));
}

TEST_F(WfdbReaderTest, ReadsSignalsOfDifferentFiles) {
  static_cast<void>(scratch_.file("b.dat", format212({7, 8, 9})));
  WfdbReader file(record("a 2 100 3\na.dat 16 1\nb.dat 212 1\n", int16Bytes({1, 2, 3})));
  const auto samples = readAll(file, {1, 0});
  EXPECT_THAT(valuesOf(samples, 0), ElementsAre(7, 8, 9));
  EXPECT_THAT(valuesOf(samples, 1), ElementsAre(1, 2, 3));
  EXPECT_EQ(file.files().size(), 3U);
}

TEST_F(WfdbReaderTest, SkipsAProlog) {
  Bytes bytes(5, 0xEE);
  const Bytes samples = int16Bytes({1, 2});
  bytes.insert(bytes.end(), samples.begin(), samples.end());
  WfdbReader file(record("a 1 100 2\na.dat 16+5 1\n", bytes));
  EXPECT_THAT(valuesOf(readAll(file, {0})), ElementsAre(1, 2));
}

TEST_F(WfdbReaderTest, AppliesTheSkew) {
  WfdbReader file(
      record("a 2 100 3\na.dat 16:1 1\na.dat 16 1\n", int16Bytes({1, 10, 2, 20, 3, 30})));
  const auto samples = readAll(file, {0, 1});
  EXPECT_THAT(valuesOf(samples, 0), ElementsAre(2, 3));
  EXPECT_THAT(secondsOf(samples, 0), ElementsAre(0, 0.01));
  EXPECT_THAT(secondsOf(samples, 1), ElementsAre(0, 0.01, 0.02));
  // In frames, not in samples; the sum is that of all samples.
  WfdbReader frames(
      record("a 1 100 3\na.dat 16x2:1 1 16 0 1 21\n", int16Bytes({1, 2, 3, 4, 5, 6})));
  EXPECT_THAT(valuesOf(readAll(frames, {0})), ElementsAre(3, 4, 5, 6));
}

TEST_F(WfdbReaderTest, LeavesOutSamplesThatAreMissing) {
  WfdbReader in16(record("a 1 100 3\na.dat 16 1\n", int16Bytes({1, -32'768, 3})));
  EXPECT_THAT(secondsOf(readAll(in16, {0})), ElementsAre(0, 0.02));
  WfdbReader in212(record("a 1 100 3\na.dat 212 1\n", format212({1, -2048, 3})));
  EXPECT_THAT(secondsOf(readAll(in212, {0})), ElementsAre(0, 0.02));
  WfdbReader other(record("a 1 100 3\na.dat 16 1\n", int16Bytes({1, -2048, 3})));
  EXPECT_THAT(valuesOf(readAll(other, {0})), ElementsAre(1, -2048, 3));
}

// The shortest file ends the record.
TEST_F(WfdbReaderTest, ReadsFilesOfDifferentLengths) {
  static_cast<void>(scratch_.file("b.dat", format212({7, 8, 9, 10, 11})));
  static_cast<void>(scratch_.file("c.dat", int16Bytes({1, 2, 3, 4, 5, 6})));
  const std::string b = "b.dat 212+3 1\n";
  const std::string c = "c.dat 16x2+2 1\n";
  for (const auto& [header, longer] :
       {std::pair{"a 2 100\n" + b + c, 1}, {"a 2 100\n" + c + b, 0}}) {
    WfdbReader file(record(header, {}));
    const auto samples = readAll(file, {0, 1});
    EXPECT_THAT(valuesOf(samples, static_cast<std::size_t>(longer)), ElementsAre(2, 3, 4, 5))
        << header;
    EXPECT_THAT(valuesOf(samples, static_cast<std::size_t>(1 - longer)), ElementsAre(9, 10))
        << header;
  }
}

// Their number is even in each piece that is read, but not in a frame.
TEST_F(WfdbReaderTest, ComparesTheChecksumOfALongRecord) {
  std::vector<int> samples;
  unsigned sum = 0;
  for (int i = 0; i < 3 * 1111; ++i) {
    samples.push_back(i % 2000 - 1000);
    if (i % 3 == 1) sum += static_cast<unsigned>(samples.back());
  }
  const auto header = [&](unsigned checksum) {
    return "a 2 360 1111\na.dat 212x2 1\na.dat 212 1 12 0 0 " + std::to_string(checksum & 0xFFFFU) +
           "\n";
  };
  sum = 0;
  for (std::size_t i = 2; i < samples.size(); i += 3) sum += static_cast<unsigned>(samples[i]);
  const auto path = record(header(sum), format212(samples));
  EXPECT_THAT(errorOf(path, {}, {1}), IsEmpty());
  EXPECT_THAT(errorOf(record(header(sum + 1), format212(samples)), {}, {1}),
              HasSubstr("have the checksum"));
  // That of a signal that is not read is not compared.
  EXPECT_THAT(errorOf(path, {}, {0}), IsEmpty());
}

TEST_F(WfdbReaderTest, ReadsToTheEndWithoutANumberOfSamples) {
  WfdbReader in16(record("a 1\na.dat 16 1\n", int16Bytes({1, 2, 3})));
  EXPECT_EQ(in16.annotationRate(), 250);
  EXPECT_THAT(valuesOf(readAll(in16, {0})), ElementsAre(1, 2, 3));
  WfdbReader in212(record("a 1 100 0\na.dat 212 1\n", format212({1, 2, 3})));
  EXPECT_THAT(valuesOf(readAll(in212, {0})), ElementsAre(1, 2, 3));
  WfdbReader behind(record("a 1 100\na.dat 212+3 1\n", format212({1, 2, 3, 4, 5})));
  EXPECT_THAT(valuesOf(readAll(behind, {0})), ElementsAre(3, 4, 5));
}

// The format has 200 steps per millivolt where the gain was not measured.
TEST_F(WfdbReaderTest, TakesAGainOfZeroForOneThatWasNotMeasured) {
  WfdbReader file(record("a 1 100 2\na.dat 16 0\n", int16Bytes({200, -100})));
  EXPECT_THAT(valuesOf(readAll(file, {0})), ElementsAre(1, -0.5F));
}

TEST_F(WfdbReaderTest, IsNamedWithOrWithoutItsSuffix) {
  const auto path = record("a 1 100 2\na.dat 16 1\n", int16Bytes({1, 2}));
  EXPECT_THAT(errorOf(path), IsEmpty());
  EXPECT_THAT(errorOf(scratch_ / "a"), IsEmpty());
  std::filesystem::create_directory(scratch_ / "a");
  EXPECT_THAT(errorOf(scratch_ / "a"), IsEmpty());
  // A file with the whole name is that file.
  std::filesystem::remove(scratch_ / "a");
  EXPECT_THAT(errorOf(scratch_.file("a", bytesOf("ecg\nx\n")), {.rate = 100}),
              HasSubstr("at byte 4: "));
}

TEST_F(WfdbReaderTest, SaysWhereARecordEndsTooEarly) {
  EXPECT_EQ(errorWith("a 1 100 4\na.dat 16 1\n", int16Bytes({1, 2, 3})),
            "a.dat: at byte 6: the file ends here; 4 samples of each signal need 8 bytes");
  EXPECT_EQ(errorWith("a 2 100 4\na.dat 212 1\na.dat 212 1\n", format212({1, 2, 3, 4})),
            "a.dat: at byte 6: the file ends here; 4 samples of each signal need 12 bytes");
}

TEST_F(WfdbReaderTest, SaysWhereARecordIsTooLong) {
  EXPECT_EQ(errorWith("a 1 100 2\na.dat 16 1\n", int16Bytes({1, 2, 3})),
            "a.dat: at byte 4: 2 bytes after the last of the 2 samples in the header");
  // Format 212 has an odd sample in two bytes or in three.
  Bytes odd = format212({1, 2, 3});
  EXPECT_THAT(errorWith("a 1 100 3\na.dat 212 1\n", odd), IsEmpty());
  odd.push_back(0);
  EXPECT_THAT(errorWith("a 1 100 3\na.dat 212 1\n", odd), IsEmpty());
  odd.push_back(0);
  EXPECT_EQ(errorWith("a 1 100 3\na.dat 212 1\n", odd),
            "a.dat: at byte 5: 2 bytes after the last of the 3 samples in the header");
}

TEST_F(WfdbReaderTest, SaysThatAFileEndsBeforeItsFirstSample) {
  EXPECT_EQ(errorWith("a 1 100\na.dat 16+5 1\n", Bytes(4, 0)),
            "a.dat: at byte 4: the file ends before its first sample");
  EXPECT_THAT(errorWith("a 1 100\na.dat 16+4 1\n", Bytes(4, 0)), HasSubstr("no samples"));
}

TEST_F(WfdbReaderTest, RefusesAHugeHeader) {
  const std::string header = "a 1 100 2\na.dat 16 1\n";
  const std::string most = header + std::string((1U << 20U) - header.size(), '#');
  EXPECT_THAT(errorWith(most, int16Bytes({1, 2})), IsEmpty());
  EXPECT_EQ(errorWith(most + "#", int16Bytes({1, 2})),
            "a.hea: at byte 1048576: a header of 1 MiB at most expected");
}

TEST_F(WfdbReaderTest, ComparesTheChecksum) {
  EXPECT_EQ(errorWith("a 1 100 2\na.dat 16 1 16 0 1 4 0 II\n", int16Bytes({1, 2})),
            "a.hea: at byte 28: the samples of \"II\" in a.dat have the checksum 3, not 4");
  EXPECT_THAT(errorWith("a 1 100 2\na.dat 16 1 16 0 -1 -3 0 II\n", int16Bytes({-1, -2})),
              IsEmpty());
  EXPECT_THAT(errorWith("a 1 100 2\na.dat 16 1 16 0 -1 65533 0 II\n", int16Bytes({-1, -2})),
              IsEmpty());
  // Without a number of samples it may be that of fewer.
  EXPECT_THAT(errorWith("a 1 100\na.dat 16 1 16 0 1 4 0 II\n", int16Bytes({1, 2})), IsEmpty());
}

TEST_F(WfdbReaderTest, RefusesAMissingFile) {
  EXPECT_EQ(errorOf(scratch_ / "none.hea"), "none.hea: no such file");
  EXPECT_EQ(errorWith("a 1 100 2\nb.dat 16 1\n", {}), "b.dat: no such file");
}

TEST_F(WfdbReaderTest, RefusesAPipeInPlaceOfAFile) {
  ASSERT_EQ(::mkfifo((scratch_ / "b.dat").c_str(), 0600), 0);
  EXPECT_EQ(errorWith("a 1 100 2\nb.dat 16 1\n", {}), "b.dat: not a regular file");
}

TEST_F(WfdbReaderTest, RefusesSamplesInPlaceOfTheHeader) {
  static_cast<void>(record("a 1 100 2\na.dat 16 1\n", int16Bytes({1, 2})));
  EXPECT_EQ(errorOf(scratch_ / "a.dat"), "a.dat: samples of a WFDB record: name its header, a.hea");
}

TEST_F(WfdbReaderTest, RefusesARateOfTheUser) {
  const auto path = record("a 1 100 2\na.dat 16 1\n", int16Bytes({1, 2}));
  EXPECT_EQ(errorOf(path, {.rate = 100}), "a.hea: --rate is for CSV; this file has its own rate");
}

TEST_F(WfdbReaderTest, RefusesAnEmptyRecord) {
  EXPECT_EQ(errorWith("a 1 100\na.dat 16 1\n", {}), "a.hea: at byte 7: the record has no samples");
}

TEST_F(WfdbReaderTest, RefusesAFileThatIsListedTwice) {
  static_cast<void>(scratch_.file("b.dat", int16Bytes({1, 2})));
  EXPECT_THAT(errorWith("a 3 100 2\na.dat 16 1\nb.dat 16 1\na.dat 16 1\n", int16Bytes({1, 2})),
              HasSubstr("a.hea: at byte 32: the signals of one file must follow each other"));
}

TEST_F(WfdbReaderTest, RefusesTwoFormatsInOneFile) {
  EXPECT_THAT(errorWith("a 2 100 2\na.dat 16 1\na.dat 212 1\n", int16Bytes({1, 2})),
              HasSubstr("a.hea: at byte 21: the signals of one file must have one format"));
  EXPECT_THAT(errorWith("a 2 100 1\na.dat 16 1\na.dat 16+2 1\n", int16Bytes({1, 2})),
              HasSubstr("a.hea: at byte 21: the signals of one file must have one format"));
}

TEST_F(WfdbReaderTest, RefusesAHugeNumberOfSamples) {
  EXPECT_EQ(errorWith("a 1 100 1000000000000\na.dat 16 1\n", int16Bytes({1, 2})),
            "a.hea: at byte 8: more samples than fit into a hundred years");
  EXPECT_EQ(errorWith("a 1 100 100000000000\na.dat 16 1\n", int16Bytes({1, 2})),
            "a.dat: at byte 4: the file ends here; 100000000000 samples of each signal need "
            "200000000000 bytes");
}

}  // namespace
