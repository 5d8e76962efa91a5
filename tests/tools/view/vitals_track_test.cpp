// SPDX-License-Identifier: MIT
#include <tools/view/vitals_track.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <optional>

namespace Zephly::view {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;

json parsed(const std::optional<Message>& message) {
  return message ? json::parse(*message->bytes) : json();
}

// Five seconds of frames, on time for the clock of the vitals, on an axis that is 0.2 s late.
void receiveFiveSeconds(VitalsTrack& track, StrapTime begin) {
  track.beginLink();
  for (int index = 0; index < 5 * 500; ++index) {
    const StrapTime frame = begin + index / 6 * 12ms;
    track.sample(frame + 10ms, begin + 200ms + index * 2ms);
  }
}

TEST(VitalsTrackTest, PutsABeatAtItsPeakInTheCurve) {
  VitalsTrack track;
  receiveFiveSeconds(track, 10s);
  track.add(vitals::Beat{.time = 12345ms, .rr = 0.8});
  track.add(vitals::Breath{.time = 12s, .duration = {}});
  track.add(vitals::Second{.time = 13s, .heartRate = {}, .breathingRate = {}, .contact = {}});
  const json message = parsed(track.take(15s));
  EXPECT_EQ(message.at("beats").at(0).at("t"), 12.545);
  EXPECT_EQ(message.at("breaths").at(0).at("t"), 12.2);
  EXPECT_EQ(message.at("seconds").at(0).at("t"), 13.2);
}

TEST(VitalsTrackTest, EachLinkHasItsOwnPlaceOnTheAxis) {
  VitalsTrack track;
  receiveFiveSeconds(track, 10s);
  receiveFiveSeconds(track, 16500ms);
  track.add(vitals::Beat{.time = 14900ms, .rr = {}});
  track.add(vitals::Beat{.time = 16600ms, .rr = {}});
  const json beats = parsed(track.take(20s)).at("beats");
  EXPECT_EQ(beats.at(0).at("t"), 15.1);
  EXPECT_EQ(beats.at(1).at("t"), 16.8);
}

TEST(VitalsTrackTest, ABeatBeforeAllSamplesKeepsItsTime) {
  VitalsTrack track;
  track.add(vitals::Beat{.time = 1s, .rr = {}});
  EXPECT_EQ(parsed(track.take(1s)).at("beats").at(0).at("t"), 1.0);
}

TEST(VitalsTrackTest, SendsEachOnceAndKeepsWhatWasSent) {
  VitalsTrack track;
  EXPECT_FALSE(track.take(1s));
  EXPECT_FALSE(track.kept());
  track.add(vitals::Beat{.time = 1s, .rr = {}});
  EXPECT_FALSE(track.kept());
  EXPECT_EQ(parsed(track.take(1s)).at("beats").size(), 1U);
  EXPECT_FALSE(track.take(1s));
  track.add(vitals::Beat{.time = 2s, .rr = {}});
  EXPECT_EQ(parsed(track.kept()).at("beats").size(), 1U);
  EXPECT_EQ(parsed(track.take(2s)).at("beats").at(0).at("t"), 2.0);
  EXPECT_EQ(parsed(track.kept()).at("beats").size(), 2U);
}

TEST(VitalsTrackTest, ForgetsAfterFiveMinutes) {
  VitalsTrack track;
  for (int second = 0; second < 1000; ++second) {
    track.add(vitals::Beat{.time = second * 1s, .rr = {}});
    track.add(vitals::Breath{.time = second * 1s, .duration = {}});
    track.add(
        vitals::Second{.time = second * 1s, .heartRate = {}, .breathingRate = {}, .contact = {}});
    track.take(second * 1s);
  }
  const json kept = parsed(track.kept());
  for (const char* what : {"beats", "breaths", "seconds"}) {
    EXPECT_EQ(kept.at(what).size(), 301U);
    EXPECT_EQ(kept.at(what).front().at("t"), 699.0);
  }
}

TEST(VitalsTrackTest, TheMessageHasWhatIsKnown) {
  VitalsTrack track;
  track.add(vitals::Beat{.time = 1s,
                         .rr = 0.80001234,
                         .amplitude = 1,
                         .quality = 0.5,
                         .kind = vitals::BeatClass::ectopic,
                         .late = true});
  track.add(vitals::Beat{.time = 2s, .rr = {}});
  track.add(
      vitals::Breath{.time = 1s, .duration = 4, .depth = 1.5, .quality = 0.25, .derived = true});
  track.add(vitals::Breath{.time = 2s, .duration = {}});
  track.add(vitals::Second{.time = 1s,
                           .heartRate = 71.6,
                           .heartRateQuality = 1,
                           .breathingRate = 14.25,
                           .breathingQuality = 0.5,
                           .breathingDerived = true,
                           .contact = {}});
  track.add(vitals::Second{.time = 2s, .heartRate = {}, .breathingRate = {}, .contact = {}});
  EXPECT_EQ(parsed(track.take(2s)), json::parse(R"({"type":"vitals",
    "beats":[{"t":1.0,"rr":0.8,"class":"ectopic","quality":0.5,"late":true},
             {"t":2.0,"rr":null,"class":"normal","quality":0.0,"late":false}],
    "breaths":[{"t":1.0,"duration":4.0,"depth":1.5,"quality":0.25,"derived":true},
               {"t":2.0,"duration":null,"depth":0.0,"quality":0.0,"derived":false}],
    "seconds":[{"t":1.0,"heartRate":71.6,"heartRateQuality":1.0,"breathingRate":14.25,
                "breathingQuality":0.5,"breathingDerived":true},
               {"t":2.0,"heartRate":null,"heartRateQuality":0.0,"breathingRate":null,
                "breathingQuality":0.0,"breathingDerived":false}]})"));
}

}  // namespace
}  // namespace Zephly::view
