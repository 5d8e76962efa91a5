// SPDX-License-Identifier: MIT
#include <simulator/strap.h>

#include <simulator/rates.h>
#include <tests/simulator/literal_decoding.h>
#include <zephly/dsp/leadoff_detector.h>
#include <zephly/motion/exercise.h>
#include <zephly/protocol/streams.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace Zephly::simulator {
namespace {

using namespace std::chrono_literals;

std::vector<Frame> framesUntil(FrameSource& strap, StrapTime end) {
  std::vector<Frame> frames;
  while (strap.nextFrameTime() && *strap.nextFrameTime() < end) frames.push_back(strap.nextFrame());
  return frames;
}

std::vector<Frame> only(Stream stream, const std::vector<Frame>& frames) {
  std::vector<Frame> chosen;
  std::ranges::copy_if(frames, std::back_inserter(chosen),
                       [stream](const Frame& frame) { return frame.stream == stream; });
  return chosen;
}

std::shared_ptr<const Recording> recordingOf(const std::string& names, int rows, double rate) {
  const auto count = std::ranges::count(names, ',') + 1;
  std::ostringstream text;
  text << names << '\n';
  for (int row = 0; row < rows; ++row)
    for (int column = 0; column < count; ++column)
      text << row % 17 + column << (column + 1 < count ? ',' : '\n');
  return std::make_shared<const Recording>(Recording::parse(text.str(), "test", rate));
}

TEST(StrapTest, SendsEveryStreamAtItsRate) {
  Strap strap;
  const std::vector<Frame> frames = framesUntil(strap, 60s);
  EXPECT_EQ(only(Stream::ecg, frames).size(), 5000U);
  EXPECT_EQ(only(Stream::respiration, frames).size(), 5000U);
  EXPECT_EQ(only(Stream::motion, frames).size(), 1800U);
  EXPECT_EQ(only(Stream::temperature, frames).size(), 60U);
  EXPECT_GE(only(Stream::battery, frames).size(), 6U);
}

TEST(StrapTest, AFrameIsDueWhenItsLastSampleIsTaken) {
  Strap strap;
  const std::vector<Frame> frames = framesUntil(strap, 10s);
  for (const Stream stream : {Stream::ecg, Stream::respiration}) {
    const std::vector<Frame> waveform = only(stream, frames);
    for (std::size_t k = 0; k < waveform.size(); ++k)
      ASSERT_EQ(waveform[k].time, 10ms + k * 12ms) << streamInfo(stream).name;
  }
  const std::vector<Frame> motion = only(Stream::motion, frames);
  for (std::size_t k = 0; k < motion.size(); ++k)
    ASSERT_EQ(motion[k].time, StrapTime(static_cast<std::int64_t>(k) * 1'000'000'000 / 30));
  const std::vector<Frame> temperature = only(Stream::temperature, frames);
  for (std::size_t k = 0; k < temperature.size(); ++k) ASSERT_EQ(temperature[k].time, k * 1s);
}

TEST(StrapTest, FramesAreOrderedByTimeAndHaveTheSizeOfTheirStream) {
  const std::map<Stream, std::size_t> sizes = {{Stream::temperature, 4},
                                               {Stream::ecg, 18},
                                               {Stream::battery, 3},
                                               {Stream::respiration, 18},
                                               {Stream::motion, 20}};
  Strap strap;
  std::pair<StrapTime, Stream> before{-1s, Stream::motion};
  while (strap.nextFrameTime() < 65s) {
    const auto due = strap.nextFrameTime();
    const Frame frame = strap.nextFrame();
    ASSERT_EQ(frame.time, due);
    ASSERT_LT(before, (std::pair{frame.time, frame.stream}));
    ASSERT_EQ(frame.bytes.size(), sizes.at(frame.stream));
    before = {frame.time, frame.stream};
  }
}

TEST(StrapTest, OneSeedGivesTheSameBytesAgain) {
  Strap first({.seed = 42});
  Strap second({.seed = 42});
  EXPECT_EQ(framesUntil(first, 60s), framesUntil(second, 60s));
}

TEST(StrapTest, AnotherSeedGivesOtherBytesInEveryStream) {
  Strap first({.seed = 1});
  Strap second({.seed = 2});
  const std::vector<Frame> frames = framesUntil(first, 10s);
  const std::vector<Frame> others = framesUntil(second, 10s);
  for (const Stream stream : allStreams)
    EXPECT_NE(only(stream, frames), only(stream, others)) << streamInfo(stream).name;
}

TEST(StrapTest, TheListenerChangesNothingForAModelledStrap) {
  Strap listened({.seed = 3});
  Strap ignored({.seed = 3});
  std::vector<Frame> frames = framesUntil(listened, 1s);
  listened.allSubscribed(1s);
  std::ranges::copy(framesUntil(listened, 5s), std::back_inserter(frames));
  EXPECT_EQ(frames, framesUntil(ignored, 5s));
  EXPECT_FALSE(listened.finished());
  EXPECT_FALSE(listened.playback(Stream::ecg));
}

TEST(StrapTest, ElectrodesOffMakeBothWaveformsFlat) {
  TrainingPlan plan;
  plan.electrodesOff = {{20s, 10s}};
  Strap strap({.plan = plan});
  LeadoffDetector detector;
  for (const Frame& frame : framesUntil(strap, 60s)) {
    if (frame.stream != Stream::ecg && frame.stream != Stream::respiration) continue;
    const auto samples = literal::samples(frame.bytes);
    const StrapTime first = frame.time - 10ms;
    const bool off = !strap.electrodesOn(first) && !strap.electrodesOn(frame.time);
    for (const float sample : samples) ASSERT_TRUE(!off || std::abs(sample) < 0.0011F);
    if (frame.stream == Stream::ecg) continue;
    for (std::size_t i = 0; i < samples.size(); ++i) {
      const StrapTime time = first + static_cast<std::int64_t>(i) * 2ms;
      const bool contact = detector.process(samples.at(i));
      // Settled: the last 70 samples are all with contact or all without.
      if (time < 138ms || strap.electrodesOn(time) != strap.electrodesOn(time - 138ms)) continue;
      ASSERT_EQ(contact, strap.electrodesOn(time)) << time.count();
    }
  }
}

TEST(StrapTest, TheSkinSensorCoolsWithoutSkin) {
  TrainingPlan plan;
  plan.electrodesOff = {{20s, 20s}};
  Strap strap({.plan = plan});
  std::vector<float> skin;
  for (const Frame& frame : only(Stream::temperature, framesUntil(strap, 41s)))
    skin.push_back(literal::celsiusOf(literal::littleEndian(frame.bytes, 0, 2)));
  ASSERT_EQ(skin.size(), 41U);
  EXPECT_NEAR(skin[19], skin[0], 0.5);
  EXPECT_LT(skin[39], skin[19] - 3);
}

TEST(StrapTest, ReportsTheTrueStateOfTheWearer) {
  const Strap strap;
  const TrainingPlan plan = TrainingPlan::standard();
  EXPECT_EQ(strap.repetitionsDone(10min), plan.repetitionsDone(10min));
  EXPECT_EQ(strap.plan().cycle, plan.cycle);
  EXPECT_TRUE(strap.electrodesOn(0s));
  EXPECT_FALSE(strap.electrodesOn(11s));
  EXPECT_NEAR(strap.heartRate(0s), 64, 1);
  EXPECT_NEAR(strap.breathingRate(0s), 14, 1);
  EXPECT_GT(strap.heartRate(10min), 100);
  EXPECT_GT(strap.breathingRate(10min), 20);
}

TEST(StrapTest, AnImpossiblePlanIsRefused) {
  TrainingPlan plan;
  plan.exercises = {{Exercise::jump, 0s, -1}};
  EXPECT_THROW(Strap({.plan = plan}), std::invalid_argument);
}

TEST(RecordedStrapTest, RecordedStreamsWaitForTheListener) {
  Strap strap({.recording = recordingOf("ECG", 100, 100)});
  const std::vector<Frame> before = framesUntil(strap, 5s);
  EXPECT_TRUE(only(Stream::ecg, before).empty());
  EXPECT_FALSE(only(Stream::respiration, before).empty());
  EXPECT_FALSE(only(Stream::motion, before).empty());
  strap.allSubscribed(5s);
  EXPECT_FALSE(strap.finished());
  const std::vector<Frame> played = only(Stream::ecg, framesUntil(strap, 100s));
  ASSERT_EQ(played.size(), 84U);  // 500 samples, six at a time
  EXPECT_EQ(played.front().time, 5s + 10ms);
  EXPECT_EQ(played.back().time, 5s + 10ms + 83 * 12ms);
  EXPECT_TRUE(strap.finished());
  EXPECT_EQ(strap.nextFrameTime(), std::nullopt);
}

TEST(RecordedStrapTest, StartsRecordedStreamsOnlyOnce) {
  Strap strap({.recording = recordingOf("ECG", 100, 100)});
  strap.allSubscribed(1s);
  framesUntil(strap, 1500ms);
  strap.allSubscribed(100s);
  EXPECT_LT(*strap.nextFrameTime(), 2s);
}

TEST(RecordedStrapTest, NeverSendsIntoThePast) {
  Strap strap({.recording = recordingOf("ECG", 100, 100)});
  const std::vector<Frame> before = framesUntil(strap, 5s);
  strap.allSubscribed(1s);
  EXPECT_GE(*strap.nextFrameTime(), before.back().time);
  const std::vector<Frame> played = only(Stream::ecg, framesUntil(strap, 100s));
  EXPECT_EQ(played.front().time, before.back().time + 10ms);
}

TEST(RecordedStrapTest, EndsWhenTheLongestRecordedStreamHasEnded) {
  // One second: 500 waveform samples, 30 motion readings.
  Strap strap({.recording = recordingOf(
                   "RSP,Accelerometer X,Accelerometer Y,Accelerometer Z,Gyroscope X,Gyroscope Y,"
                   "Gyroscope Z,Skin temperature",
                   100, 100)});
  strap.allSubscribed(0s);
  const std::vector<Frame> frames = framesUntil(strap, 100s);
  EXPECT_EQ(only(Stream::respiration, frames).size(), 84U);
  EXPECT_EQ(only(Stream::motion, frames).size(), 30U);
  EXPECT_EQ(only(Stream::temperature, frames).size(), 1U);
  EXPECT_EQ(frames.back().stream, Stream::respiration);
  EXPECT_TRUE(strap.finished());
  EXPECT_EQ(strap.playback(Stream::respiration)->rows, 100U);
  EXPECT_EQ(strap.playback(Stream::respiration)->samples, 500U);
  EXPECT_EQ(strap.playback(Stream::respiration)->filled, 4U);
  EXPECT_EQ(strap.playback(Stream::motion)->samples, 30U);
  EXPECT_FALSE(strap.playback(Stream::ecg));
}

TEST(RecordedStrapTest, APlanBesideARecordingIsQuiet) {
  const Strap strap({.recording = recordingOf("ECG", 100, 100)});
  EXPECT_EQ(strap.repetitionsDone(10min), Repetitions{});
  EXPECT_TRUE(strap.electrodesOn(11s));
  EXPECT_FALSE(strap.plan().nextLinkLoss(0s));
  EXPECT_NEAR(strap.heartRate(10min), 64, 1e-9);
}

TEST(RecordedStrapTest, TheSameRecordingGivesTheSameBytes) {
  const auto recording = recordingOf("ECG,Skin temperature", 1000, 100);
  Strap first({.seed = 4, .recording = recording});
  Strap second({.seed = 4, .recording = recording});
  first.allSubscribed(0s);
  second.allSubscribed(0s);
  const std::vector<Frame> frames = framesUntil(first, 20s);
  EXPECT_GT(frames.size(), 1000U);
  EXPECT_EQ(frames, framesUntil(second, 20s));
}

TEST(StrapDeathTest, TakingAnAbsentFrameIsAFatalError) {
  Strap strap({.recording = recordingOf("ECG", 1, 100)});
  strap.allSubscribed(0s);
  framesUntil(strap, 1s);
  ASSERT_TRUE(strap.finished());
  EXPECT_DEATH(strap.nextFrame(), "no next frame");
}

}  // namespace
}  // namespace Zephly::simulator
