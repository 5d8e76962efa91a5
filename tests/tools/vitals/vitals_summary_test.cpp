// SPDX-License-Identifier: MIT
#include <tools/vitals/vitals_summary.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <optional>
#include <string>

namespace {

using namespace std::chrono_literals;
using namespace Zephly::recorders;
using testing::HasSubstr;
using testing::Not;
using Zephly::vitals::BeatClass;

const AboutInput both{.file = "a.edf",
                      .format = "EDF+",
                      .ecg = AboutInput::Signal{"ECG", 360},
                      .respiration = AboutInput::Signal{"Resp", 31.25},
                      .duration = 90s};

void addBeat(VitalsSummary& summary, Zephly::vitals::Time time, std::optional<double> rr,
             BeatClass kind, bool late) {
  Zephly::vitals::Beat beat;
  beat.time = time;
  beat.rr = rr;
  beat.kind = kind;
  beat.late = late;
  summary.beat(beat);
}

void addBreath(VitalsSummary& summary, Zephly::vitals::Time time, bool derived) {
  Zephly::vitals::Breath breath;
  breath.time = time;
  breath.derived = derived;
  summary.breath(breath);
}

void someVitals(VitalsSummary& summary) {
  for (int i = 0; i < 120; ++i) {
    addBeat(summary, i * 750ms, i == 0 ? std::nullopt : std::optional(0.75), BeatClass::normal,
            false);
  }
  addBeat(summary, 90s, 0.75, BeatClass::ectopic, true);
  addBeat(summary, 90'100ms, 0.1, BeatClass::artefact, false);
  addBreath(summary, 10s, false);
  addBreath(summary, 14s, true);
  for (int i = 1; i <= 4; ++i) {
    Zephly::vitals::Second second;
    second.time = i * 1s;
    if (i < 4) second.heartRate = 78 + i;
    second.ecgQuality = 0.5;
    second.respirationQuality = 0.25;
    summary.second(second);
  }
}

TEST(VitalsSummaryTest, SaysWhatWasFound) {
  VitalsSummary summary;
  someVitals(summary);
  const std::string text = summary.text(both);
  EXPECT_THAT(text, HasSubstr("a.edf (EDF+, 1:30)\n"));
  EXPECT_THAT(text, HasSubstr("  ECG          ECG, 360 samples per second, quality 0.50\n"));
  EXPECT_THAT(text, HasSubstr("  respiration  Resp, 31.25 samples per second, quality 0.25\n"));
  EXPECT_THAT(text, HasSubstr("  beats        122: 120 normal, 1 ectopic, 1 artefact\n"));
  EXPECT_THAT(text,
              HasSubstr("  heart rate   80.0 /min (79.0 to 81.0), known for 75.0 % of the time\n"));
  EXPECT_THAT(text, HasSubstr("mean NN 750.0 ms"));
  EXPECT_THAT(text, HasSubstr("  breaths      2, 1 of them from the ECG\n"));
  EXPECT_THAT(text, HasSubstr("  breathing    -\n"));
}

TEST(VitalsSummaryTest, HasTheSameAsJson) {
  VitalsSummary summary;
  someVitals(summary);
  const auto json = nlohmann::ordered_json::parse(summary.json(both).text());
  EXPECT_EQ(json["file"], "a.edf");
  EXPECT_EQ(json["format"], "EDF+");
  EXPECT_EQ(json["duration"], 90.0);
  EXPECT_EQ(json["ecg"].dump(), R"({"name":"ECG","rate":360.0,"quality":0.5})");
  EXPECT_EQ(json["beats"].dump(),
            R"({"count":122,"normal":120,"ectopic":1,"artefact":1,"late":1})");
  EXPECT_EQ(json["heartRate"].dump(),
            R"({"median":80.0,"lowest":79.0,"highest":81.0,"known":0.75})");
  EXPECT_EQ(json["hrv"]["meanNN"], 750.0);
  EXPECT_EQ(json["breaths"].dump(), R"({"count":2,"derived":1})");
  EXPECT_EQ(json["breathingRate"].dump(),
            R"({"median":null,"lowest":null,"highest":null,"known":0.0})");
}

TEST(VitalsSummaryTest, OfNothingKnowsNothing) {
  const std::string text =
      VitalsSummary().text({.file = "a\x1B.csv", .format = "CSV", .duration = 0s});
  EXPECT_THAT(text, HasSubstr("a?.csv (CSV, 0:00)\n  ECG          none\n"));
  EXPECT_THAT(text, Not(HasSubstr("heart rate")));
  EXPECT_EQ(nlohmann::ordered_json::parse(
                VitalsSummary().json({.file = "a", .format = "CSV"}).text())["ecg"],
            nullptr);
}

}  // namespace
