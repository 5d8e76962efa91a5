// SPDX-License-Identifier: MIT
#include <simulator/playback.h>

#include <simulator/frame_encoder.h>
#include <simulator/random.h>
#include <simulator/rates.h>
#include <simulator/strap.h>
#include <tests/simulator/literal_decoding.h>
#include <tests/support/recording.h>
#include <zephly/dsp/leadoff_detector.h>
#include <zephly/protocol/streams.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <complex>
#include <fstream>
#include <memory>
#include <numbers>
#include <sstream>
#include <string>
#include <vector>

namespace Zephly::simulator {
namespace {

using namespace std::chrono_literals;
using std::numbers::pi;

Recording columns(const std::string& names, int rows, double rate,
                  double (*value)(int row, int column)) {
  const auto count = static_cast<int>(std::ranges::count(names, ',')) + 1;
  std::ostringstream text;
  text << names << '\n';
  text.precision(17);
  for (int row = 0; row < rows; ++row)
    for (int column = 0; column < count; ++column)
      text << value(row, column) << (column + 1 < count ? ',' : '\n');
  return Recording::parse(text.str(), "test", rate);
}

std::vector<float> samplesOf(const Playback& playback) {
  std::vector<float> samples;
  for (const auto& frame : playback.frames)
    for (const float sample : literal::samples(frame)) samples.push_back(sample);
  return samples;
}

double amplitudeAt(double frequency, const std::vector<float>& samples) {
  std::complex<double> sum = 0;
  for (std::size_t i = 0; i < samples.size(); ++i)
    sum += static_cast<double>(samples[i]) *
           std::polar(1.0, -2 * pi * frequency * static_cast<double>(i) / waveformRate);
  return 2 * std::abs(sum) / static_cast<double>(samples.size());
}

// The detector's results from the first full window on.
void expectContactThroughout(const std::vector<float>& respiration) {
  LeadoffDetector detector;
  for (std::size_t i = 0; i < respiration.size(); ++i) {
    const bool contact = detector.process(respiration[i]);
    ASSERT_TRUE(contact || i < 69) << "sample " << i;
  }
}

TEST(PlaybackTest, CountsRowsSamplesAndThePaddingOfTheLastFrame) {
  const Recording recording =
      columns("ECG", 101, 100, [](int row, int) { return std::sin(0.3 * row); });
  const Playback playback = playBack(recording, Stream::ecg, 1);
  EXPECT_EQ(playback.rate, 500);
  EXPECT_EQ(playback.counts.rows, 101U);
  EXPECT_EQ(playback.counts.samples, 505U);
  EXPECT_EQ(playback.counts.filled, 5U);
  EXPECT_EQ(playback.frames.size(), 85U);
  // The five samples of padding repeat the last one.
  const auto last = literal::samples(playback.frames.back());
  for (const float sample : last) EXPECT_EQ(sample, last[0]);
}

TEST(PlaybackTest, PadsNothingWhenSamplesFillTheirFrames) {
  const Recording recording = columns("ECG", 6, 500, [](int row, int) { return row * 1.0; });
  const Playback playback = playBack(recording, Stream::ecg, 1);
  EXPECT_EQ(playback.counts.samples, 6U);
  EXPECT_EQ(playback.counts.filled, 0U);
  EXPECT_EQ(playback.frames.size(), 1U);
}

// 10 rows, a gap of a second, 2 rows, a gap of 4 ms, 6 rows.
TEST(PlaybackTest, KeepsGaps) {
  std::string text = "gap_s,ECG\n";
  for (int row = 0; row < 18; ++row) {
    text += row == 10 ? "1" : row == 12 ? "0.004" : "";
    text += "," + std::to_string(row % 4) + "\n";
  }
  const Playback playback = playBack(Recording::parse(text, "test", 500), Stream::ecg, 1);
  EXPECT_EQ(playback.counts.samples, 18U);
  EXPECT_EQ(playback.counts.filled, 2U + 4U);
  ASSERT_EQ(playback.frames.size(), 4U);
  ASSERT_EQ(playback.stretches.size(), 3U);
  EXPECT_EQ(playback.stretches[0].firstFrame, 0U);
  EXPECT_EQ(playback.stretches[0].start, 0s);
  EXPECT_EQ(playback.stretches[1].firstFrame, 2U);
  EXPECT_EQ(playback.stretches[1].start, 1020ms);
  EXPECT_EQ(playback.stretches[2].firstFrame, 3U);
  EXPECT_EQ(playback.stretches[2].start, 1032ms) << "after the frame before, not at 1028 ms";
  const std::vector<float> samples = samplesOf(playback);
  EXPECT_EQ(samples[9], samples[11]) << "held to the end of the frame";
  EXPECT_EQ(samples[12], samples[2]) << "no sample of the stretch before is in this one";
}

TEST(PlaybackTest, TheStrapSendsNothingDuringAGap) {
  std::string text = "gap_s,ECG\n";
  for (int row = 0; row < 12; ++row) text += std::string(row == 6 ? "2.5" : "") + ",1\n";
  Strap strap(
      {.recording = std::make_shared<const Recording>(Recording::parse(text, "test", 500))});
  strap.allSubscribed(10s);
  std::vector<StrapTime> times;
  while (strap.nextFrameTime()) {
    const Frame frame = strap.nextFrame();
    if (frame.stream == Stream::ecg) times.push_back(frame.time);
  }
  EXPECT_THAT(times, testing::ElementsAre(10'010ms, 12'522ms));
}

TEST(PlaybackTest, ScalesAnEcgOfAnyUnitByItsSwing) {
  for (const double unit : {1e-6, 1.0, 1e20}) {
    Random random(1);
    std::ostringstream text;
    text << "ECG\n";
    for (int i = 0; i < 10'000; ++i) text << unit * (5 + random.uniform(-1, 1)) << '\n';
    const Playback playback = playBack(Recording::parse(text.str(), "test", 500), Stream::ecg, 1);
    const std::vector<float> samples = samplesOf(playback);
    const auto [least, most] = std::ranges::minmax(samples);
    EXPECT_NEAR(most, 1, 0.05) << unit;
    EXPECT_NEAR(least, -1, 0.05) << unit;
    const auto within =
        std::ranges::count_if(samples, [](float s) { return std::abs(s) <= 1.0001F; });
    EXPECT_NEAR(static_cast<double>(within) / static_cast<double>(samples.size()), 0.995, 0.001);
    EXPECT_EQ(playback.counts.saturated, 0U);
  }
}

TEST(PlaybackTest, ClipsArtefactsAndCountsThem) {
  const Recording recording = columns("ECG", 6000, 500, [](int row, int) {
    return row == 100 ? 50.0 : (row == 200 ? -50.0 : std::sin(0.1 * row));
  });
  const Playback playback = playBack(recording, Stream::ecg, 1);
  EXPECT_EQ(playback.counts.saturated, 2U);
  const std::vector<float> samples = samplesOf(playback);
  EXPECT_EQ(samples[100], literal::sampleOf(8388607));
  EXPECT_EQ(samples[200], literal::sampleOf(-8388608));
  EXPECT_LT(std::abs(samples[101]), 1.01F);
}

TEST(PlaybackTest, AFlatEcgIsPlayedAsZero) {
  const Recording recording = columns("ECG", 60, 500, [](int, int) { return 7.0; });
  for (const float sample : samplesOf(playBack(recording, Stream::ecg, 1))) EXPECT_EQ(sample, 0);
}

TEST(PlaybackTest, RespirationKeepsTheLeadoffDetectorInContact) {
  // A breath of 12 s, and a band that does not move at all.
  expectContactThroughout(samplesOf(playBack(
      columns("RSP", 6000, 100, [](int row, int) { return std::sin(2 * pi * row / 1200); }),
      Stream::respiration, 1)));
  expectContactThroughout(samplesOf(
      playBack(columns("RSP", 1000, 100, [](int, int) { return 3.0; }), Stream::respiration, 1)));
}

TEST(PlaybackTest, SkinTemperaturePassesUnchanged) {
  const Recording recording = columns("Skin temperature", 40, 4, [](int row, int) {
    const int second = row / 4;
    return 30 + 0.1 * second;
  });
  const Playback playback = playBack(recording, Stream::temperature, 1);
  EXPECT_EQ(playback.rate, 1);
  ASSERT_EQ(playback.frames.size(), 10U);
  for (std::size_t i = 1; i < 9; ++i) {
    const auto& frame = playback.frames[i];
    EXPECT_NEAR(literal::celsiusOf(literal::littleEndian(frame, 0, 2)),
                30 + 0.1 * static_cast<double>(i), 0.03);
    EXPECT_NEAR(literal::celsiusOf(literal::littleEndian(frame, 2, 2)), 23, 3);
  }
}

TEST(PlaybackTest, MotionCarriesAnOrientationThatAgreesWithTheAcceleration) {
  // Turning about x, 30 degrees a second, at rest otherwise.
  const Recording recording =
      columns("Accelerometer X,Accelerometer Y,Accelerometer Z,Gyroscope X,Gyroscope Y,Gyroscope Z",
              3000, 100, [](int row, int column) {
                const double angle = pi / 6 * row / 100;
                const std::vector<double> values = {0, std::sin(angle), std::cos(angle), 30, 0, 0};
                return values.at(static_cast<std::size_t>(column));
              });
  const Playback playback = playBack(recording, Stream::motion, 1);
  EXPECT_EQ(playback.rate, 30);
  ASSERT_EQ(playback.counts.samples, 900U);
  EXPECT_EQ(playback.counts.saturated, 0U);
  for (const auto& frame : playback.frames) {
    const auto [w, x, y, z, ax, ay, az] = literal::motion(frame);
    ASSERT_NEAR(w * w + x * x + y * y + z * z, 1, 1e-3);
    ASSERT_NEAR(2 * (x * z - w * y), ax, 0.02);
    ASSERT_NEAR(2 * (w * x + y * z), ay, 0.02);
    ASSERT_NEAR(w * w - x * x - y * y + z * z, az, 0.02);
  }
}

TEST(PlaybackDeathTest, AStreamThatIsNotRecordedIsAFatalError) {
  const Recording recording = Recording::parse("ECG\n1\n", "test", 100);
  EXPECT_DEATH(playBack(recording, Stream::motion, 1), "no stream motion");
}

Recording loadRecording(const char* name) { return Recording::load(recordingPath(name), 100); }

TEST(RealRecordingTest, ARestingPersonIsPlayedInFull) {
  const Recording recording = loadRecording("resting_5min_100hz.csv");
  EXPECT_EQ(recording.rows(), 30'000U);
  EXPECT_FALSE(recording.has(Stream::motion));
  const Playback ecg = playBack(recording, Stream::ecg, 1);
  EXPECT_EQ(ecg.counts.samples, 150'000U);
  EXPECT_EQ(ecg.frames.size(), 25'000U);
  EXPECT_EQ(ecg.counts.filled, 0U);
  // Only the artefact at the beginning saturates.
  EXPECT_GT(ecg.counts.saturated, 0U);
  EXPECT_LT(ecg.counts.saturated, 1500U);
  const std::vector<float> respiration = samplesOf(playBack(recording, Stream::respiration, 1));
  EXPECT_EQ(respiration.size(), 150'000U);
  expectContactThroughout(respiration);
  EXPECT_NEAR(amplitudeAt(50, respiration), 0.02, 0.002);
}

TEST(RealRecordingTest, ASensorTurnedByHandIsFollowed) {
  const Recording recording = loadRecording("imu_135s_100hz.csv");
  EXPECT_EQ(recording.rows(), 13'514U);
  const Playback playback = playBack(recording, Stream::motion, 1);
  EXPECT_EQ(playback.counts.samples, 4054U);
  EXPECT_EQ(playback.counts.saturated, 0U);
  // Most of the acceleration is gravity, so the orientation usually agrees with it.
  int explained = 0;
  for (const auto& frame : playback.frames) {
    const auto [w, x, y, z, ax, ay, az] = literal::motion(frame);
    ASSERT_NEAR(w * w + x * x + y * y + z * z, 1, 1e-3);
    const float unexplained = std::hypot(2 * (x * z - w * y) - ax, 2 * (w * x + y * z) - ay,
                                         w * w - x * x - y * y + z * z - az);
    if (unexplained < 0.2F) ++explained;
  }
  EXPECT_GT(explained, 4054 * 8 / 10);
}

TEST(RealRecordingTest, SkinTemperatureIsFoundByItsName) {
  std::ifstream lines(recordingPath("skin_temperature_4hz.csv"));
  std::string line;
  std::getline(lines, line);  // start time
  std::getline(lines, line);  // sampling rate
  std::ostringstream named;
  named << "Skin temperature\n" << lines.rdbuf();
  const Recording recording = Recording::parse(named.str(), "skin", 4);
  EXPECT_EQ(recording.rows(), 4998U);
  const Playback playback = playBack(recording, Stream::temperature, 1);
  EXPECT_EQ(playback.counts.samples, 1250U);  // 1249.5
  for (const auto& frame : playback.frames) {
    const float skin = literal::celsiusOf(literal::littleEndian(frame, 0, 2));
    ASSERT_GE(skin, 31.89F);
    ASSERT_LE(skin, 33.43F);
  }
}

}  // namespace
}  // namespace Zephly::simulator
