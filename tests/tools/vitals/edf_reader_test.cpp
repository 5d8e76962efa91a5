// SPDX-License-Identifier: MIT
#include <tools/vitals/edf_reader.h>

#include <tests/tools/vitals/edf_spec.h>
#include <tests/tools/vitals/reading.h>

#include <edflib.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace {

using namespace Zephly::recorders;
using captures::Bytes;
using captures::ScratchDirectory;
using reading::appendTimed;
using reading::clockSignal;
using reading::EdfSignalSpec;
using reading::EdfSpec;
using reading::errorOf;
using reading::int16Bytes;
using reading::padded;
using reading::readAll;
using reading::secondsOf;
using reading::valuesOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class EdfReaderTest : public testing::Test {
 protected:
  std::unique_ptr<SignalFile> open(const EdfSpec& spec) const {
    return openSignalFile(scratch_.file("a.edf", spec.bytes()), {});
  }
  std::string errorWith(const EdfSpec& spec) const {
    return errorOf(scratch_.file("a.edf", spec.bytes()));
  }

  ScratchDirectory scratch_;
};

TEST_F(EdfReaderTest, ReadsAFile) {
  const auto file = open({.records = "2", .data = int16Bytes({-100, 0, 50, 100})});
  EXPECT_STREQ(file->format(), "EDF");
  EXPECT_EQ(file->signals()[0].name, "ECG");
  EXPECT_EQ(file->signals()[0].unit, "mV");
  EXPECT_EQ(file->signals()[0].rate, 2);
  EXPECT_FALSE(file->annotationRate());
  const auto samples = readAll(*file, {0});
  EXPECT_THAT(valuesOf(samples), ElementsAre(-1, 0, 0.5F, 1));
  EXPECT_THAT(secondsOf(samples), ElementsAre(0, 0.5, 1, 1.5));
}

TEST_F(EdfReaderTest, ReadsSignalsOfSeveralRates) {
  const auto file = open({.records = "2",
                          .duration = "0.5",
                          .signals = {{.label = "Resp", .perRecord = "1"}, {.perRecord = "2"}},
                          .data = int16Bytes({10, 1, 2, 20, 3, 4})});
  EXPECT_EQ(file->signals()[0].rate, 2);
  EXPECT_EQ(file->signals()[1].rate, 4);
  const auto samples = readAll(*file, {1, 0});
  EXPECT_THAT(valuesOf(samples, 0), ElementsAre(0.01F, 0.02F, 0.03F, 0.04F));
  EXPECT_THAT(valuesOf(samples, 1), ElementsAre(0.1F, 0.2F));
  EXPECT_THAT(secondsOf(samples, 1), ElementsAre(0, 0.5));
  // In order of time.
  EXPECT_EQ(samples[1].signal, 1U);
}

TEST_F(EdfReaderTest, ReadsTheScaleOfEachSignal) {
  const auto file = open({.signals = {{.unit = "\xB5V",
                                       .physicalMinimum = "-3277.25",
                                       .physicalMaximum = "+3276.75",
                                       .digitalMinimum = "-32768",
                                       .digitalMaximum = "32767"}},
                          .data = int16Bytes({-32'768, 32'767})});
  EXPECT_EQ(file->signals()[0].unit, "\u00B5V");
  EXPECT_THAT(valuesOf(readAll(*file, {0})), ElementsAre(-3277.25F, 3276.75F));
}

TEST_F(EdfReaderTest, LeavesAnnotationsOut) {
  Bytes data;
  appendTimed(data, {1, 2}, "+0");
  const auto file = open({.kind = "EDF+C", .signals = {{}, clockSignal}, .data = data});
  EXPECT_STREQ(file->format(), "EDF+");
  ASSERT_EQ(file->signals().size(), 1U);
  EXPECT_THAT(valuesOf(readAll(*file, {0})), ElementsAre(0.01F, 0.02F));
}

