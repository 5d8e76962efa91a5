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
#include <chrono>
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

// A column at the strap's rate: the samples of all stretches, and where each stretch ends.
struct Resampled {
  std::vector<double> samples;
  std::vector<std::size_t> ends;
};

Resampled resampled(const Recording& recording, const std::vector<double>& rows, int rate) {
  Resampled result;
  const auto add = [&](std::size_t begin, std::size_t end) {
    const auto first = rows.begin();
    const std::vector<double> part(first + static_cast<std::ptrdiff_t>(begin),
                                   first + static_cast<std::ptrdiff_t>(end));
    const std::vector<double> samples = resample(part, recording.rowsPerSecond(), rate);
    result.samples.insert(result.samples.end(), samples.begin(), samples.end());
    result.ends.push_back(result.samples.size());
  };
  std::size_t begin = 0;
  for (const Recording::Gap& gap : recording.gaps()) {
    add(begin, gap.row);
    begin = gap.row;
  }
  add(begin, rows.size());
  return result;
}

// When each stretch begins.
std::vector<StrapTime> startsOf(const Recording& recording) {
  std::vector<StrapTime> starts(1);
  double gaps = 0;
  for (const Recording::Gap& gap : recording.gaps()) {
    gaps += gap.seconds;
    const double rows = static_cast<double>(gap.row) / recording.rowsPerSecond();
    starts.push_back(std::chrono::round<StrapTime>(std::chrono::duration<double>(rows + gaps)));
  }
  return starts;
}

// Calls `makeFrame(first sample, end of the stretch)` for each frame.
template <class MakeFrame>
void fill(Playback& playback, const Recording& recording, const std::vector<std::size_t>& ends,
          int samplesPerFrame, const MakeFrame& makeFrame) {
  playback.counts.samples = ends.back();
  const std::vector<StrapTime> starts = startsOf(recording);
  std::size_t sample = 0;
  StrapTime free{};  // the end of the stretch before, whose last frame may reach into the gap
  for (std::size_t stretch = 0; stretch < ends.size(); ++stretch) {
    const std::size_t firstFrame = playback.frames.size();
    const StrapTime start = std::max(starts[stretch], free);
    playback.stretches.push_back({firstFrame, start});
    for (; sample < ends[stretch]; sample += static_cast<std::size_t>(samplesPerFrame)) {
      playback.frames.push_back(makeFrame(sample, ends[stretch]));
    }
    sample = ends[stretch];
    const auto frames = static_cast<std::int64_t>(playback.frames.size() - firstFrame);
    free = start + sampleTime(frames * samplesPerFrame, playback.rate);
  }
}

void fillWaveform(Playback& playback, const Recording& recording, const Resampled& waveform) {
  playback.rate = waveformRate;
  fill(playback, recording, waveform.ends, samplesPerWaveformFrame,
       [&](std::size_t start, std::size_t end) {
         std::array<float, samplesPerWaveformFrame> frame{};
         for (std::size_t i = 0; i < frame.size(); ++i) {
           // Held at the end.
           const std::size_t place = std::min(start + i, end - 1);
           frame.at(i) = static_cast<float>(waveform.samples[place]);
           if (place != start + i) ++playback.counts.filled;
           if (place == start + i && waveformSaturates(frame.at(i))) ++playback.counts.saturated;
         }
         return encodeWaveform(frame);
       });
}

void playEcg(Playback& playback, const Recording& recording) {
  Resampled waveform = resampled(recording, recording.ecg(), waveformRate);
  normalize(waveform.samples, ecgShare, ecgSwing);
  fillWaveform(playback, recording, waveform);
}

void playRespiration(Playback& playback, const Recording& recording) {
  Resampled waveform = resampled(recording, recording.respiration(), waveformRate);
  normalize(waveform.samples, breathShare, breathSwing);
  for (std::size_t i = 0; i < waveform.samples.size(); ++i) {
    const double cycles = std::fmod(static_cast<double>(i) * mainsFrequency / waveformRate, 1.0);
    waveform.samples[i] += mainsPickUp * std::sin(2 * pi * cycles);
  }
  fillWaveform(playback, recording, waveform);
}

void playTemperature(Playback& playback, const Recording& recording, std::uint64_t seed) {
  TemperatureModel air(seed);
  playback.rate = temperatureRate;
  const Resampled skin = resampled(recording, recording.skinTemperature(), temperatureRate);
  fill(playback, recording, skin.ends, 1, [&](std::size_t reading, std::size_t /*end*/) {
    if (temperatureSaturates(skin.samples[reading])) ++playback.counts.saturated;
    return encodeTemperature(skin.samples[reading], air.next(0, true).ambient);
  });
}

void playMotion(Playback& playback, const Recording& recording) {
  std::array<Resampled, 3> acceleration;
  std::array<Resampled, 3> rotation;
  for (std::size_t axis = 0; axis < 3; ++axis) {
    acceleration.at(axis) = resampled(recording, recording.acceleration().at(axis), motionRate);
    rotation.at(axis) = resampled(recording, recording.rotation().at(axis), motionRate);
  }
  playback.rate = motionRate;
  OrientationFilter filter;
  fill(playback, recording, acceleration[0].ends, 1, [&](std::size_t i, std::size_t /*end*/) {
    const Vector felt = {acceleration[0].samples[i], acceleration[1].samples[i],
                         acceleration[2].samples[i]};
    const Vector angularRate = {rotation[0].samples[i] * pi / 180,
                                rotation[1].samples[i] * pi / 180,
                                rotation[2].samples[i] * pi / 180};
    const Rotation turned = filter.next(angularRate, felt, 1.0 / motionRate);
    const MotionReading reading{{turned.w, turned.x, turned.y, turned.z}, felt};
    if (motionSaturates(reading)) ++playback.counts.saturated;
    return encodeMotion(reading);
  });
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
