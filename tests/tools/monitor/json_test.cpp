// SPDX-License-Identifier: MIT
#include <tests/support/bits.h>
#include <tests/support/long_run.h>
#include <tools/monitor/json_line.h>
#include <tools/monitor/json_text.h>
#include <zephly/motion/exercise.h>
#include <zephly/protocol/streams.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <bit>
#include <chrono>
#include <cmath>
#include <limits>
#include <random>
#include <string>

namespace Zephly::monitor {
namespace {

using nlohmann::json;
using namespace std::chrono_literals;

TEST(JsonSecondsTest, AreExactAndShort) {
  EXPECT_EQ(jsonSeconds(0ns), "0");
  EXPECT_EQ(jsonSeconds(30s), "30");
  EXPECT_EQ(jsonSeconds(1012ms), "1.012");
  EXPECT_EQ(jsonSeconds(1ns), "0.000000001");
  EXPECT_EQ(jsonSeconds(100ms), "0.1");
  EXPECT_EQ(jsonSeconds(-1500ms), "-1.5");
}

TEST(JsonTextTest, EveryEventIsOneLine) {
  const auto text = [](auto what) { return jsonText(watch::Event{1500ms, what}); };
  EXPECT_EQ(text(watch::Connected{}), "{\"t\":1.5,\"event\":\"connected\"}\n");
  EXPECT_EQ(text(watch::Disconnected{}), "{\"t\":1.5,\"event\":\"disconnected\"}\n");
  EXPECT_EQ(text(watch::LeadOff{true}), "{\"t\":1.5,\"event\":\"leadoff\",\"value\":true}\n");
  EXPECT_EQ(text(watch::Temperature{33.5F, 22.25F, 0}),
            "{\"t\":1.5,\"event\":\"temperature\",\"object\":33.5,\"ambient\":22.25,\"body\":0}\n");
  EXPECT_EQ(text(watch::Battery{{80.1F, true}}),
            "{\"t\":1.5,\"event\":\"battery\",\"soc\":80.1,\"inCharge\":true}\n");
  EXPECT_EQ(text(watch::EcgSample{0.1F}), "{\"t\":1.5,\"event\":\"ecg\",\"value\":0.1}\n");
  EXPECT_EQ(text(watch::RespirationSample{1}),
            "{\"t\":1.5,\"event\":\"respiration\",\"value\":1}\n");
  EXPECT_EQ(text(watch::Repetition{Exercise::pushUp}), "{\"t\":1.5,\"event\":\"pushUp\"}\n");
  EXPECT_EQ(text(watch::Repetition{Exercise::sitUp}), "{\"t\":1.5,\"event\":\"sitUp\"}\n");
  EXPECT_EQ(text(watch::Repetition{Exercise::jump}), "{\"t\":1.5,\"event\":\"jump\"}\n");
  EXPECT_EQ(text(watch::MotionSample{0.5F, -0.125F}),
            "{\"t\":1.5,\"event\":\"motion\",\"highPassed\":0.5,\"displacement\":-0.125}\n");
}

TEST(JsonTextTest, VitalsHaveTheirOwnTimeAndNullForWhatIsUnknown) {
  const auto text = [](auto what) { return jsonText(watch::Event{1500ms, what}); };
  EXPECT_EQ(text(vitals::Beat{.time = 1012345678ns,
                              .rr = 0.8125,
                              .amplitude = 0.75,
                              .quality = 0.5,
                              .kind = vitals::BeatClass::ectopic,
                              .late = true}),
            "{\"t\":1.5,\"event\":\"beat\",\"at\":1.012345678,\"rr\":0.8125,\"amplitude\":0.75,"
            "\"quality\":0.5,\"class\":\"ectopic\",\"late\":true}\n");
  EXPECT_EQ(text(vitals::Beat{.time = 1s, .rr = {}}),
            "{\"t\":1.5,\"event\":\"beat\",\"at\":1,\"rr\":null,\"amplitude\":0,\"quality\":0,"
            "\"class\":\"normal\",\"late\":false}\n");
  EXPECT_EQ(text(vitals::Breath{
                .time = 1s, .duration = 4.25, .depth = 1.5, .quality = 0.75, .derived = true}),
            "{\"t\":1.5,\"event\":\"breath\",\"at\":1,\"duration\":4.25,\"depth\":1.5,"
            "\"quality\":0.75,\"derived\":true}\n");
  EXPECT_EQ(text(vitals::Breath{.time = 1s, .duration = {}}),
            "{\"t\":1.5,\"event\":\"breath\",\"at\":1,\"duration\":null,\"depth\":0,"
            "\"quality\":0,\"derived\":false}\n");
  EXPECT_EQ(text(vitals::Second{.time = 1s,
                                .heartRate = 71.5,
                                .heartRateQuality = 1,
                                .ecgQuality = 0.5,
                                .breathingRate = 14.25,
                                .breathingQuality = 0.25,
                                .breathingDerived = true,
                                .respirationQuality = 0.125,
                                .contact = true}),
            "{\"t\":1.5,\"event\":\"vitals\",\"at\":1,\"heartRate\":71.5,\"heartRateQuality\":1,"
            "\"ecgQuality\":0.5,\"breathingRate\":14.25,\"breathingQuality\":0.25,"
            "\"breathingDerived\":true,\"respirationQuality\":0.125,\"contact\":true}\n");
  EXPECT_EQ(text(vitals::Second{.time = 1s, .heartRate = {}, .breathingRate = {}, .contact = {}}),
            "{\"t\":1.5,\"event\":\"vitals\",\"at\":1,\"heartRate\":null,\"heartRateQuality\":0,"
            "\"ecgQuality\":0,\"breathingRate\":null,\"breathingQuality\":0,"
            "\"breathingDerived\":false,\"respirationQuality\":0,\"contact\":null}\n");
}

TEST(JsonTextTest, MotionHasTheSixDigitsOfTheTraceLine) {
  const auto text = [](float value) {
    return jsonText(watch::Event{0s, watch::MotionSample{value, 0}});
  };
  EXPECT_THAT(text(0.123456789F), testing::HasSubstr("\"highPassed\":0.123457,"));
  EXPECT_THAT(text(-1234567.0F), testing::HasSubstr("\"highPassed\":-1234570,"));
  EXPECT_THAT(text(std::numeric_limits<float>::quiet_NaN()),
              testing::HasSubstr("\"highPassed\":\"nan\","));
}

TEST(JsonTextTest, AHostLineIsASeparateEvent) {
  EXPECT_EQ(jsonText(watch::Event{1500ms, watch::HostLine{"no \"bus\""}}),
            "{\"t\":1.5,\"event\":\"host\",\"text\":\"no \\\"bus\\\"\"}\n");
}

TEST(JsonTextTest, AnyDiagnosticTextIsValidJson) {
  const std::string text = "quote \" backslash \\ tab \t escape \x1b umlaut \xc3\xa4";
  const json event = json::parse(jsonText(watch::Event{0s, watch::Diagnostic{text}}));
  EXPECT_EQ(event.at("text"), text);
  const json replaced = json::parse(jsonText(watch::Event{0s, watch::Diagnostic{"broken \xff"}}));
  EXPECT_EQ(replaced.at("text"), "broken \xef\xbf\xbd");
}

TEST(JsonTextTest, NonFiniteNumbersAreStrings) {
  const auto value = [](float number) {
    return json::parse(jsonText(watch::Event{0s, watch::EcgSample{number}})).at("value");
  };
  EXPECT_EQ(value(std::numeric_limits<float>::quiet_NaN()), "nan");
  EXPECT_EQ(value(-std::numeric_limits<float>::quiet_NaN()), "nan");
  EXPECT_EQ(value(std::numeric_limits<float>::infinity()), "inf");
  EXPECT_EQ(value(-std::numeric_limits<float>::infinity()), "-inf");
}

// A reader that parses doubles and rounds to float gets the same bits.
TEST(JsonTextTest, FloatsReadBackToTheSameBits) {
  std::mt19937 random(4711);
  for (int index = 0; index < longRun(100'000, 10'000); ++index) {
    const auto value = std::bit_cast<float>(static_cast<std::uint32_t>(random()));
    if (!std::isfinite(value)) continue;
    const json event = json::parse(jsonText(watch::Event{0s, watch::EcgSample{value}}));
    ASSERT_TRUE(sameBits(static_cast<float>(event.at("value").get<double>()), value)) << event;
  }
}

TEST(JsonTextTest, TheSummaryIsComplete) {
  watch::Summary summary;
  summary.duration = 2500ms;
  watch::StreamSent played{
      .sent = 12, .notSubscribed = 6, .recording = simulator::PlaybackCounts{3, 11, 1, 2}};
  summary.streams = {{Stream::ecg, played, 10, 499.5, 1250us}};
  summary.repetitionsDone = Repetitions{1, 2, 3};
  summary.repetitionsCounted = {4, 5, 6};
  summary.connections = 7;
  summary.disconnections = 8;
  summary.reconnections = 9;
  summary.linkLosses = {{500ms, "broken \xff", 1500ms}, {2s, std::nullopt, std::nullopt}};
  summary.leadOffChanges = 10;
  summary.neverArrived = {"jump"};
  summary.vitals = {.beats = {5, 2, 1},
                    .breaths = 3,
                    .seconds = 9,
                    .heartRate = {.seconds = 2, .sum = 125, .low = 60, .high = 65},
                    .breathingRate = {}};
  const json expected = json::parse(R"({
    "t": 2.5, "event": "summary", "duration": 2.5,
    "streams": {"ecg": {"sent": 12, "delivered": 10, "lost": 2, "notSubscribed": 6,
                "perSecond": 499.5, "longestGap": 0.00125,
                "recording": {"rows": 3, "samples": 11, "filled": 1, "saturated": 2}}},
    "repetitions": {"done": {"pushUps": 1, "sitUps": 2, "jumps": 3},
                    "counted": {"pushUps": 4, "sitUps": 5, "jumps": 6}},
    "connections": 7, "disconnections": 8, "reconnections": 9,
    "linkLosses": [{"t": 0.5, "recovery": 1.5, "reason": "broken \ufffd"}, {"t": 2}],
    "leadOffChanges": 10,
    "neverArrived": ["jump"],
    "vitals": {"seconds": 9, "beats": {"normal": 5, "ectopic": 2, "artefact": 1}, "breaths": 3,
               "heartRate": {"seconds": 2, "mean": 62.5, "low": 60, "high": 65},
               "breathingRate": {"seconds": 0, "mean": null, "low": null, "high": null}}})");
  EXPECT_EQ(json::parse(jsonText(summary)), expected);
}

TEST(JsonTextTest, TheSummaryOfARealStrapOmitsDataThatOnlyTheStrapHas) {
  watch::Summary summary;
  summary.streams = {{.stream = Stream::ecg, .delivered = 10}};
  const json parsed = json::parse(jsonText(summary));
  EXPECT_EQ(parsed.at("streams").at("ecg"), json({{"delivered", 10}}));
  EXPECT_FALSE(parsed.at("repetitions").contains("done"));
  EXPECT_TRUE(parsed.at("repetitions").contains("counted"));
}

}  // namespace
}  // namespace Zephly::monitor
