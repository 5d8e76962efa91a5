// SPDX-License-Identifier: MIT
#include <tools/vitals/edf_reader.h>

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
using reading::bytesOf;
using reading::errorOf;
using reading::readAll;
using reading::secondsOf;
using reading::valuesOf;
using testing::ElementsAre;
using testing::IsEmpty;

std::string padded(std::string text, std::size_t width) {
  text.resize(width, ' ');
  return text;
}

struct EdfSignalSpec {
  std::string label = "ECG";
  std::string unit = "mV";
  std::string physicalMinimum = "-1";
  std::string physicalMaximum = "1";
  std::string digitalMinimum = "-100";
  std::string digitalMaximum = "100";
  std::string perRecord = "2";
};

// A file as the format has it, with any text in its fields.
struct EdfSpec {
  std::string kind = {};        // "EDF+C"
  std::string headerSize = {};  // empty: as it is
  std::string records = "1";
  std::string duration = "1";
  std::string signalCount = {};  // empty: as it is
  std::vector<EdfSignalSpec> signals = {{}};
  Bytes data = {};

  Bytes bytes() const {
    const auto each = [&](auto field, std::size_t width) {
      std::string text;
      for (const EdfSignalSpec& signal : signals) text += padded(field(signal), width);
      return text;
    };
    const std::size_t size = 256 * (signals.size() + 1);
    std::string text =
        padded("0", 8) + padded("X X X X", 80) + padded("Startdate X X X X", 80) +
        "01.01.8500.00.00" + padded(headerSize.empty() ? std::to_string(size) : headerSize, 8) +
        padded(kind, 44) + padded(records, 8) + padded(duration, 8) +
        padded(signalCount.empty() ? std::to_string(signals.size()) : signalCount, 4);
    text += each([](const auto& s) { return s.label; }, 16);
    text += each([](const auto&) { return std::string(); }, 80);
    text += each([](const auto& s) { return s.unit; }, 8);
    text += each([](const auto& s) { return s.physicalMinimum; }, 8);
    text += each([](const auto& s) { return s.physicalMaximum; }, 8);
    text += each([](const auto& s) { return s.digitalMinimum; }, 8);
    text += each([](const auto& s) { return s.digitalMaximum; }, 8);
    text += each([](const auto&) { return std::string(); }, 80);
    text += each([](const auto& s) { return s.perRecord; }, 8);
    text += each([](const auto&) { return std::string(); }, 32);
    Bytes file = bytesOf(text);
    file.insert(file.end(), data.begin(), data.end());
    return file;
  }
};

Bytes steps(const std::vector<int>& values) {
  Bytes bytes;
  for (const int value : values) reading::appendInt16(bytes, value);
  return bytes;
}

// A data record of EDF+: samples, and the time in an annotation signal of 16 bytes.
void appendTimed(Bytes& data, const std::vector<int>& values, const std::string& onset) {
  const Bytes samples = steps(values);
  data.insert(data.end(), samples.begin(), samples.end());
  std::string text = onset + std::string("\x14\x14\0", 3);
  text.resize(16, '\0');
  data.insert(data.end(), text.begin(), text.end());
}

const EdfSignalSpec clockSignal{.label = "EDF Annotations",
                                .unit = "",
                                .physicalMinimum = "-1",
                                .physicalMaximum = "1",
                                .digitalMinimum = "-32768",
                                .digitalMaximum = "32767",
                                .perRecord = "8"};

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
  const auto file = open({.records = "2", .data = steps({-100, 0, 50, 100})});
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
                          .data = steps({10, 1, 2, 20, 3, 4})});
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
                          .data = steps({-32'768, 32'767})});
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
    Bytes data = steps(values);
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
  const auto file = open({.records = "-1", .data = steps({1, 2, 3, 4})});
  EXPECT_EQ(readAll(*file, {0}).size(), 4U);
  EXPECT_EQ(errorWith({.records = "-1", .data = steps({1, 2, 3})}),
            "a.edf: at byte 518: the file ends here, after 1 whole data records");
}

// As another reader of the format has it.
TEST_F(EdfReaderTest, AgreesWithEdfLib) {
  const auto path = scratch_ / "b.edf";
  const int handle = edfopen_file_writeonly(path.c_str(), EDFLIB_FILETYPE_EDFPLUS, 2);
  ASSERT_GE(handle, 0);
  const std::vector<int> rates = {250, 25};
  for (int i = 0; i < 2; ++i) {
    ASSERT_EQ(edf_set_samplefrequency(handle, i, rates[static_cast<std::size_t>(i)]), 0);
    ASSERT_EQ(edf_set_physical_maximum(handle, i, 3.3), 0);
    ASSERT_EQ(edf_set_physical_minimum(handle, i, -1.7), 0);
    ASSERT_EQ(edf_set_digital_maximum(handle, i, 32'767), 0);
    ASSERT_EQ(edf_set_digital_minimum(handle, i, -32'768), 0);
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

TEST_F(EdfReaderTest, SaysWhereAFileEndsTooEarly) {
  EXPECT_EQ(errorWith({.records = "3", .data = steps({1, 2, 3})}),
            "a.edf: at byte 518: the file ends here, after 1 whole data records of 3");
  EXPECT_EQ(errorWith({.records = "99999999", .data = steps({1, 2})}),
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
  EXPECT_EQ(errorWith({.data = steps({1, 2, 3})}),
            "a.edf: at byte 516: more bytes after the last of 1 data records");
}

TEST_F(EdfReaderTest, RefusesALyingHeader) {
  EXPECT_EQ(errorWith({.headerSize = "768", .data = steps({1, 2})}),
            "a.edf: at byte 184: a header of 512 bytes expected for 1 signals, found 768");
  EXPECT_EQ(errorWith({.headerSize = "x", .data = steps({1, 2})}),
            "a.edf: at byte 184: the size of the header expected, found \"x       \"");
  EXPECT_EQ(errorWith({.signalCount = "0", .data = steps({1, 2})}),
            "a.edf: at byte 252: the file has no signals");
  EXPECT_EQ(errorWith({.headerSize = "2560000", .signalCount = "9999", .data = steps({1, 2})}),
            "a.edf: at byte 516: the file ends in its header of 2560000 bytes");
  EXPECT_EQ(errorWith({.records = "x", .data = steps({1, 2})}),
            "a.edf: at byte 236: a number of data records expected, found \"x       \"");
  EXPECT_EQ(errorWith({.records = "0"}), "a.edf: at byte 236: the file has no data records");
  for (const std::string duration : {"0", "-1", "nan", "inf", "1e9"}) {
    EXPECT_EQ(errorWith({.duration = duration, .data = steps({1, 2})}),
              "a.edf: at byte 244: a duration of 0.0001 to 86400 seconds expected for a data "
              "record, found \"" +
                  padded(duration, 8) + "\"");
  }
}

TEST_F(EdfReaderTest, RefusesALyingSignal) {
  const auto wrong = [&](const EdfSignalSpec& signal) {
    return errorWith({.signals = {signal}, .data = steps({1, 2})});
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
}

TEST_F(EdfReaderTest, RefusesDataRecordsWithoutTheirTimes) {
  EXPECT_EQ(errorWith({.kind = "EDF+D", .data = steps({1, 2})}),
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

}  // namespace
