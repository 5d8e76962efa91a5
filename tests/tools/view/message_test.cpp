// SPDX-License-Identifier: MIT
// The binary and JSON messages to a viewer.

#include <tools/view/message.h>

#include <tests/tools/view/bytes.h>
#include <tools/view/texts.h>
#include <zephly/motion/exercise.h>
#include <zephly/protocol/strap_time.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <array>
#include <chrono>
#include <cmath>
#include <limits>
#include <string>

namespace Zephly::view {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;

TEST(MessageTest, SamplesAreAHeaderAndFloatsInLittleEndian) {
  const Message message =
      samplesMessage(Trace::respiration, 0x0102030405060708, 1.5, std::array{1.0F, -2.5F});
  EXPECT_EQ(*message.bytes, bytes({1, 2, 0,    0,    2, 0, 0,    0,     // kind, stream, count
                                   8, 7, 6,    5,    4, 3, 2,    1,     // index
                                   0, 0, 0,    0,    0, 0, 0xF8, 0x3F,  // 1.5
                                   0, 0, 0x80, 0x3F, 0, 0, 0x20, 0xC0}));
  EXPECT_EQ(message.samples, 2U);
  EXPECT_EQ(message.kind, Message::Kind::samples);
}

TEST(MessageTest, AMotionSampleIsTwoFloats) {
  const Message message = samplesMessage(Trace::motion, 0, 0, std::array{1.0F, 2.0F, 3.0F, 4.0F});
  EXPECT_EQ(message.bytes->size(), 24U + 16);
  EXPECT_EQ(message.bytes->at(1), 3);
  EXPECT_EQ(message.bytes->at(4), 2);
}

TEST(MessageTest, BitsOfSamplesAreUntouched) {
  const float strange = std::numeric_limits<float>::signaling_NaN();
  const Message message = samplesMessage(Trace::ecg, 0, 0, std::array{strange});
  EXPECT_EQ(message.bytes->substr(24), bytes({0, 0, 0xA0, 0x7F}));
}

TEST(TextsTest, HelloDescribesTheSource) {
  const json hello = json::parse(helloText({.program = "zephly 1.0",
                                            .title = "a strap",
                                            .pace = "speed 50",
                                            .session = "0a",
                                            .now = 12345ms}));
  EXPECT_EQ(hello, json::parse(R"({"type":"hello","protocol":1,"program":"zephly 1.0",
    "title":"a strap","pace":"speed 50","session":"0a","now":12.345,"historySeconds":30,
    "streams":{"ecg":{"rate":500,"low":-2.42,"high":2.42},
      "filteredEcg":{"rate":500,"low":0,"high":1},
      "respiration":{"rate":500,"low":0,"high":1},"motion":{"rate":30}},
    "counted":[{"name":"ecg","title":"ECG"},{"name":"respiration","title":"respiration"},
      {"name":"motion","title":"motion"},{"name":"temperature","title":"temperature"},
      {"name":"battery","title":"battery"}]})"));
}

json state(const watch::SessionModel& model, StrapTime now,
           const std::optional<TemperatureReading>& temperature = std::nullopt) {
  return json::parse(
      stateText({.model = model, .now = now, .temperature = temperature, .ended = false}));
}

TEST(TextsTest, TheInitialState) {
  const std::string stream =
      R"({"received":0,"perSecond":null,"longestGap":null,"missing":null,"missingPercent":null})";
  EXPECT_EQ(state(watch::SessionModel(), 0s),
            json::parse(R"({"type":"state","now":0.0,"connected":false,"linkChanged":null,
    "connections":0,"disconnections":0,"linkLosses":[],"electrodesOff":null,"temperature":null,
    "battery":null,"vitals":null,"repetitions":{"pushUps":0,"sitUps":0,"jumps":0},"hostLine":"","ended":false,
    "streams":{"ecg":)" +
                        stream + R"(,"respiration":)" + stream + R"(,"motion":)" + stream +
                        R"(,"temperature":)" + stream + R"(,"battery":)" + stream + "}}"));
}

TEST(TextsTest, TheStateIsTheModels) {
  watch::SessionModel model;
  model.take({1s, watch::Connected{}});
  model.take({1s, watch::LeadOff{true}});
  model.take({2s, watch::EcgSample{1}});
  model.take({2500ms, watch::EcgSample{1}});
  model.take({3s, watch::Battery{{.soc = 80.5F, .inCharge = true}}});
  model.take({4s, watch::Repetition{Exercise::jump}});
  model.take({5s, watch::Disconnected{}});
  model.take({5s, watch::Diagnostic{"didDisconnectPeripheral: too far", "too far"}});
  model.take({6s, watch::HostLine{"Bluetooth: ready."}});
  const json now = state(model, 6s, TemperatureReading{33.5F, 22.25F, 36.5F, 20, 4s});
  EXPECT_EQ(now.at("connected"), false);
  EXPECT_EQ(now.at("linkChanged"), 5.0);
  EXPECT_EQ(now.at("connections"), 1);
  EXPECT_EQ(now.at("disconnections"), 1);
  EXPECT_EQ(now.at("linkLosses"), json::parse(R"([{"t":5.0,"reason":"too far","recovery":null}])"));
  EXPECT_EQ(now.at("electrodesOff"), true);
  EXPECT_EQ(now.at("battery"), json::parse(R"({"soc":80.5,"inCharge":true})"));
  EXPECT_EQ(
      now.at("temperature"),
      json::parse(R"({"object":33.5,"ambient":22.25,"body":36.5,"bodyReadings":20,"t":4.0})"));
  EXPECT_EQ(now.at("repetitions").at("jumps"), 1);
  EXPECT_EQ(now.at("streams").at("ecg").at("received"), 2);
  EXPECT_EQ(now.at("streams").at("ecg").at("longestGap"), 2.5);
  EXPECT_EQ(now.at("streams").at("ecg").at("missing"), 3.5);
  EXPECT_EQ(now.at("streams").at("ecg").at("missingPercent"), 87.5);
  EXPECT_EQ(now.at("hostLine"), "Bluetooth: ready.");
  model.take({7s, watch::Connected{}});
  EXPECT_EQ(state(model, 7s).at("linkLosses").at(0).at("recovery"), 2.0);
}

TEST(TextsTest, SendsOnlyTheLastTwentyLinkLosses) {
  watch::SessionModel model;
  for (int i = 0; i < 25; ++i) {
    model.take({2 * i * 1s, watch::Connected{}});
    model.take({(2 * i + 1) * 1s, watch::Disconnected{}});
  }
  const json losses = state(model, 50s).at("linkLosses");
  EXPECT_EQ(losses.size(), 20U);
  EXPECT_EQ(losses.front().at("t"), 11.0);
  EXPECT_EQ(losses.back().at("t"), 49.0);
}

TEST(TextsTest, NumbersThatAreNotFiniteAreNull) {
  const json now = state(watch::SessionModel(), 0s, TemperatureReading{NAN, INFINITY, {}, 7, 0s});
  EXPECT_EQ(now.at("temperature"),
            json::parse(R"({"object":null,"ambient":null,"body":null,"bodyReadings":7,"t":0.0})"));
}

TEST(TextsTest, EncodesEvents) {
  const auto text = [](auto what) { return json::parse(eventText({1500ms, what}).value()); };
  const auto plain = [](const std::string& name) {
    return json{{"type", "event"}, {"t", 1.5}, {"event", name}};
  };
  EXPECT_EQ(text(watch::Connected{}), plain("connected"));
  EXPECT_EQ(text(watch::Disconnected{}), plain("disconnected"));
  EXPECT_EQ(text(watch::LeadOff{true}), plain("electrodesOff"));
  EXPECT_EQ(text(watch::LeadOff{false}), plain("electrodesOn"));
  EXPECT_EQ(text(watch::Repetition{Exercise::pushUp}), plain("pushUp"));
  EXPECT_EQ(text(watch::Repetition{Exercise::sitUp}), plain("sitUp"));
  EXPECT_EQ(text(watch::Repetition{Exercise::jump}), plain("jump"));
  json expected = plain("diagnostic");
  expected["text"] = "a \"line\"";
  EXPECT_EQ(text(watch::Diagnostic{"a \"line\""}), expected);
  expected = plain("host");
  expected["text"] = "broken \xEF\xBF\xBD";
  EXPECT_EQ(text(watch::HostLine{"broken \xFF"}), expected);
}

TEST(TextsTest, LatestValuesAndSamplesAreNotEvents) {
  EXPECT_FALSE(eventText({0s, watch::EcgSample{1}}));
  EXPECT_FALSE(eventText({0s, watch::RespirationSample{1}}));
  EXPECT_FALSE(eventText({0s, watch::MotionSample{1, 2}}));
  EXPECT_FALSE(eventText({0s, watch::Temperature{1, 2, 3}}));
  EXPECT_FALSE(eventText({0s, watch::Battery{}}));
}

TEST(TextsTest, ReportsLossesByStream) {
  EXPECT_EQ(json::parse(lostText(7, {1, 2, 3, 4})),
            json::parse(R"({"type":"lost","messages":7,"samples":{"ecg":1,"filteredEcg":2,
              "respiration":3,"motion":4}})"));
}

}  // namespace
}  // namespace Zephly::view
