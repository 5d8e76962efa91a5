// SPDX-License-Identifier: MIT
// The forms for whole recordings against the kit's engine: any floats, in any blocks, with a
// processor clock that jumps. Each instruction set gets the same samples in other blocks.

#include <tests/support/fake_processor_clock.h>
#include <zephly/dsp/signal_processor.h>
#include <fuzz/support/input.h>
#include <fuzz/support/reclaim.h>
#include <fuzz/support/require.h>
#include <fuzz/support/target.h>
#include <offline/ecg_chain.h>
#include <offline/respiration_engine.h>
#include <offline/vector_forms.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace {

using fuzz::Input;
using fuzz::require;
using Zephly::offline::FrameTime;

// About 10 ms of the kit's chains, optimised.
constexpr std::size_t mostSamples = 1'200;

struct Recording {
  std::vector<float> samples;
  std::vector<FrameTime> frames;
};

bool same(float left, float right) {
  return (std::isnan(left) && std::isnan(right)) ||
         std::bit_cast<std::uint32_t>(left) == std::bit_cast<std::uint32_t>(right);
}

float rounded(Input& input) { return static_cast<float>(input.number<std::int16_t>()) / 8192.0F; }

// A stretch of samples of one kind.
void addStretch(Input& input, std::vector<float>& samples) {
  const unsigned kind = input.below(6);
  const std::size_t count = 1 + input.number<std::uint16_t>() % 300;
  const float level = input.coin() ? input.real<float>() : rounded(input);
  std::uint32_t state = input.number<std::uint16_t>();
  for (std::size_t i = 0; i < count && samples.size() < mostSamples; ++i) {
    state = state * 1'664'525U + 1'013'904'223U;
    const float noise = static_cast<float>(state >> 8) * 0x1p-24F - 0.5F;
    switch (kind) {
      case 0:
        samples.push_back(level);
        break;
      case 1:
        samples.push_back(level + noise);
        break;
      case 2:
        samples.push_back(level + 0.011F * noise);
        break;
      case 3:
        samples.push_back(noise < 0 ? level : -level);
        break;
      case 4:
        samples.push_back(noise * 0x1p-126F);
        break;
      default:
        samples.push_back(std::bit_cast<float>(state));
        break;
    }
  }
}

Recording recordingOf(Input& input) {
  Recording recording;
  for (unsigned stretches = 1 + input.below(8); stretches > 0; --stretches) {
    addStretch(input, recording.samples);
  }
  std::uint64_t now = input.number<std::uint32_t>();
  for (std::size_t framed = 0; framed < recording.samples.size();) {
    const std::size_t most = input.empty() ? mostSamples : input.below(200);
    const std::size_t count = std::min(most, recording.samples.size() - framed);
    now += input.coin() ? 100 * input.number<std::uint16_t>() : 12'000;
    recording.frames.push_back({count, now});
    framed += count;
  }
  return recording;
}

struct Results {
  std::vector<float> ecg;
  std::vector<float> respiration;
  std::vector<std::uint8_t> contact;
};

Results ofTheKit(const Recording& recording) {
  Results results;
  fuzz::Reclaim reclaim;
  const auto engine = reclaim.during([] { return std::make_unique<Zephly::SignalProcessor>(); });
  std::size_t at = 0;
  for (const FrameTime& frame : recording.frames) {
    FakeProcessorClock::now = frame.processorTime;
    for (std::size_t i = 0; i < frame.samples; ++i, ++at) {
      const float sample = recording.samples[at];
      results.contact.push_back(engine->processLeadoffDetection(sample) ? 1 : 0);
      results.respiration.push_back(engine->processRespiration(sample));
      results.ecg.push_back(engine->processECG(sample));
    }
  }
  return results;
}

// In blocks of whole frames, of one to `most`.
Results inBlocks(const Recording& recording, std::size_t most) {
  const std::size_t count = recording.samples.size();
  Results results{std::vector<float>(count), std::vector<float>(count),
                  std::vector<std::uint8_t>(count)};
  Zephly::offline::EcgChain ecg;
  Zephly::offline::RespirationEngine engine;
  std::size_t at = 0;
  for (std::size_t frame = 0; frame < recording.frames.size();) {
    const std::size_t taken = std::min(most, recording.frames.size() - frame);
    const auto frames = std::span(recording.frames).subspan(frame, taken);
    std::size_t length = 0;
    for (const FrameTime& each : frames) length += each.samples;
    const auto in = std::span(recording.samples).subspan(at, length);
    ecg.process(in, std::span(results.ecg).subspan(at, length));
    engine.process(in, frames, std::span(results.respiration).subspan(at, length),
                   std::span(results.contact).subspan(at, length));
    at += length;
    frame += taken;
  }
  return results;
}

void compare(const Results& results, const Results& expected) {
  require(results.contact == expected.contact, "contact as the kit's");
  for (std::size_t i = 0; i < expected.ecg.size(); ++i) {
    require(same(results.ecg[i], expected.ecg[i]), "ECG as the kit's");
    require(same(results.respiration[i], expected.respiration[i]), "respiration as the kit's");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const std::size_t most = 1 + input.below(40);
  const FakeProcessorClock clock;
  const Recording recording = recordingOf(input);
  const Results expected = ofTheKit(recording);
  Zephly::offline::useVectorForms(nullptr);
  compare(inBlocks(recording, most), expected);
  for (const Zephly::offline::VectorForms* forms : Zephly::offline::allVectorForms()) {
    Zephly::offline::useVectorForms(forms);
    compare(inBlocks(recording, most), expected);
    compare(inBlocks(recording, recording.frames.size()), expected);
  }
  return 0;
}
