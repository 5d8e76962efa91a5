// SPDX-License-Identifier: MIT
#include <tools/report/capture_report.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <cstdlib>
#include <ctime>
#include <vector>

namespace Zephly::reporting {
namespace {

using namespace std::chrono_literals;

nlohmann::json reportOf(const capture::Preamble& preamble) {
  CaptureReport report;
  report.begin(preamble, {.clocks = {}, .annotations = {}, .end = 10s});
  return nlohmann::json::parse(
      report.json({.file = "a.zcap", .format = "capture"}, {}, "A").text());
}

nlohmann::json clockOf(std::chrono::nanoseconds began) {
  return reportOf({.program = {}, .source = {}, .began = began})["clock"];
}

TEST(CaptureReportTest, HasTheOriginOfTheCapture) {
  const nlohmann::json data =
      reportOf({.program = "zephly 9", .source = "strap 7", .simulated = false});
  EXPECT_EQ(data["recordedBy"], "zephly 9");
  EXPECT_EQ(data["source"], "strap 7");
  EXPECT_EQ(data["simulated"], false);
}

// A clock that was never set counts from 1970 or from before it.
TEST(CaptureReportTest, HasNoDateThatCannotBeOne) {
  EXPECT_TRUE(clockOf(-1s).is_null());
  EXPECT_EQ(clockOf(0s)["began"], 0);
  EXPECT_EQ(clockOf(8'000'000'000s)["began"], 8'000'000'000'000);
  EXPECT_TRUE(clockOf(8'000'000'001s).is_null());
}

TEST(CaptureReportTest, HasStripsOfTheEcg) {
  constexpr auto frame = 12ms;  // six samples, at 500 a second
  std::vector<replay::PlayedRecord> records(1);
  records[0].connected = true;
  for (int i = 1; i <= 1000; ++i) {
    replay::PlayedRecord record;
    record.time = i * frame;
    record.ecg.assign(6, 0.001F * static_cast<float>(i));
    records.push_back(record);
  }
  replay::Survey survey;
  for (const replay::PlayedRecord& record : records) survey.take(record);
  CaptureReport report;
  const replay::Timeline timeline = survey.finish(12s);
  report.begin({}, timeline);
  for (const replay::PlayedRecord& record : records) report.record(record);
  vitals::Second second;
  second.heartRate = 60;
  second.heartRateQuality = 1;
  second.ecgQuality = 1;
  second.contact = true;
  for (second.time = 1s; second.time <= 11s; second.time += 1s) report.second(second);
  const nlohmann::json data =
      nlohmann::json::parse(report.json({.file = "a", .format = "capture"}, {}, "A").text());
  ASSERT_EQ(data["strips"].size(), 1U);
  const nlohmann::json& values = data["strips"][0]["values"];
  ASSERT_EQ(values.size(), 5000U);
  // Of the frames that arrived 1 s and 11 s after the begin.
  EXPECT_NEAR(values.front().get<double>(), 0.084, 0.002);
  EXPECT_NEAR(values.back().get<double>(), 0.917, 0.002);
}

TEST(CaptureReportTest, HasTheTimeZoneOfTheMachine) {
  ASSERT_EQ(::setenv("TZ", "TEST-05:30", 1), 0);
  ::tzset();
  const nlohmann::json clock = clockOf(1'700'000'000'250ms);
  ::unsetenv("TZ");
  ::tzset();
  EXPECT_EQ(clock["began"], 1'700'000'000'250);
  EXPECT_EQ(clock["utcOffset"], 19'800);
  EXPECT_EQ(clock["zone"], "TEST");
}

}  // namespace
}  // namespace Zephly::reporting
