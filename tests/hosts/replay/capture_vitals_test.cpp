// SPDX-License-Identifier: MIT
#include <hosts/replay/capture_vitals.h>

#include <zephly/protocol/streams.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <vector>

namespace {

using namespace std::chrono_literals;
using Zephly::Stream;
using Zephly::replay::CaptureVitals;
using Zephly::replay::PlayedRecord;
using Zephly::replay::Timeline;
namespace vitals = Zephly::vitals;

struct Collected final : vitals::Receiver {
  std::vector<vitals::Beat> beats;
  std::vector<vitals::Second> seconds;

  void beat(const vitals::Beat& beat) override { beats.push_back(beat); }
  void breath(const vitals::Breath& /*breath*/) override {}
  void second(const vitals::Second& second) override { seconds.push_back(second); }
};

constexpr int perFrame = 6;
constexpr int samples = 14'904;  // half a minute, ends between two pulses
constexpr auto begin = 10s;

Timeline timelineOf(double period) {
  Timeline timeline;
  for (const Stream stream : {Stream::ecg, Stream::respiration}) {
    timeline.clocks[stream] = {
        .rate = {500, perFrame, 2s},
        .segments = {{.samples = samples, .begin = begin, .period = period}}};
  }
  return timeline;
}

// A pulse of 80 ms every 400 samples, at sample 200, 600 and so on.
float ecgAt(int sample) {
  const double apart = (sample % 400 - 200) / 8.0;
  return static_cast<float>(std::exp(-apart * apart) - 0.3 * std::exp(-std::pow(apart - 1.5, 2)));
}

void play(CaptureVitals& vitals, int offFrom) {
  for (int first = 0; first < samples; first += perFrame) {
    PlayedRecord ecg;
    PlayedRecord respiration;
    for (int i = 0; i < perFrame; ++i) {
      ecg.ecg.push_back(ecgAt(first + i));
      respiration.respiration.push_back({static_cast<float>(std::sin((first + i) * 0.003)), 0.5F});
      if (first + i == 0) respiration.contacts.push_back({0, false});
      if (first + i == offFrom) {
        respiration.contacts.push_back({static_cast<std::size_t>(i), true});
      }
    }
    vitals.take(ecg);
    vitals.take(respiration);
  }
  vitals.finish();
}

// The strap's clock is 200 ppm slow.
TEST(CaptureVitalsTest, GivesBeatsTheTimesOfTheSamples) {
  const Timeline timeline = timelineOf(2'000'400);
  Collected collected;
  CaptureVitals vitals(timeline, collected);
  play(vitals, -1);
  ASSERT_GT(collected.beats.size(), 25U);
  for (const vitals::Beat& beat : collected.beats) {
    const double sample = static_cast<double>((beat.time - begin).count()) / 2'000'400;
    EXPECT_NEAR(std::fmod(sample, 400), 200, 2) << beat.time.count();
  }
  EXPECT_EQ(collected.seconds.back().contact, true);
}

TEST(CaptureVitalsTest, FindsNothingWithoutContact) {
  const Timeline timeline = timelineOf(2'000'000);
  Collected collected;
  CaptureVitals vitals(timeline, collected);
  play(vitals, 9'004);
  ASSERT_FALSE(collected.beats.empty());
  EXPECT_LE(collected.beats.back().time, begin + 9'004 * 2ms + 100ms);
  EXPECT_GT(collected.beats.back().time, begin + 14s);
  EXPECT_EQ(collected.seconds.back().contact, false);
  EXPECT_FALSE(collected.seconds.back().heartRate);
}

}  // namespace
