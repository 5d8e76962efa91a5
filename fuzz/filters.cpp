// SPDX-License-Identifier: MIT
// Filters, the chains made of them, lead-off, body temperature, the engine and its wrapper: any
// valid parameters, any samples, NaN and infinities included.
//
// Excluded, because they are documented fatal errors: an order of -1, 0 or 1, a median over fewer
// than three samples, a delay line or a normalisation over none; an engine that detects an exercise
// without callbacks, a wrapper without an engine. Orders and windows are limited to 64 and
// 2000: larger ones use the same code.

#include <tests/support/every_call.h>
#include <tests/support/fake_processor_clock.h>
#include <zephly/dsp/biquad_filter.h>
#include <zephly/dsp/body_temperature_estimator.h>
#include <zephly/dsp/butterworth_filter.h>
#include <zephly/dsp/cyclic_buffer.h>
#include <zephly/dsp/leadoff_detector.h>
#include <zephly/dsp/low_cut_filter.h>
#include <zephly/dsp/median_filter.h>
#include <zephly/dsp/multi_filter.h>
#include <zephly/dsp/normalization_filter.h>
#include <zephly/session/signal_processor.h>
#include <fuzz/support/input.h>
#include <fuzz/support/quiet.h>
#include <fuzz/support/reclaim.h>
#include <fuzz/support/require.h>
#include <fuzz/support/target.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <functional>
#include <memory>
#include <new>
#include <vector>

