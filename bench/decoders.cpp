// SPDX-License-Identifier: MIT
// Bytes to numbers.

#include <hosts/foundation/data.h>
#include <zephly/protocol/frame_decoders.h>

#include <zephly/protocol/streams.h>
#include <bench/inputs.h>
#include <bench/suite.h>

#include <string>
#include <vector>

namespace bench {
namespace {

using Zephly::Stream;
using Zephly::hosts::Data;

constexpr const char* decodersSection = "Decoders";

template <class Decode>
void addDecoder(Suite& suite, const std::string& row, Stream stream, double rate, Decode decode) {
  suite.add({.section = decodersSection, .row = row, .rate = rate}, [=](benchmark::State& state) {
    std::vector<Data> frames;
    for (const auto& frame : framesOf(stream)) frames.emplace_back(frame.bytes);
    std::size_t next = 0;
    for ([[maybe_unused]] auto _ : state) {
      benchmark::DoNotOptimize(decode(frames[next]));
      if (++next == frames.size()) next = 0;
    }
    state.SetItemsProcessed(state.iterations());
  });
}

}  // namespace

void addDecoders(Suite& suite) {
  suite.add({.title = decodersSection, .unit = "frame", .question = "Nanoseconds per frame."});
  addDecoder(suite, "ECG or respiration, six samples", Stream::ecg, waveformRate / 6.0,
             FrameDecoders::calculateECGValue);
  addDecoder(suite, "temperature", Stream::temperature, 1,
             FrameDecoders::calculateTemperatureValue);
  addDecoder(suite, "battery", Stream::battery, 0.1, FrameDecoders::calculateBatterySOCValue);
  addDecoder(suite, "motion", Stream::motion, 30, FrameDecoders::calculateMotionValue);
}

}  // namespace bench