// As MNE-Python does: `zephly export` fills gaps with zeros and annotates them.
TEST_F(EdfReaderTest, LeavesOutWhatAnAnnotationExcludes) {
  EdfSignalSpec annotations = clockSignal;
  annotations.perRecord = "30";
  const auto record = [](const std::vector<int>& values, std::string text) {
    Bytes data = int16Bytes(values);
    text.resize(60, '\0');
    data.insert(data.end(), text.begin(), text.end());
    return data;
  };
  Bytes data = record({1, 2}, std::string("+0.25\x14\x14\0+2.75\x15"
                                          "0.5\x14"
                                          "BAD_gap\x14\0",
                                          27));
  for (const auto& more : {record({3, 4}, std::string("+1.25\x14\x14\0+1.25\x14"
                                                      "BAD_at once\x14\0",
                                                      27)),
                           record({5, 6}, std::string("+2.25\x14\x14\0+0\x15"
                                                      "9\x14"
                                                      "good\x14\0",
                                                      20))}) {
    data.insert(data.end(), more.begin(), more.end());
  }
  const auto file =
      open({.kind = "EDF+C", .records = "3", .signals = {{}, annotations}, .data = data});
  EXPECT_THAT(valuesOf(readAll(*file, {0})), ElementsAre(0.01F, 0.02F, 0.03F, 0.04F, 0.05F));
}

TEST_F(EdfReaderTest, ReadsGapsOfADiscontinuousFile) {
  Bytes data;
  appendTimed(data, {1, 2}, "+0.25");
  appendTimed(data, {3, 4}, "+1.25");
  appendTimed(data, {5, 6}, "+3600.5");
  const auto file =
      open({.kind = "EDF+D", .records = "3", .signals = {{}, clockSignal}, .data = data});
  EXPECT_STREQ(file->format(), "EDF+D");
  EXPECT_THAT(secondsOf(readAll(*file, {0})), ElementsAre(0, 0.5, 1, 1.5, 3600.25, 3600.75));
}

TEST_F(EdfReaderTest, CountsTheDataRecordsOfAnUnfinishedHeader) {
  const auto file = open({.records = "-1", .data = int16Bytes({1, 2, 3, 4})});
  EXPECT_EQ(readAll(*file, {0}).size(), 4U);
  EXPECT_EQ(errorWith({.records = "-1", .data = int16Bytes({1, 2, 3})}),
            "a.edf: at byte 518: the file ends here, after 1 whole data records");
}

// As another reader of the format has it.
class EdfReaderPeerTest : public testing::TestWithParam<int> {
 protected:
  ScratchDirectory scratch_;
};

