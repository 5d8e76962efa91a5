// SPDX-License-Identifier: MIT
#include <tests/bits/digest.h>
#include <tests/bits/signal.h>
#include <zephly/dsp/biquad_filter.h>
#include <zephly/dsp/body_temperature_estimator.h>
#include <zephly/dsp/butterworth_filter.h>
#include <zephly/dsp/cyclic_buffer.h>
#include <zephly/dsp/ecg_multi_bandpass_filter.h>
#include <zephly/dsp/leadoff_detector.h>
#include <zephly/dsp/low_cut_filter.h>
#include <zephly/dsp/median_filter.h>
#include <zephly/dsp/multi_filter.h>
#include <zephly/dsp/normalization_filter.h>
#include <zephly/dsp/processor_clock.h>
#include <zephly/dsp/respiration_filter.h>
#include <zephly/dsp/respiration_filter_helper.h>
#include <zephly/dsp/signal_processor.h>
#include <zephly/session/signal_processor.h>
#include <offline/contact_detector.h>
#include <offline/ecg_chain.h>
#include <offline/reset_timer.h>
#include <offline/respiration_chain.h>
#include <offline/vector_forms.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace bits {

namespace {

// A processor clock that advances with the samples, so that reset timers end at the same sample.
std::uint64_t microseconds = 0;
std::uint64_t sampleClock() { return microseconds; }

class SampleClock {
 public:
  SampleClock() : before_(Zephly::setProcessorClock(sampleClock)) { microseconds = 0; }
  SampleClock(const SampleClock&) = delete;
  SampleClock& operator=(const SampleClock&) = delete;
  ~SampleClock() { Zephly::setProcessorClock(before_); }

  static constexpr std::uint64_t step = 2000;

  static void tick() { microseconds += step; }