namespace {

using fuzz::Input;
using fuzz::require;

// The work allowed per input: samples times the length of the windows that each passes.
constexpr int longestWork = 200'000;

int orderOf(Input& input) { return 2 + static_cast<int>(input.below(63)); }
int windowOf(Input& input, int least) { return least + input.number<std::uint16_t>() % 2000; }

std::unique_ptr<Filter> makeFilter(Input& input, int depth);

std::unique_ptr<Filter> makeChain(Input& input, int depth) {
  auto chain = std::make_unique<MultiFilter>();
  for (unsigned members = input.below(4); members > 0; --members) {
    chain->addFilter(makeFilter(input, depth + 1).release());
  }
  return chain;
}

std::unique_ptr<Filter> makeFilter(Input& input, int depth) {
  switch (input.below(6)) {
    case 0: {
      // The fifth is an invalid type, which gives a valid filter.
      const auto type = static_cast<BiquadFilterType>(input.below(5));
      const auto Fc = input.real<double>();
      const int order = orderOf(input);
      return std::make_unique<BiquadFilter>(type, Fc, order, input.real<double>());
    }
    case 1: {
      const int delay = windowOf(input, 1);
      const auto Fc = input.real<double>();
      return std::make_unique<LowCutFilter>(delay, Fc, orderOf(input));
    }
    case 2:
      return std::make_unique<MedianFilter>(windowOf(input, 3) % 400 + 3);
    case 3: {
      const int size = windowOf(input, 1);
      return std::make_unique<NormalizationFilter>(size, input.coin());
    }
    case 4:
      if (depth < 3) return makeChain(input, depth);
      break;
    default:
      break;
  }
  return std::make_unique<Filter>();
}

// Passes samples on, some of them many times.
void feed(Input& input, int work, const std::function<void(double)>& take) {
  while (!input.empty() && work > 0) {
    const auto sample = input.real<double>();
    for (unsigned times = 1 + input.below(4) * input.below(32); times > 0 && work > 0; --times) {
      take(sample);
      --work;
    }
  }
}

void runFilter(Input& input) {
  const auto filter = makeFilter(input, 0);
  int resets = 2;  // 50,000 steps each
  feed(input, longestWork / 200, [&](double sample) {
    const double out = filter->process(sample);
    static_cast<void>(out);
    if (sample == 1.0 && resets-- > 0) filter->reset();
  });
  static_cast<void>(filter->lastInput());
}

// An allocation that cannot succeed is refused without a leak.
void refuse(Input& input) {
  const int negative = -2 - std::abs(input.number<std::int16_t>());
  const auto refused = [](const std::function<void()>& make) {
    try {
      make();
    } catch (const std::bad_array_new_length&) {
      return true;
    }
    return false;
  };
  require(refused([&] { BiquadFilter(BiquadNotch, 0.1, negative, 1); }), "no negative order");
  require(refused([&] { LowCutFilter(negative, 0.1, 4); }), "no negative delay");
  require(refused([&] { MedianFilter filter(negative); }), "no negative median");
  require(refused([&] { NormalizationFilter(negative, true); }), "no negative window");
}

// The rank documented at getMedianValue(), in a sorted copy with NaN at the end.
double medianOf(std::vector<double> window) {
  const auto numbersEnd =
      std::partition(window.begin(), window.end(), [](double one) { return !std::isnan(one); });
  std::sort(window.begin(), numbersEnd);
  const std::size_t m = window.size() / 2;
  return window.size() % 2 != 0 ? window[m + 1] : (window[m] + window[m + 1]) * 0.5;
}

void runMedian(Input& input) {
  const int size = 3 + static_cast<int>(input.below(60));
  MedianFilter median(size);
  std::vector<double> window(static_cast<std::size_t>(size));
  feed(input, 2000, [&](double sample) {
    window.erase(window.begin());
    window.push_back(sample);
    const double level = median.process(sample);
    const double expected = medianOf(window);
    require(level == expected || (std::isnan(level) && std::isnan(expected)), "the median");
  });
}

void runNormalization(Input& input) {
  const int size = windowOf(input, 1);
  const bool symmetric = input.coin();
  NormalizationFilter normalization(size, symmetric);
  bool tame = true;  // no sample whose differences are beyond a double
  feed(input, longestWork / size + 1, [&](double sample) {
    tame = tame && std::abs(sample) < 1e300;
    const double level = normalization.process(sample);
    if (!tame) return;
    require(level >= 0 && level <= 1, "a level of 0 to 1");
    require(normalization.min() <= sample && sample <= normalization.max(), "the extremes");
  });
}

void runButterworth(Input& input) {
  const auto frequency = input.real<float>();
  const int rate = input.number<int>();
  const auto type = static_cast<Zephly::PassType>(input.below(3));
  Zephly::ButterworthFilter filter(frequency, rate, type, input.real<float>());
  while (!input.empty()) static_cast<void>(filter.process(input.real<float>()));
}

void runWindow(Input& input) {
  const int capacity = static_cast<int>(input.below(40));
  Zephly::CyclicBuffer window{capacity, {}};
  while (!input.empty()) {
    const auto value = input.real<float>();
    window.push(value);
    require(static_cast<int>(window.values.size()) <= capacity, "no more than the capacity");
    require(capacity == 0 || std::bit_cast<std::uint32_t>(window.values.back()) ==
                                 std::bit_cast<std::uint32_t>(value),
            "the newest at the end");
  }
}

void runLeadoff(Input& input) {
  Zephly::LeadoffDetector detector;
  std::vector<float> recent;
  require(!detector.leadoffSaturationDetection({}), "nothing is not saturated");
  while (!input.empty()) {
    recent.push_back(input.real<float>());
    if (recent.size() > 70) recent.erase(recent.begin());
    const bool contact = detector.process(recent.back());
    static_cast<void>(detector.leadoffSaturationDetection(recent));
    if (std::ranges::any_of(recent, [](float one) { return std::isnan(one); })) continue;
    const auto [least, most] = std::ranges::minmax(recent);
    require(contact == (most - least > 0.01F), "contact is a span");
  }
}

void runBodyTemperature(Input& input) {
  Zephly::BodyTemperatureEstimator estimator;
  while (!input.empty()) {
    const auto object = input.real<float>();
    const float core = estimator.process(object, input.real<float>());
    require(std::abs(core) <= 214748368.0F, "an estimate is a number within its range");
  }
}

// Several samples in a row, each of them expensive.
void runChains(Input& input, SignalProcessor& wrapper) {
  bool finite = true;
  const auto engine = wrapper.signalProcessor();
  int work = 400;
  int slow = 3;  // lead-off after the clock has moved: its reset takes 50,000 steps
  while (!input.empty() && work > 0) {
    const unsigned operation = input.below(8);
    const auto sample = operation == 7 ? 0.0F : input.real<float>();
    const unsigned times = 1 + input.below(40);
    if (operation == 7 && slow-- > 0) FakeProcessorClock::now += times * 500'000ULL;
    for (unsigned i = 0; i < times && work > 0; ++i, --work) {
      float level = 0;
      switch (operation) {
        case 0:
        case 1:
          level = wrapper.processECG(sample);
          finite = finite && std::abs(sample) < 1e6F;
          break;
        case 2:
        case 3:
          level = wrapper.processRespiration(sample);
          finite = finite && std::abs(sample) < 1e6F;
          break;
        case 4:
          static_cast<void>(wrapper.processLeadoffDetection(sample));
          break;
        case 5:
          static_cast<void>(engine->processBodyTemperature(sample, -sample));
          break;
        case 6:
          wrapper.imu(sample, 0, 0, 1, sample, 0, sample);
          break;
        default:
          break;
      }
      if (finite) require(level >= 0 && level <= 1, "a level of 0 to 1 for everyday samples");
    }
  }
}

void runEngine(Input& input) {
  // Objects that are created once and kept must not be attributed to the engine.
  [[maybe_unused]] static const auto* const first =
      new std::shared_ptr<SignalProcessor>(SignalProcessor::init());
  fuzz::Reclaim reclaim;
  const fuzz::Quiet quiet;
  const FakeProcessorClock clock;
  const auto wrapper = reclaim.during([] { return SignalProcessor::init(); });
  const auto workout = std::make_shared<recorded::Indifferent>();
  wrapper->startWorkoutDetection();
  if (input.coin()) wrapper->setDelegate(workout);
  runChains(input, *wrapper);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  switch (input.below(11)) {
    case 0:
      refuse(input);
      break;
    case 1:
      runMedian(input);
      break;
    case 2:
      runNormalization(input);
      break;
    case 3:
      runButterworth(input);
      break;
    case 4:
      runWindow(input);
      break;
    case 5:
      runLeadoff(input);
      break;
    case 6:
      runBodyTemperature(input);
      break;
    case 7:
      runEngine(input);
      break;
    default:
      runFilter(input);
      break;
  }
  return 0;
}