TEST_P(EdfReaderPeerTest, AgreesWithEdfLib) {
  const bool bdf = GetParam() == EDFLIB_FILETYPE_BDFPLUS;
  const auto path = scratch_ / "b.edf";
  const int handle = edfopen_file_writeonly(path.c_str(), GetParam(), 2);
  ASSERT_GE(handle, 0);
  const std::vector<int> rates = {250, 25};
  for (int i = 0; i < 2; ++i) {
    ASSERT_EQ(edf_set_samplefrequency(handle, i, rates[static_cast<std::size_t>(i)]), 0);
    ASSERT_EQ(edf_set_physical_maximum(handle, i, 3.3), 0);
    ASSERT_EQ(edf_set_physical_minimum(handle, i, -1.7), 0);
    ASSERT_EQ(edf_set_digital_maximum(handle, i, bdf ? 8'388'607 : 32'767), 0);
    ASSERT_EQ(edf_set_digital_minimum(handle, i, bdf ? -8'388'608 : -32'768), 0);
    ASSERT_EQ(edf_set_label(handle, i, i == 0 ? "ECG" : "Resp"), 0);
    ASSERT_EQ(edf_set_physical_dimension(handle, i, "mV"), 0);
  }
  for (int second = 0; second < 3; ++second) {
    for (const int rate : rates) {
      std::vector<double> values;
      for (int i = 0; i < rate; ++i) values.push_back(std::sin(0.1 * i + second) * 1.6);
      ASSERT_EQ(edfwrite_physical_samples(handle, values.data()), 0);
    }
  }
  ASSERT_EQ(edfclose_file(handle), 0);

  const auto header = std::make_unique<edf_hdr_struct>();
  ASSERT_EQ(edfopen_file_readonly(path.c_str(), header.get(), EDFLIB_READ_ALL_ANNOTATIONS), 0);
  const auto file = openSignalFile(path, {});
  EXPECT_STREQ(file->format(), bdf ? "BDF+" : "EDF+");
  const auto samples = readAll(*file, {0, 1});
  for (int i = 0; i < 2; ++i) {
    const auto count = static_cast<std::size_t>(3 * rates[static_cast<std::size_t>(i)]);
    std::vector<double> expected(count);
    ASSERT_EQ(edfread_physical_samples(header->handle, i, static_cast<int>(count), expected.data()),
              static_cast<int>(count));
    const std::vector<float> values = valuesOf(samples, static_cast<std::size_t>(i));
    ASSERT_EQ(values.size(), count);
    for (std::size_t k = 0; k < count; ++k) ASSERT_NEAR(values[k], expected[k], 1e-6) << k;
  }
  edfclose_file(header->handle);
}

INSTANTIATE_TEST_SUITE_P(Formats, EdfReaderPeerTest,
                         testing::Values(EDFLIB_FILETYPE_EDFPLUS, EDFLIB_FILETYPE_BDFPLUS));

TEST_F(EdfReaderTest, ReadsUnusualHeaders) {
  // A signal without samples, blanks before a label, an inverted scale.
  const auto file =
      open({.signals = {{.label = "none", .perRecord = "0"},
                        {.label = "  ECG II", .physicalMinimum = "1", .physicalMaximum = "-1"}},
            .data = int16Bytes({-100, 50})});
  ASSERT_EQ(file->signals().size(), 1U);
  EXPECT_EQ(file->signals()[0].name, "ECG II");
  EXPECT_THAT(valuesOf(readAll(*file, {0})), ElementsAre(1, -0.5F));
  // Only EDF+ has annotations.
  const auto plain = open({.signals = {clockSignal}, .data = Bytes(16, 0)});
  EXPECT_EQ(plain->signals()[0].name, "EDF Annotations");
  // Neither continuous nor discontinuous.
  EXPECT_STREQ(open({.kind = "EDF+", .data = int16Bytes({1, 2})})->format(), "EDF+");
}

TEST_F(EdfReaderTest, ReadsTheShortestAndTheLongestDataRecord) {
  for (const std::string duration : {"0.0001", "86400"}) {
    const auto file = open({.duration = duration, .data = int16Bytes({1, 2})});
    EXPECT_DOUBLE_EQ(file->signals()[0].rate, 2 / std::stod(duration));
  }
  for (const std::string duration : {"0.00009", "86401"}) {
    EXPECT_THAT(errorWith({.duration = duration, .data = int16Bytes({1, 2})}),
                HasSubstr("at byte 244: "))
        << duration;
  }
}

TEST_F(EdfReaderTest, RefusesADataRecordOfMoreThan10MiB) {
  const auto with = [&](const std::string& samples) {
    return errorWith({.signals = {{.perRecord = samples}, {.perRecord = "1"}}});
  };
  EXPECT_EQ(with("5242879"),
            "a.edf: at byte 768: the file ends here, after 0 whole data records of 1");
  EXPECT_EQ(with("5242880"),
            "a.edf: at byte 696: a data record of more than 10 MiB is not supported");
}

TEST_F(EdfReaderTest, SortsWhatAnnotationsExclude) {
  EdfSignalSpec annotations = clockSignal;
  annotations.perRecord = "30";
  std::string text = "+0\x14\x14";
  for (const std::string begin : {"3", "1", "2"}) {
    text += '\0';
    text += "+" + begin + "\x15" + "0.5\x14" + "BAD_\x14";
  }
  text.resize(60, '\0');
  Bytes data = int16Bytes({1, 2, 3, 4, 5, 6, 7, 8});
  data.insert(data.end(), text.begin(), text.end());
  const auto file = open({.kind = "EDF+C",
                          .duration = "4",
                          .signals = {{.perRecord = "8"}, annotations},
                          .data = data});
  EXPECT_THAT(secondsOf(readAll(*file, {0})), ElementsAre(0, 0.5, 1.5, 2.5, 3.5));
}

// The first annotation signal has the times of the data records, all of them have annotations.
TEST_F(EdfReaderTest, ReadsSeveralAnnotationSignals) {
  Bytes data;
  const auto append = [&](std::string onset, std::string note, int value) {
    for (std::string* const text : {&onset, &note}) {
      text->resize(16, '\0');
      data.insert(data.end(), text->begin(), text->end());
      if (text == &onset) reading::appendInt16(data, value);
    }
  };
  append("+7\x14\x14",
         "+10\x15"
         "1\x14"
         "BAD_\x14",
         1);
  append("+8.5\x14\x14", "", 2);
  append("+10\x14\x14", "+99\x14\x14", 3);
  append("+11\x14\x14", "", 4);
  const auto file = open({.kind = "EDF+D",
                          .records = "4",
                          .signals = {clockSignal, {.perRecord = "1"}, clockSignal},
                          .data = data});
  const auto samples = readAll(*file, {0});
  EXPECT_THAT(valuesOf(samples), ElementsAre(0.01F, 0.02F, 0.04F));
  EXPECT_THAT(secondsOf(samples), ElementsAre(0, 1.5, 4));
}

// Times are decimal numbers, so that 1/3 s is not exact.
TEST_F(EdfReaderTest, AcceptsTimesThatAreRounded) {
  const auto errorWithOnset = [&](const std::string& onset) {
    Bytes data;
    appendTimed(data, {1, 2}, "-0.3333333");
    appendTimed(data, {3, 4}, onset);
    return errorWith({.kind = "EDF+D", .records = "2", .signals = {{}, clockSignal}, .data = data});
  };
  EXPECT_THAT(errorWithOnset("+0.666666"), IsEmpty());
  EXPECT_THAT(errorWithOnset("+0.666664"), HasSubstr("begins before the previous one has ended"));
  EXPECT_THAT(errorWithOnset("0.6666667"), HasSubstr("the time of the data record expected"));
  EXPECT_THAT(errorWithOnset("+4e9"), IsEmpty());
  EXPECT_THAT(errorWithOnset("+4.1e9"), HasSubstr("the time of the data record expected"));
}

// BDF, by BioSemi: as EDF, with samples of 24 bits.
TEST_F(EdfReaderTest, ReadsBdf) {
  const EdfSignalSpec signal{.unit = "uV",
                             .physicalMinimum = "-8388608",
                             .physicalMaximum = "8388607",
                             .digitalMinimum = "-8388608",
                             .digitalMaximum = "8388607",
                             .perRecord = "3"};
  const Bytes data = {0x00, 0x00, 0x80, 0xFF, 0xFF, 0xFF, 0x56, 0x34, 0x12,
                      0xFF, 0xFF, 0x7F, 0x00, 0x00, 0x00, 0xFE, 0xFF, 0xFF};
  EdfSpec spec{.version =
                   "\xFF"
                   "BIOSEMI",
               .kind = "24BIT",
               .records = "2",
               .signals = {signal},
               .data = data};
  const auto file = open(spec);
  EXPECT_STREQ(file->format(), "BDF");
  EXPECT_EQ(file->signals()[0].rate, 3);
  EXPECT_THAT(valuesOf(readAll(*file, {0})),
              ElementsAre(-8'388'608, -1, 0x123456, 8'388'607, 0, -2));
  spec.data.pop_back();
  EXPECT_EQ(errorWith(spec),
            "a.edf: at byte 529: the file ends here, after 1 whole data records of 2");
  spec.signals[0].digitalMaximum = "8388608";
  EXPECT_EQ(errorWith(spec),
            "a.edf: at byte 376: a digital minimum below the maximum, both of 24 bits, expected, "
            "found -8388608 and 8388608");
  spec.signals[0] = {.perRecord = "3495254"};
  EXPECT_THAT(errorWith(spec), HasSubstr("at byte 472: a number of samples expected"));
}

TEST_F(EdfReaderTest, ReadsGapsOfADiscontinuousBdfFile) {
  Bytes data;
  for (const std::string onset : {"+2", "+9.5"}) {
    data.insert(data.end(), {10, 0, 0, 20, 0, 0});
    std::string text = onset + "\x14\x14";
    text.resize(24, '\0');
    data.insert(data.end(), text.begin(), text.end());
  }
  EdfSignalSpec times = clockSignal;
  times.label = "BDF Annotations";
  EdfSpec spec{.version =
                   "\xFF"
                   "BIOSEMI",
               .kind = "BDF+D",
               .records = "2",
               .signals = {{}, times},
               .data = data};
  const auto file = open(spec);
  EXPECT_STREQ(file->format(), "BDF+D");
  const auto samples = readAll(*file, {0});
  EXPECT_THAT(valuesOf(samples), ElementsAre(0.1F, 0.2F, 0.1F, 0.2F));
  EXPECT_THAT(secondsOf(samples), ElementsAre(0, 0.5, 7.5, 8));
  spec.kind = "BDF+C";
  EXPECT_STREQ(open(spec)->format(), "BDF+");
  EXPECT_EQ(open(spec)->signals().size(), 1U);
}

TEST_F(EdfReaderTest, SaysWhereAFileEndsTooEarly) {
  EXPECT_EQ(errorWith({.records = "3", .data = int16Bytes({1, 2, 3})}),
            "a.edf: at byte 518: the file ends here, after 1 whole data records of 3");
  EXPECT_EQ(errorWith({.records = "99999999", .data = int16Bytes({1, 2})}),
            "a.edf: at byte 516: the file ends here, after 1 whole data records of 99999999");
  Bytes header = EdfSpec{}.bytes();
  header.resize(300);
  EXPECT_EQ(errorOf(scratch_.file("a.edf", header)),
            "a.edf: at byte 300: the file ends in its header of 512 bytes");
  header.resize(100);
  EXPECT_EQ(errorOf(scratch_.file("a.edf", header)),
            "a.edf: at byte 100: the file ends here, too early");
}

TEST_F(EdfReaderTest, SaysWhereAFileIsTooLong) {
  EXPECT_EQ(errorWith({.data = int16Bytes({1, 2, 3})}),
            "a.edf: at byte 516: more bytes after the last of 1 data records");
  EXPECT_EQ(errorWith({.data = int16Bytes({1, 2, 3, 4})}),
            "a.edf: at byte 516: more bytes after the last of 1 data records");
}

TEST_F(EdfReaderTest, RefusesALyingHeader) {
  EXPECT_EQ(errorWith({.headerSize = "768", .data = int16Bytes({1, 2})}),
            "a.edf: at byte 184: a header of 512 bytes expected for 1 signals, found 768");
  EXPECT_EQ(errorWith({.headerSize = "x", .data = int16Bytes({1, 2})}),
            "a.edf: at byte 184: the size of the header expected, found \"x       \"");
  EXPECT_EQ(errorWith({.signalCount = "0", .data = int16Bytes({1, 2})}),
            "a.edf: at byte 252: the file has no signals");
  EXPECT_EQ(errorWith({.headerSize = "2560000", .signalCount = "9999", .data = int16Bytes({1, 2})}),
            "a.edf: at byte 516: the file ends in its header of 2560000 bytes");
  EXPECT_EQ(errorWith({.records = "x", .data = int16Bytes({1, 2})}),
            "a.edf: at byte 236: a number of data records expected, found \"x       \"");
  EXPECT_EQ(errorWith({.records = "0"}), "a.edf: at byte 236: the file has no data records");
  EXPECT_EQ(errorWith({.records = "0", .data = int16Bytes({1, 2})}),
            "a.edf: at byte 236: the file has no data records");
  EXPECT_EQ(errorWith({.records = "-1"}), "a.edf: at byte 236: the file has no data records");
  EXPECT_EQ(errorWith({.records = "-2", .data = int16Bytes({1, 2})}),
            "a.edf: at byte 236: a number of data records expected");
  EXPECT_EQ(errorWith({.records = "99999999", .duration = "41", .data = int16Bytes({1, 2})}),
            "a.edf: at byte 236: more data records than fit into a hundred years");
  for (const std::string duration : {"0", "-1", "nan", "inf", "1e9"}) {
    EXPECT_EQ(errorWith({.duration = duration, .data = int16Bytes({1, 2})}),
              "a.edf: at byte 244: a duration of 0.0001 to 86400 seconds expected for a data "
              "record, found \"" +
                  padded(duration, 8) + "\"");
  }
}

TEST_F(EdfReaderTest, RefusesALyingSignal) {
  const auto wrong = [&](const EdfSignalSpec& signal) {
    return errorWith({.signals = {signal}, .data = int16Bytes({1, 2})});
  };
  EXPECT_EQ(wrong({.perRecord = "x"}),
            "a.edf: at byte 472: a number of samples expected, found \"x       \"");
  EXPECT_EQ(wrong({.perRecord = "-1"}),
            "a.edf: at byte 472: a number of samples expected, found \"-1      \"");
  EXPECT_EQ(wrong({.perRecord = "99999999"}),
            "a.edf: at byte 472: a number of samples expected, found \"99999999\"");
  EXPECT_EQ(wrong({.perRecord = "0"}), "a.edf: at byte 256: the data records are empty");
  EXPECT_EQ(wrong({.physicalMinimum = "1"}),
            "a.edf: at byte 360: the physical minimum is the maximum, so that the gain is 0");
  EXPECT_EQ(wrong({.physicalMaximum = "nan"}),
            "a.edf: at byte 368: a number expected, found \"nan     \"");
  EXPECT_EQ(wrong({.digitalMinimum = "100"}),
            "a.edf: at byte 376: a digital minimum below the maximum, both of 16 bits, expected, "
            "found 100 and 100");
  EXPECT_EQ(wrong({.digitalMaximum = "40000"}),
            "a.edf: at byte 376: a digital minimum below the maximum, both of 16 bits, expected, "
            "found -100 and 40000");
  EXPECT_EQ(wrong({.digitalMinimum = "-32769"}),
            "a.edf: at byte 376: a digital minimum below the maximum, both of 16 bits, expected, "
            "found -32769 and 100");
  EXPECT_EQ(wrong({.digitalMaximum = "1.5"}),
            "a.edf: at byte 384: a number expected, found \"1.5     \"");
}

TEST_F(EdfReaderTest, RefusesDataRecordsWithoutTheirTimes) {
  EXPECT_EQ(errorWith({.kind = "EDF+D", .data = int16Bytes({1, 2})}),
            "a.edf: at byte 192: the file is discontinuous and has no times of its data records");
  Bytes data;
  appendTimed(data, {1, 2}, "+0");
  appendTimed(data, {3, 4}, "+0.5");
  EXPECT_EQ(
      errorWith({.kind = "EDF+D", .records = "2", .signals = {{}, clockSignal}, .data = data}),
      "a.edf: at byte 792: the data record begins before the previous one has ended");
  data.clear();
  appendTimed(data, {1, 2}, "later");
  EXPECT_EQ(errorWith({.kind = "EDF+D", .signals = {{}, clockSignal}, .data = data}),
            "a.edf: at byte 772: the time of the data record expected");
}

TEST_F(EdfReaderTest, RefusesAFileOfAnnotationsOnly) {
  Bytes data;
  appendTimed(data, {}, "+0");
  EXPECT_EQ(errorWith({.kind = "EDF+C", .signals = {clockSignal}, .data = data}),
            "a.edf: at byte 256: the file has annotations and no signal");
}

TEST_F(EdfReaderTest, RefusesTimesBeyondAHundredYears) {
  Bytes data;
  appendTimed(data, {1, 2}, "+1e300");
  EXPECT_EQ(errorWith({.kind = "EDF+D", .signals = {{}, clockSignal}, .data = data}),
            "a.edf: at byte 772: the time of the data record expected");
}

TEST_F(EdfReaderTest, RefusesARateOfTheUser) {
  const auto path = scratch_.file("a.edf", EdfSpec{.data = int16Bytes({1, 2})}.bytes());
  EXPECT_EQ(errorOf(path, {.rate = 100}), "a.edf: --rate is for CSV; this file has its own rate");
}

}  // namespace
