// SPDX-License-Identifier: MIT
#include <tools/common/option_values.h>

#include <CLI/CLI.hpp>
#include <gtest/gtest.h>

#include <chrono>
#include <string>

namespace Zephly::tools {
namespace {

using namespace std::chrono_literals;

StrapTime timeOf(const std::string& text) { return timeValue("--duration", text, 1e-9); }

std::string errorOf(const std::string& text, double shortest = 1e-9) {
  try {
    timeValue("--duration", text, shortest);
  } catch (const CLI::ParseError& error) {
    return error.what();
  }
  return "none";
}

TEST(OptionValuesTimeTest, TakesSecondsUnitsAndClockTimes) {
  EXPECT_EQ(timeOf("90"), 90s);
  EXPECT_EQ(timeOf("1.5"), 1500ms);
  EXPECT_EQ(timeOf("1e-9"), 1ns);
  EXPECT_EQ(timeOf("90s"), 90s);
  EXPECT_EQ(timeOf("10m"), 10min);
  EXPECT_EQ(timeOf("1.5m"), 90s);
  EXPECT_EQ(timeOf("1h"), 1h);
  EXPECT_EQ(timeOf("1h30m"), 90min);
  EXPECT_EQ(timeOf("1h5s"), 1h + 5s);
  EXPECT_EQ(timeOf("2h3m4.5s"), 2h + 3min + 4500ms);
  EXPECT_EQ(timeOf("0:30"), 30s);
  EXPECT_EQ(timeOf("90:00"), 90min);
  EXPECT_EQ(timeOf("1:00:00"), 1h);
  EXPECT_EQ(timeOf("1:02:03.25"), 1h + 2min + 3250ms);
  EXPECT_EQ(timeOf("1000000000"), 1'000'000'000s);
  EXPECT_EQ(timeValue("--absence", "0", 0), 0s);
}

TEST(OptionValuesTimeTest, RefusesOtherTexts) {
  for (const char* text : {"",        "abc",      "m",    "h",    "10x",   "-3",     "-1m",
                           "1m-3s",   "nan",      "inf",  "infm", "nans",  "1e999",  "1m1h",
                           "1m30",    "1s1s",     "10 m", " 10",  "+5",    "1:60",   "0:75:00",
                           "1:2:3:4", ":30",      "1:",   "1:-5", "-1:30", "1.5:30", "1:nan",
                           "1:30s",   "1:1e1:00", "10M"}) {
    EXPECT_EQ(errorOf(text), "--duration: expected a time like 90, 10m, 1h30m or 1:30:00, got \"" +
                                 std::string(text) + "\"");
  }
}

TEST(OptionValuesTimeTest, RefusesTimesOutOfRange) {
  EXPECT_EQ(errorOf("0"), "--duration: expected a time greater than 0, got \"0\"");
  EXPECT_EQ(errorOf("0:00"), "--duration: expected a time greater than 0, got \"0:00\"");
  EXPECT_EQ(errorOf("1e-10"), "--duration: expected a time greater than 0, got \"1e-10\"");
  EXPECT_EQ(errorOf("300000h"), "--duration: expected a time of at most 31 years, got \"300000h\"");
  EXPECT_EQ(errorOf("1e10"), "--duration: expected a time of at most 31 years, got \"1e10\"");
}

}  // namespace
}  // namespace Zephly::tools
