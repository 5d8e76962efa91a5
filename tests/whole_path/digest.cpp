/// @file
/// Prints one digest per numeric class over long seeded input. Two builds of the kit are compared
/// by comparing what this program prints: the results are promised bit for bit, whatever the
/// compiler and its optimisation.

#include <platforms/foundation/data.h>
#include <tests/support/captured_output.h>
#include <zephly/dsp/biquad_filter.h>
#include <zephly/dsp/butterworth_filter.h>
#include <zephly/dsp/low_cut_filter.h>
#include <zephly/dsp/median_filter.h>
#include <zephly/dsp/normalization_filter.h>
#include <zephly/dsp/signal_processor.h>
#include <zephly/motion/madgwick_ahrs.h>
#include <zephly/protocol/frame_decoders.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

namespace {

// FNV-1a over the bits of numbers; every NaN counts as the same one.
class Digest {
 public:
  void add(double value) {
    addBits(std::isnan(value) ? ~0ULL : std::bit_cast<std::uint64_t>(value));
  }
  void add(const std::string& text) {
    for (const char character : text) addBits(static_cast<unsigned char>(character));
  }
  void print(const char* name) const {
    std::printf("%-28s %016llx\n", name, static_cast<unsigned long long>(state_));
  }

 private:
  void addBits(std::uint64_t bits) {
    for (int byte = 0; byte < 8; ++byte) {
      state_ = (state_ ^ (bits >> (8 * byte) & 0xFFU)) * 0x100000001B3ULL;
    }
  }

  std::uint64_t state_ = 0xCBF29CE484222325ULL;
};

// Slow wave, fast wave, noise, and now and then a spike: what a sensor gives.
class Signal {
 public:
  double next() {
    ++index_;
    const auto phase = static_cast<double>(index_);
    const double noise = static_cast<double>(bits_() % 20001) / 10000.0 - 1.0;
    const double spike = bits_() % 997 == 0 ? 2.0 : 0.0;
    // A triangle and a square wave: shapes that need no library function.
    const double slow = std::abs(std::fmod(phase, 1600.0) / 800.0 - 1.0);
    const double fast = std::fmod(phase, 10.0) < 5.0 ? 0.1 : -0.1;
    return 0.8 * slow + fast + 0.05 * noise + spike;
  }
  float nextFloat() { return static_cast<float>(next()); }

 private:
  std::mt19937 bits_{1};
  int index_ = 0;
};

void digestFilter(const char* name, Filter& filter, int samples) {
  Signal signal;
  Digest digest;
  for (int index = 0; index < samples; ++index) digest.add(filter.process(signal.next()));
  digest.print(name);
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

  for (const auto pass : {Zephly::Highpass, Zephly::Lowpass}) {
    Zephly::ButterworthFilter filter(1.0F, 60, pass, 2.0F);
    Signal signal;
    Digest digest;
    for (int index = 0; index < 100000; ++index) digest.add(filter.process(signal.nextFloat()));
    digest.print(pass == Zephly::Highpass ? "ButterworthFilter highpass"
                                          : "ButterworthFilter lowpass");
  }
}

void digestEngine() {
  Zephly::SignalProcessor engine;
  Signal signal;
  Digest ecg;
  Digest respiration;
  Digest leadoff;
  Digest temperature;
  for (int index = 0; index < 12000; ++index) {
    const float sample = signal.nextFloat();
    ecg.add(engine.processECG(sample));
    leadoff.add(engine.processLeadoffDetection(sample) ? 1 : 0);
    respiration.add(engine.processRespiration(sample));
    temperature.add(engine.processBodyTemperature(33 + 2 * sample, 21 + sample));
  }
  ecg.print("SignalProcessor ECG");
  respiration.print("SignalProcessor respiration");
  leadoff.print("SignalProcessor lead-off");
  temperature.print("SignalProcessor temperature");
}

// Both motion paths; the trace line that the detector writes per sample is part of the digest.
void digestMotion() {
  Zephly::SignalProcessor engine;
  Digest digest;
  const auto count = [](void* context) { static_cast<Digest*>(context)->add(1.0); };
  engine.setJumpCallback(count, &digest);
  engine.setSitUpCallback(count, &digest);
  engine.setPushUpCallback(count, &digest);
  Signal signal;
  const CapturedOutput trace;
  for (int index = 0; index < 20000; ++index) {
    const auto value = [&signal] { return 2 * signal.nextFloat() - 1; };
    const float v[] = {value(), value(), value(), value(), value(),
                       value(), value(), value(), value()};
    engine.imu(v[0], v[1], v[2], v[3], v[4], v[5], v[6], v[7], v[8]);
    for (const float component : {q0, q1, q2, q3}) digest.add(component);
    engine.imu(v[0], v[1], v[2], v[3], v[4], v[5], v[6]);
  }
  digest.add(trace.text());
  digest.print("SignalProcessor motion");

  Digest angles;
  Signal components;
  for (int index = 0; index < 50000; ++index) {
    const auto value = [&components] { return components.nextFloat() - 0.5F; };
    Quaternion quaternion{value(), value(), value(), value()};  // braces: in this order
    const Vector3 euler = quaternion.FromQ2();
    const Vector3 up = quaternion.normalVectorToUp();
    for (const float number : {euler.x, euler.y, euler.z, up.x, up.y, up.z}) angles.add(number);
  }
  angles.print("Quaternion");
}

void digestDecoders() {
  std::mt19937 bits(3);
  Digest digest;
  for (int round = 0; round < 20000; ++round) {
    std::vector<std::uint8_t> bytes(bits() % 24);
    for (auto& byte : bytes) byte = static_cast<std::uint8_t>(bits());
    const Zephly::platforms::Data frame(bytes);
    for (const float sample : FrameDecoders::calculateECGValue(frame)) digest.add(sample);
    digest.add(FrameDecoders::calculateTemperatureValue(frame).objectTemperature);
    digest.add(FrameDecoders::calculateBatterySOCValue(frame).soc);
    const auto motion = FrameDecoders::calculateMotionValue(frame);
    for (const float number : {motion.qw, motion.qz, motion.ax, motion.az}) digest.add(number);
  }
  digest.print("Frame decoders");
}

}  // namespace

int main() {
  digestDecoders();
  digestFilters();
  digestEngine();
  digestMotion();
}
