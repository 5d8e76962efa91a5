// SPDX-License-Identifier: MIT
#include <tools/vitals/wfdb_header.h>

#include <tools/vitals/input_error.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace {

using namespace Zephly::recorders;
using testing::HasSubstr;
using testing::StartsWith;

std::string wrong(const std::string& text) {
  try {
    parseWfdbHeader(text, "a.hea");
  } catch (const InputError& error) {
    return error.what();
  }
  return "";
}

TEST(WfdbHeaderTest, HasTheDefaultsOfTheFormat) {
  const WfdbHeader header = parseWfdbHeader("a 1\na.dat 16", "a.hea");
  EXPECT_EQ(header.rate, 250);
  EXPECT_FALSE(header.frames);
  ASSERT_EQ(header.signals.size(), 1U);
  const WfdbSignal& signal = header.signals[0];
  EXPECT_EQ(signal.file, "a.dat");
  EXPECT_EQ(signal.gain, 200);
  EXPECT_EQ(signal.baseline, 0);
  EXPECT_EQ(signal.unit, "mV");
  EXPECT_EQ(signal.perFrame, 1U);
  EXPECT_FALSE(signal.checksum);
  EXPECT_EQ(signal.name, "signal 1");
}

TEST(WfdbHeaderTest, HasEveryField) {
  const WfdbHeader header = parseWfdbHeader(
      "# comment\r\n\r\na 1 360/1000(5) 650000 12:00:00 1/2/2003\r\n"
      "# another\r\nb.dat 212x2:3+512 100.5(-7)/uV 11 1024 995 -22131 0 ECG lead II \r\n",
      "a.hea");
  EXPECT_EQ(header.rate, 360);
  EXPECT_EQ(header.frames, 650'000U);
  const WfdbSignal& signal = header.signals.at(0);
  EXPECT_EQ(signal.file, "b.dat");
  EXPECT_EQ(signal.format, WfdbFormat::bits212);
  EXPECT_EQ(signal.perFrame, 2U);
  EXPECT_EQ(signal.skew, 3U);
  EXPECT_EQ(signal.prolog, 512U);
  EXPECT_EQ(signal.gain, 100.5);
  EXPECT_EQ(signal.baseline, -7);
  EXPECT_EQ(signal.unit, "uV");
  EXPECT_EQ(signal.checksum, -22'131);
  EXPECT_EQ(signal.name, "ECG lead II");
}

TEST(WfdbHeaderTest, TakesTheZeroOfTheConverterForTheBaseline) {
  EXPECT_EQ(parseWfdbHeader("a 1\na.dat 212 200 11 1024\n", "a").signals[0].baseline, 1024);
}

TEST(WfdbHeaderTest, HasTheGainAndTheBaselineInEveryForm) {
  const auto signal = [](const std::string& scale) {
    return parseWfdbHeader("a 1\na.dat\t16 " + scale + "\n", "a").signals.at(0);
  };
  EXPECT_EQ(signal("-50").gain, -50);
  EXPECT_EQ(signal("1e-12").gain, 1e-12);
  EXPECT_EQ(signal("1e12").gain, 1e12);
  EXPECT_EQ(signal("0 0 7").gain, 200);
  EXPECT_EQ(signal("(9)/V").gain, 200);
  EXPECT_EQ(signal("(9)/V").baseline, 9);
  EXPECT_EQ(signal("(9)/V").unit, "V");
  EXPECT_EQ(signal("5(9)/V 64 7").baseline, 9);
  EXPECT_EQ(signal("1 16 -1073741824").baseline, -1'073'741'824);
  EXPECT_EQ(signal("1 16 1073741824").baseline, 1'073'741'824);
  for (const int checksum : {-32'768, 65'535}) {
    EXPECT_EQ(signal("1 16 0 0 " + std::to_string(checksum)).checksum, checksum);
  }
}

TEST(WfdbHeaderTest, HasTheLargestNumbers) {
  EXPECT_EQ(parseWfdbHeader("a 1 100000 1099511627776\na.dat 16x1000:100000+1099511627776", "a")
                .signals[0]
                .skew,
            100'000U);
  std::string many = "a 1000\n";
  for (int i = 0; i < 1000; ++i) many += "a.dat 16\n";
  EXPECT_EQ(parseWfdbHeader(many, "a").signals.back().name, "signal 1000");
  EXPECT_EQ(parseWfdbHeader("a 1 1e-6\na.dat 16", "a").rate, 1e-6);
  EXPECT_EQ(wrong("a 1001\n"), "a.hea: at byte 2: a number of signals expected, found \"1001\"");
  EXPECT_THAT(wrong("a 1 100000.1\n"), StartsWith("a.hea: at byte 4: a rate above 0"));
  EXPECT_THAT(wrong("a 1 1e-7\n"), StartsWith("a.hea: at byte 4: a rate above 0"));
  EXPECT_THAT(wrong("a 1 9 1099511627777\n"), StartsWith("a.hea: at byte 6: a number of samples"));
  EXPECT_THAT(wrong("a 1\na.dat 16x1001\n"), StartsWith("a.hea: at byte 13: 1 to 1000 samples"));
  EXPECT_THAT(wrong("a 1\na.dat 16+1099511627777\n"),
              StartsWith("a.hea: at byte 13: a number of bytes"));
}

TEST(WfdbHeaderTest, RefusesFilesInOtherFolders) {
  for (const std::string name : {"/etc/passwd", "../a.dat", "b/a.dat", "..", "."}) {
    EXPECT_EQ(
        wrong("a 1 360 2\n" + name + " 16\n"),
        "a.hea: at byte 10: the name of a file beside the header expected, found \"" + name + "\"");
  }
  EXPECT_THAT(wrong("a 1 360 2\n- 16\n"), HasSubstr("without a file"));
  EXPECT_THAT(wrong("a 1 360 2\n~ 16\n"), HasSubstr("without a file"));
  EXPECT_THAT(wrong(std::string("a 1 360 2\na.d\0t 16\n", 18)), HasSubstr("at byte 10: "));
}

TEST(WfdbHeaderTest, SaysWhereAFieldIsWrong) {
  EXPECT_EQ(wrong(""), "a.hea: at byte 0: the line of the record is missing");
  EXPECT_EQ(wrong("# only a comment\n"), "a.hea: at byte 0: the line of the record is missing");
  EXPECT_EQ(wrong("a"), "a.hea: at byte 1: a number of signals expected, found \"\"");
  EXPECT_EQ(wrong("a x"), "a.hea: at byte 2: a number of signals expected, found \"x\"");
  EXPECT_EQ(wrong("a 0"), "a.hea: at byte 0: the record has no signals");
  EXPECT_EQ(wrong("a -1"), "a.hea: at byte 2: a number of signals expected, found \"-1\"");
  EXPECT_EQ(wrong("a 99999999999999999999"),
            "a.hea: at byte 2: a number of signals expected, found \"99999999999999999999\"");
  EXPECT_EQ(wrong("a 2 360\na.dat 16\n"),
            "a.hea: at byte 17: the header ends after 1 of 2 signals");
  EXPECT_EQ(wrong("a/2 1 360\n"),
            "a.hea: at byte 0: a record of several segments is not supported");
  for (const std::string rate : {"0", "-1", "nan", "inf", "1e99", "x"}) {
    EXPECT_EQ(wrong("a 1 " + rate + "\na.dat 16\n"),
              "a.hea: at byte 4: a rate above 0 expected, found \"" + rate + "\"");
  }
  EXPECT_EQ(wrong("a 1 360 x\n"), "a.hea: at byte 8: a number of samples expected, found \"x\"");
  EXPECT_EQ(wrong("a 1\na.dat"), "a.hea: at byte 9: format 16 or 212 expected, found \"\"");
  EXPECT_EQ(wrong("a 1\na.dat 80\n"), "a.hea: at byte 10: format 16 or 212 expected, found \"80\"");
  EXPECT_EQ(wrong("a 1\na.dat 16x0\n"),
            "a.hea: at byte 13: 1 to 1000 samples in a frame expected, found \"0\"");
  EXPECT_EQ(wrong("a 1\na.dat 16:251\n"),
            "a.hea: at byte 13: a skew of at most one second expected, found \"251\"");
  for (const std::string gain : {"nan", "inf", "x", "1e13"}) {
    EXPECT_EQ(wrong("a 1\na.dat 16 " + gain + "\n"),
              "a.hea: at byte 13: a finite gain expected, found \"" + gain + "\"");
  }
  EXPECT_EQ(wrong("a 1\na.dat 16 1e-30\n"), "a.hea: at byte 13: the gain is too small");
  EXPECT_THAT(wrong("a 1\na.dat 16 1(2\n"), StartsWith("a.hea: at byte 15: a baseline"));
  EXPECT_THAT(wrong("a 1\na.dat 16 1 16 0 0 70000\n"),
              StartsWith("a.hea: at byte 22: a checksum of 16 bits"));
  for (const auto& [field, expected] : {std::pair{"-32769", "22: a checksum of 16 bits"},
                                        std::pair{"65536", "22: a checksum of 16 bits"}}) {
    EXPECT_THAT(wrong(std::string("a 1\na.dat 16 1 16 0 0 ") + field),
                StartsWith(std::string("a.hea: at byte ") + expected))
        << field;
  }
  EXPECT_THAT(wrong("a 1\na.dat 16 1 x"), StartsWith("a.hea: at byte 15: a number of bits"));
  EXPECT_THAT(wrong("a 1\na.dat 16 1 65"), StartsWith("a.hea: at byte 15: a number of bits"));
  EXPECT_THAT(wrong("a 1\na.dat 16 1 16 1073741825"), StartsWith("a.hea: at byte 18: a zero of"));
  EXPECT_THAT(wrong("a 1\na.dat 16 1 16 -1073741825"), StartsWith("a.hea: at byte 18: a zero of"));
  EXPECT_THAT(wrong("a 1\na.dat 16 1 16 0 x"), StartsWith("a.hea: at byte 20: a first value"));
  EXPECT_THAT(wrong("a 1\na.dat 16 1 16 0 -1073741825"),
              StartsWith("a.hea: at byte 20: a first value"));
  EXPECT_THAT(wrong("a 1\na.dat 16 1()"), StartsWith("a.hea: at byte 15: a baseline expected"));
  EXPECT_THAT(wrong("a 1\na.dat 16 1(-1073741825)"),
              StartsWith("a.hea: at byte 15: a baseline expected"));
  EXPECT_THAT(wrong("a 1\na.dat 16 -1e13"), StartsWith("a.hea: at byte 13: a finite gain"));
  EXPECT_THAT(wrong("a 1\na.dat 16 -1e-13"),
              StartsWith("a.hea: at byte 13: the gain is too small"));
}

// A control character in a name must not control the terminal.
TEST(WfdbHeaderTest, HasPrintableErrors) {
  EXPECT_EQ(wrong("a 1\n\x1B[2J/ 16\n"),
            "a.hea: at byte 4: the name of a file beside the header expected, found \"?[2J/\"");
}

}  // namespace
