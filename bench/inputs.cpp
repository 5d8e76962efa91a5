// SPDX-License-Identifier: MIT
#include <bench/inputs.h>

#include <hosts/foundation/data.h>
#include <simulator/strap.h>
#include <zephly/protocol/streams.h>

#include <chrono>
#include <limits>
#include <utility>

namespace bench {
namespace {

namespace simulator = Zephly::simulator;
using Zephly::hosts::Data;

std::vector<simulator::Frame> framesUntil(Zephly::StrapTime end, simulator::TrainingPlan plan) {
  simulator::Strap source({.seed = 1, .plan = std::move(plan)});
  std::vector<simulator::Frame> frames;
  while (*source.nextFrameTime() < end) frames.push_back(source.nextFrame());
  return frames;
}

std::vector<float> waveform(Zephly::Stream stream) {
  // A second more than needed: the last frame of the minute is sent when it is full.
  std::vector<float> samples;
  for (const auto& frame :
       framesUntil(std::chrono::seconds(seconds + 1), simulator::TrainingPlan::quiet())) {
    if (frame.stream != stream) continue;
    for (const float sample : FrameDecoders::calculateECGValue(Data(frame.bytes))) {
      samples.push_back(sample);
    }
  }
  samples.resize(waveformSamples);
  return samples;
}

template <class Sample>
Input<Sample> input(Signal signal, const std::vector<float>& real, std::size_t silentFor) {
  constexpr Sample level{0.25};
  Input<Sample> result;
  switch (signal) {
    case Signal::real:
      result.samples.assign(real.begin(), real.end());
      break;
    case Signal::flat:
      result.samples.assign(waveformSamples, level);
      break;
    case Signal::silence:
      result.before.assign(real.begin(), real.begin() + waveformRate);
      result.silentFor = silentFor;
      result.samples.assign(waveformSamples, Sample{0});
      break;
    case Signal::subnormal:
      for (std::size_t index = 0; index < waveformSamples; ++index) {
        const Sample tiny = std::numeric_limits<Sample>::min() / 2;
        result.samples.push_back(index % 2 == 0 ? tiny : -tiny);
      }
      break;
  }
  return result;
}

}  // namespace

const std::vector<std::vector<simulator::Frame>>& strapSeconds() {
  static const auto list = [] {
    std::vector<std::vector<simulator::Frame>> bySecond(seconds);
    simulator::TrainingPlan plan = simulator::TrainingPlan::standard();
    plan.electrodesOff.clear();
    for (auto& frame : framesUntil(std::chrono::seconds(seconds), plan)) {
      const auto second = std::chrono::duration_cast<std::chrono::seconds>(frame.time).count();
      bySecond[static_cast<std::size_t>(second)].push_back(std::move(frame));
    }
    return bySecond;
  }();
  return list;
}

std::vector<simulator::Frame> framesOf(Zephly::Stream stream) {
  std::vector<simulator::Frame> frames;
  for (const auto& second : strapSeconds()) {
    for (const auto& frame : second) {
      if (frame.stream == stream) frames.push_back(frame);
    }
  }
  return frames;
}

const std::vector<float>& ecgSamples() {
  static const std::vector<float> samples = waveform(Zephly::Stream::ecg);
  return samples;
}

const std::vector<float>& respirationSamples() {
  static const std::vector<float> samples = waveform(Zephly::Stream::respiration);
  return samples;
}

const std::vector<FrameDecoders::Motion>& motionSamples() {
  static const std::vector<FrameDecoders::Motion> samples = [] {
    std::vector<FrameDecoders::Motion> decoded;
    for (const auto& frame : framesOf(Zephly::Stream::motion)) {
      decoded.push_back(FrameDecoders::calculateMotionValue(Data(frame.bytes)));
    }
    return decoded;
  }();
  return samples;
}

std::string signalName(Signal signal) {
  switch (signal) {
    case Signal::real:
      return "real";
    case Signal::flat:
      return "flat";
    case Signal::silence:
      return "silence";
    case Signal::subnormal:
      break;
  }
  return "subnormal";
}

Input<double> doubleInput(Signal signal, const std::vector<float>& real, std::size_t silentFor) {
  return input<double>(signal, real, silentFor);
}

Input<float> floatInput(Signal signal, const std::vector<float>& real, std::size_t silentFor) {
  return input<float>(signal, real, silentFor);
}

}  // namespace bench
