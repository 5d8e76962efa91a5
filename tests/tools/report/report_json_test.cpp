// SPDX-License-Identifier: MIT
#include <tools/report/report_json.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <string>
#include <vector>

namespace Zephly::reporting {
namespace {

using namespace std::chrono_literals;
using nlohmann::ordered_json;
using Kind = replay::Annotation::Kind;
using testing::HasSubstr;
using testing::Not;

replay::Annotation at(Kind kind, std::chrono::seconds time) { return {.kind = kind, .time = time}; }

ordered_json interval(double from, double to, bool contact) {
  return {{"from", from}, {"to", to}, {"contact", contact}};
}

template <class Written>
ordered_json parsed(const Written& written) {
  return ordered_json::parse(written.text());
}

vitals::Beat beatAt(vitals::Time time, std::optional<double> rr = 0.8) {
  vitals::Beat beat;
  beat.time = time;
  beat.rr = rr;
  return beat;
}

TEST(ReportJsonTest, ContactIsUnknownBeforeItsReportAndWithoutALink) {
  const ordered_json contact =
      parsed(contactJson({at(Kind::connected, 1s), at(Kind::electrodesOff, 2s),
                          at(Kind::electrodesOn, 4s), at(Kind::linkLost, 10s)},
                         20s));
  EXPECT_EQ(contact["intervals"], ordered_json({interval(2, 4, false), interval(4, 10, true)}));
  EXPECT_EQ(contact["share"], 0.3);
}

// The kit reports changes only, also after a link loss.
TEST(ReportJsonTest, ContactHoldsFromLinkToLink) {
  const ordered_json contact = parsed(
      contactJson({at(Kind::connected, 0s), at(Kind::electrodesOn, 2s), at(Kind::linkLost, 5s),
                   at(Kind::connected, 7s), at(Kind::electrodesOff, 9s)},
                  10s));
  EXPECT_EQ(contact["intervals"],
            ordered_json({interval(2, 5, true), interval(7, 9, true), interval(9, 10, false)}));
  EXPECT_EQ(contact["share"], 0.5);
}

TEST(ReportJsonTest, ContactThatIsCorrectedAtOnceHasNoInterval) {
  const ordered_json contact = parsed(contactJson(
      {at(Kind::connected, 0s), at(Kind::electrodesOff, 2s), at(Kind::electrodesOn, 2s)}, 10s));
  EXPECT_EQ(contact["intervals"], ordered_json::array({interval(2, 10, true)}));
}

TEST(ReportJsonTest, OfAnEmptyRecordingNoShareIsKnown) {
  EXPECT_TRUE(parsed(contactJson({}, 0s))["share"].is_null());
  EXPECT_EQ(parsed(contactJson({}, 10s))["share"], 0);
  EXPECT_EQ(parsed(windowsJson({}, {}, 0s)), ordered_json::array());
}

TEST(ReportJsonTest, EachBeatAndSecondIsInOneWindow) {
  const std::vector<vitals::Beat> beats = {beatAt(299s), beatAt(300s), beatAt(301s), beatAt(302s)};
  std::vector<vitals::Second> seconds(3);
  for (std::size_t i = 0; i < seconds.size(); ++i) {
    seconds[i].time = 299s + i * 1s;  // their ends
    seconds[i].heartRate = 60.0 + static_cast<double>(i);
  }
  const ordered_json windows = parsed(windowsJson(beats, seconds, 310s));
  ASSERT_EQ(windows.size(), 2U);
  EXPECT_EQ(windows[0]["from"], 0);
  EXPECT_EQ(windows[0]["to"], 300);
  EXPECT_EQ(windows[1]["to"], 310);
  EXPECT_EQ(windows[0]["heartRate"]["lowest"], 60);
  EXPECT_EQ(windows[0]["heartRate"]["median"], 61);
  EXPECT_EQ(windows[0]["heartRate"]["highest"], 61);
  EXPECT_EQ(windows[1]["heartRate"]["lowest"], 62);
  EXPECT_EQ(windows[0]["heartRate"]["known"], 0.0067);
  EXPECT_EQ(windows[1]["heartRate"]["known"], 0.1);
  EXPECT_TRUE(windows[1]["breathingRate"]["median"].is_null());
  EXPECT_EQ(windows[0]["hrv"]["nn"], 0);
  EXPECT_EQ(windows[1]["hrv"]["nn"], 2);
}

// The last second may have begun before a window that is shorter.
TEST(ReportJsonTest, NoMoreThanAllOfAWindowIsKnown) {
  vitals::Second second;
  second.time = 400ms;
  second.heartRate = 60;
  const ordered_json windows = parsed(windowsJson({}, std::vector{second}, 400ms));
  EXPECT_EQ(windows[0]["heartRate"]["known"], 1);
}

TEST(ReportJsonTest, LateBeatsAreInTheirPlace) {
  std::vector<vitals::Beat> beats = {beatAt(1s, std::nullopt), beatAt(3s), beatAt(2s)};
  beats[1].kind = vitals::BeatClass::ectopic;
  beats[2].kind = vitals::BeatClass::artefact;
  const ordered_json columns = parsed(beatColumns(beats));
  EXPECT_EQ(columns["t"], ordered_json({1.0, 2.0, 3.0}));
  EXPECT_EQ(columns["rr"], ordered_json({nullptr, 800.0, 800.0}));
  EXPECT_EQ(columns["class"], "nae");
}

TEST(ReportJsonTest, WhatIsNotKnownIsNull) {
  std::vector<vitals::Second> seconds(2);
  seconds[1].time = 1s;
  seconds[1].contact = false;
  const ordered_json columns = parsed(secondsColumns(seconds));
  EXPECT_EQ(columns["t"], ordered_json({0, 1}));
  EXPECT_EQ(columns["heartRate"], ordered_json({nullptr, nullptr}));
  EXPECT_EQ(columns["contact"], ordered_json({nullptr, 0}));
}

TEST(ReportJsonTest, SecondsHaveTheirValues) {
  vitals::Second second;
  second.time = 7s;
  second.heartRate = 61.234;
  second.heartRateQuality = 0.1;
  second.ecgQuality = 0.2;
  second.breathingRate = 15.678;
  second.breathingQuality = 0.3;
  second.breathingDerived = true;
  second.respirationQuality = 0.4;
  second.contact = true;
  EXPECT_EQ(parsed(secondsColumns(std::vector{second})),
            ordered_json({{"t", {7}},
                          {"heartRate", {61.23}},
                          {"heartRateQuality", {0.1}},
                          {"ecgQuality", {0.2}},
                          {"breathingRate", {15.68}},
                          {"breathingQuality", {0.3}},
                          {"breathingDerived", {1}},
                          {"respirationQuality", {0.4}},
                          {"contact", {1}}}));
}

TEST(ReportJsonTest, ReadingsHaveTheirValues) {
  EXPECT_EQ(parsed(temperatureColumns(
                {{1s, {31.254F, 24.5F, std::nullopt}}, {2500ms, {32, 25, 37.126F}}})),
            ordered_json({{"t", {1.0, 2.5}},
                          {"skin", {31.25, 32.0}},
                          {"ambient", {24.5, 25.0}},
                          {"body", {nullptr, 37.13}}}));
  EXPECT_EQ(parsed(batteryColumns(
                {{1s, {.soc = 90.3F, .inCharge = false}}, {60s, {.soc = 91, .inCharge = true}}})),
            ordered_json({{"t", {1.0, 60.0}}, {"charge", {90.3, 91.0}}, {"charging", {0, 1}}}));
}

TEST(ReportJsonTest, EventsHaveTheirDurationAndStream) {
  EXPECT_EQ(parsed(eventsJson(
                {{.kind = Kind::linkLost, .time = 1s, .duration = 4500ms},
                 {.kind = Kind::jump, .time = 7s},
                 {.kind = Kind::gap, .time = 8s, .duration = 2s, .stream = Stream::respiration}})),
            ordered_json::array(
                {{{"t", 1.0}, {"event", "link lost"}, {"duration", 4.5}},
                 {{"t", 7.0}, {"event", "jump"}},
                 {{"t", 8.0}, {"event", "gap"}, {"duration", 2.0}, {"stream", "respiration"}}}));
}

TEST(ReportJsonTest, StripsHaveTheirSamples) {
  vitals::Second second;
  second.heartRate = 71.234;
  second.breathingRate = 15;
  const EcgStrip strip{.reason = "lowest",
                       .from = 11s,
                       .to = 20998ms,
                       .second = second,
                       .values = {0.12344F, -1.5F}};
  EXPECT_EQ(parsed(stripsJson({strip})), ordered_json::array({{{"reason", "lowest"},
                                                               {"from", 11.0},
                                                               {"to", 20.998},
                                                               {"heartRate", 71.23},
                                                               {"values", {0.1234, -1.5}}}}));
}

TEST(ReportJsonTest, EmbeddedTextsCannotEndTheDataOrBreakThem) {
  const std::string hostile = "</script><script>alert(1)</script><!-- & \" \xFF";
  const std::string text = embeddable(tools::JsonObject().add("title", hostile).text());
  EXPECT_THAT(text, Not(HasSubstr("<")));
  EXPECT_EQ(ordered_json::parse(text)["title"],
            "</script><script>alert(1)</script><!-- & \" \xEF\xBF\xBD");
}

}  // namespace
}  // namespace Zephly::reporting