 private:
  Zephly::ProcessorClock before_;
};

template <class Process>
void digestOf(const char* name, int samples, const Process& process) {
  Signal signal;
  Digest digest;
  for (int index = 0; index < samples; ++index) {
    SampleClock::tick();
    digest.add(process(signal));
  }
  digest.print(name);
}

void digestFilter(const char* name, Filter& filter, int samples) {
  digestOf(name, samples, [&](Signal& signal) { return filter.process(signal.next()); });
}

void digestFilters() {
  BiquadFilter lowpass(BiquadLowpass, 0.1, 8, 1.0);
  BiquadFilter highpass(BiquadHighpass, 0.00008, 2, 0.707);
  BiquadFilter bandpass(BiquadBandpass, 0.03, 4, 2.0);
  BiquadFilter notch(BiquadNotch, 0.12, 4, 5.0);
  MedianFilter median(300);
  NormalizationFilter normalization(1000, true);
  LowCutFilter lowCut(110, 0.004, 4);
  digestFilter("BiquadFilter lowpass", lowpass, 100000);
  digestFilter("BiquadFilter highpass", highpass, 100000);
  digestFilter("BiquadFilter bandpass", bandpass, 100000);
  digestFilter("BiquadFilter notch", notch, 100000);
  digestFilter("MedianFilter", median, 20000);
  digestFilter("NormalizationFilter", normalization, 20000);
  digestFilter("LowCutFilter", lowCut, 100000);
  MultiFilter chain;
  chain.addFilter(new BiquadFilter(BiquadLowpass, 0.05, 4, 0.8));
  chain.addFilter(new MedianFilter(50));
  digestFilter("MultiFilter", chain, 20000);

  Zephly::ButterworthFilter high(1.0F, 60, Zephly::Highpass, 2.0F);
  Zephly::ButterworthFilter low(1.0F, 60, Zephly::Lowpass, 2.0F);
  digestOf("ButterworthFilter highpass", 100000,
           [&](Signal& signal) { return high.process(signal.nextFloat()); });
  digestOf("ButterworthFilter lowpass", 100000,
           [&](Signal& signal) { return low.process(signal.nextFloat()); });
}

void digestChains() {
  Zephly::ECGMultiBandpassFilter ecg;
  digestOf("ECGMultiBandpassFilter", 20000,
           [&](Signal& signal) { return ecg.process(signal.nextFloat()); });
  Zephly::RespirationFilter respiration;
  digestOf("RespirationFilter", 20000,
           [&](Signal& signal) { return respiration.process(signal.nextFloat()); });
}

void digestDetectors() {
  Zephly::LeadoffDetector leadoff;
  digestOf("LeadoffDetector", 20000, [&](Signal& signal) {
    // Flat at first, then saturated, then a signal.
    const double sample = signal.next();
    const std::uint64_t second = microseconds / 1'000'000 % 5;
    const double seen = second == 0 ? 0.001 * sample : sample;
    return leadoff.process(static_cast<float>(second == 1 ? 2.42 : seen)) ? 1 : 0;
  });
  Zephly::RespirationFilterHelper helper(3.0F);
  digestOf("RespirationFilterHelper", 20000, [&](Signal& signal) {
    return helper.shouldResetRespiration(signal.next() > 1.0) ? 1 : 0;
  });
  Zephly::BodyTemperatureEstimator body;
  digestOf("BodyTemperatureEstimator", 20000, [&](Signal& signal) {
    const float skin = 33 + 2 * signal.nextFloat();
    return body.process(skin, 21 + signal.nextFloat());
  });
  Zephly::CyclicBuffer buffer{7, {}};
  digestOf("CyclicBuffer", 1000, [&](Signal& signal) {
    buffer.push(signal.nextFloat());
    return buffer.values.front() + static_cast<float>(buffer.values.size());
  });
}

// Each chain alone, then lead-off detection and the respiration chain together: a loss of contact
// resets the chain by the clock.
template <class Engine>
void digestEngine(Engine& engine, const std::string& who) {
  const auto digest = [&](const char* what, const auto& process) {
    digestOf((who + what).c_str(), 12000, process);
  };
  digest(" ECG", [&](Signal& signal) { return engine.processECG(signal.nextFloat()); });
  digest(" respiration",
         [&](Signal& signal) { return engine.processRespiration(signal.nextFloat()); });
  digest(" lead-off", [&](Signal& signal) {
    return engine.processLeadoffDetection(signal.nextFloat()) ? 1 : 0;
  });
  digest(" contact", [&](Signal& signal) {
    const bool touched = microseconds / 1'000'000 % 8 < 4;
    const float sample = touched ? signal.nextFloat() : 2.42F;
    const float contact = engine.processLeadoffDetection(sample) ? 1 : 0;
    return engine.processRespiration(sample) + contact;
  });
}

// The forms for whole recordings, called like an engine.
class OfflineEngine {
 public:
  float processECG(float sample) { return processed(ecg_, sample); }
  float processRespiration(float sample) { return processed(respiration_, sample); }
  bool processLeadoffDetection(float sample) {
    const bool contact = contact_.step(sample);
    const std::uint64_t now = Zephly::processorClock();
    if (highPassTimer_.fires(contact, now)) respiration_.settleHighPass();
    if (normalizationTimer_.fires(contact, now)) respiration_.clearNormalization();
    return contact;
  }

 private:
  template <class Chain>
  static float processed(Chain& chain, float sample) {
    chain.process(std::span(&sample, 1), std::span(&sample, 1));
    return sample;
  }

  Zephly::offline::EcgChain ecg_;
  Zephly::offline::RespirationChain respiration_;
  Zephly::offline::ContactDetector contact_;
  Zephly::offline::ResetTimer highPassTimer_{4.0F};
  Zephly::offline::ResetTimer normalizationTimer_{4.1F};
};

// The same in blocks, which are processed in vectors where the processor has them.
class OfflineBlocks {
 public:
  std::vector<float> ecg(const std::vector<float>& in) {
    std::vector<float> out(in.size());
    ecg_.process(in, out);
    return out;
  }
  std::vector<float> respiration(const std::vector<float>& in) {
    std::vector<float> out(in.size());
    respiration_.process(in, out);
    return out;
  }
  // The answers alone, then with the respiration: `begin` is the time before the first sample.
  std::vector<float> leadoff(const std::vector<float>& in, std::uint64_t begin) {
    return process(in, begin, [](std::size_t, std::size_t) {});
  }
  std::vector<float> contact(const std::vector<float>& in, std::uint64_t begin) {
    std::vector<float> out(in.size());
    const std::vector<float> answers = process(in, begin, [&](std::size_t from, std::size_t to) {
      respiration_.process(std::span(in).subspan(from, to - from),
                           std::span(out).subspan(from, to - from));
    });
    for (std::size_t i = 0; i < out.size(); ++i) out[i] += answers[i];
    return out;
  }

