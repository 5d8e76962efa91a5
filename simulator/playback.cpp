// SPDX-License-Identifier: MIT
#include <simulator/playback.h>

#include <simulator/frame_encoder.h>
#include <simulator/orientation_filter.h>
#include <simulator/rates.h>
#include <simulator/resampler.h>
#include <simulator/respiration_model.h>
#include <simulator/temperature_model.h>
#include <zephly/platform/fatal_error.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <string>

namespace Zephly::simulator {

namespace {

using std::numbers::pi;

constexpr double ecgSwing = 1;  // mV
constexpr double ecgShare = 0.995;
constexpr double breathSwing = 0.3;
constexpr double breathShare = 0.95;

// The value that `share` of all values do not exceed.
double quantile(std::vector<double> values, double share) {
  const auto rank = std::ceil(share * static_cast<double>(values.size())) - 1;
  const auto place = values.begin() + static_cast<std::ptrdiff_t>(std::max(0.0, rank));
  std::ranges::nth_element(values, place);
  return *place;
}

// Less their median, and scaled so that `share` of them lie within `swing`.
void normalize(std::vector<double>& values, double share, double swing) {
  const double median = quantile(values, 0.5);
  // Halved, because the difference of two finite values need not be finite.
  for (double& value : values) value = value / 2 - median / 2;
  std::vector<double> sizes;
  sizes.reserve(values.size());
  for (const double value : values) sizes.push_back(std::abs(value));
  const double spread = quantile(std::move(sizes), share);
  for (double& value : values) value = spread > 0 ? value / spread * swing : 0;
}

void fillWaveform(Playback& playback, const std::vector<double>& samples) {
  playback.rate = waveformRate;
  playback.counts.samples = samples.size();
  for (std::size_t start = 0; start < samples.size(); start += samplesPerWaveformFrame) {
    std::array<float, samplesPerWaveformFrame> frame{};
    for (std::size_t i = 0; i < frame.size(); ++i) {
      // Held at the end.
      const std::size_t place = std::min(start + i, samples.size() - 1);
      frame.at(i) = static_cast<float>(samples[place]);
      if (place != start + i) ++playback.counts.filled;
      if (place == start + i && waveformSaturates(frame.at(i))) ++playback.counts.saturated;
    }
    playback.frames.push_back(encodeWaveform(frame));
  }
}

void playEcg(Playback& playback, const Recording& recording) {
  std::vector<double> samples = resample(recording.ecg(), recording.rowsPerSecond(), waveformRate);
  normalize(samples, ecgShare, ecgSwing);
  fillWaveform(playback, samples);
}

void playRespiration(Playback& playback, const Recording& recording) {
  std::vector<double> samples =
      resample(recording.respiration(), recording.rowsPerSecond(), waveformRate);
  normalize(samples, breathShare, breathSwing);
  for (std::size_t i = 0; i < samples.size(); ++i) {
    const double cycles = std::fmod(static_cast<double>(i) * mainsFrequency / waveformRate, 1.0);
    samples[i] += mainsPickUp * std::sin(2 * pi * cycles);
  }
  fillWaveform(playback, samples);
}

void playTemperature(Playback& playback, const Recording& recording, std::uint64_t seed) {
  TemperatureModel air(seed);
  playback.rate = temperatureRate;
  for (const double skin :
       resample(recording.skinTemperature(), recording.rowsPerSecond(), temperatureRate)) {
    playback.frames.push_back(encodeTemperature(skin, air.next(0, true).ambient));
    if (temperatureSaturates(skin)) ++playback.counts.saturated;
  }
  playback.counts.samples = playback.frames.size();
}

void playMotion(Playback& playback, const Recording& recording) {
  std::array<std::vector<double>, 3> acceleration;
  std::array<std::vector<double>, 3> rotation;
  for (std::size_t axis = 0; axis < 3; ++axis) {
    acceleration.at(axis) =
        resample(recording.acceleration().at(axis), recording.rowsPerSecond(), motionRate);
    rotation.at(axis) =
        resample(recording.rotation().at(axis), recording.rowsPerSecond(), motionRate);
  }
  playback.rate = motionRate;
  playback.counts.samples = acceleration[0].size();
  OrientationFilter filter;
  for (std::size_t i = 0; i < playback.counts.samples; ++i) {
    const Vector felt = {acceleration[0][i], acceleration[1][i], acceleration[2][i]};
    const Vector angularRate = {rotation[0][i] * pi / 180, rotation[1][i] * pi / 180,
                                rotation[2][i] * pi / 180};
    const Rotation turned = filter.next(angularRate, felt, 1.0 / motionRate);
    const MotionReading reading{{turned.w, turned.x, turned.y, turned.z}, felt};
    if (motionSaturates(reading)) ++playback.counts.saturated;
    playback.frames.push_back(encodeMotion(reading));
  }
}

}  // namespace

Playback playBack(const Recording& recording, Stream stream, std::uint64_t seed) {
  if (!recording.has(stream))
    fatalError("the recording has no stream " + std::string(streamInfo(stream).name));
  Playback playback;
  playback.counts.rows = recording.rows();
  if (stream == Stream::ecg) playEcg(playback, recording);
  if (stream == Stream::respiration) playRespiration(playback, recording);
  if (stream == Stream::temperature) playTemperature(playback, recording, seed);
  if (stream == Stream::motion) playMotion(playback, recording);
  return playback;
}

}  // namespace Zephly::simulator