 private:
  template <class Filter>
  std::vector<float> process(const std::vector<float>& in, std::uint64_t begin,
                             const Filter& filter) {
    std::vector<std::uint8_t> contact(in.size());
    detector_.process(in, contact);
    std::size_t done = 0;
    for (std::size_t i = 0; i < in.size(); ++i) {
      const std::uint64_t now = begin + (i + 1) * SampleClock::step;
      const bool settles = highPassTimer_.fires(contact[i] != 0, now);
      const bool clears = normalizationTimer_.fires(contact[i] != 0, now);
      if (!settles && !clears) continue;
      filter(done, i);
      done = i;
      if (settles) respiration_.settleHighPass();
      if (clears) respiration_.clearNormalization();
    }
    filter(done, in.size());
    return {contact.begin(), contact.end()};
  }

  Zephly::offline::EcgChain ecg_;
  Zephly::offline::RespirationChain respiration_;
  Zephly::offline::ContactDetector detector_;
  Zephly::offline::ResetTimer highPassTimer_{4.0F};
  Zephly::offline::ResetTimer normalizationTimer_{4.1F};
};

// Of ECG, respiration, lead-off and contact, as digestEngine() feeds them from `begin` on.
std::array<Digest, 4> digestsOfBlocks(std::uint64_t begin) {
  constexpr std::size_t samples = 12'000;
  constexpr std::uint64_t duration = samples * SampleClock::step;
  std::vector<float> in;
  Signal signal;
  while (in.size() < samples) in.push_back(signal.nextFloat());
  std::vector<float> touched;
  Signal again;
  for (std::size_t i = 0; i < samples; ++i) {
    const std::uint64_t time = begin + 3 * duration + (i + 1) * SampleClock::step;
    touched.push_back(time / 1'000'000 % 8 < 4 ? again.nextFloat() : 2.42F);
  }
  OfflineBlocks blocks;
  const std::vector<float> results[] = {blocks.ecg(in), blocks.respiration(in),
                                        blocks.leadoff(in, begin + 2 * duration),
                                        blocks.contact(touched, begin + 3 * duration)};
  std::array<Digest, 4> digests;
  for (std::size_t what = 0; what < digests.size(); ++what) {
    for (const float result : results[what]) digests[what].add(result);
  }
  return digests;
}

// One line for each signal: of the fastest instruction set, and of any other one that differs.
void digestBlocks() {
  const char* const names[] = {" ECG", " respiration", " lead-off", " contact"};
  const std::array<Digest, 4> digests = digestsOfBlocks(microseconds);
  for (std::size_t what = 0; what < digests.size(); ++what) {
    digests[what].print((std::string("blocks") + names[what]).c_str());
  }
  const Zephly::offline::VectorForms* const fastest = Zephly::offline::vectorForms();
  for (const Zephly::offline::VectorForms* forms : Zephly::offline::allVectorForms()) {
    Zephly::offline::useVectorForms(forms);
    const std::array<Digest, 4> others = digestsOfBlocks(microseconds);
    for (std::size_t what = 0; what < digests.size(); ++what) {
      if (others[what] == digests[what]) continue;
      others[what].print((std::string("blocks") + names[what] + " in " + forms->name).c_str());
    }
  }
  Zephly::offline::useVectorForms(fastest);
}

void digestEngines() {
  Zephly::SignalProcessor engine;
  digestEngine(engine, "SignalProcessor");
  digestOf("SignalProcessor temperature", 12000, [&](Signal& signal) {
    const float sample = signal.nextFloat();
    return engine.processBodyTemperature(33 + 2 * sample, 21 + sample);
  });
  const auto wrapper = ::SignalProcessor::init();
  digestEngine(*wrapper, "wrapper");
  OfflineEngine offline;
  digestEngine(offline, "offline");
  digestBlocks();
}

}  // namespace

void digestDsp() {
  const SampleClock clock;
  digestFilters();
  digestChains();
  digestDetectors();
  digestEngines();
}

}  // namespace bits
