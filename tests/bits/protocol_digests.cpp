// SPDX-License-Identifier: MIT
#include <hosts/foundation/data.h>
#include <tests/bits/digest.h>
#include <zephly/protocol/frame_decoders.h>
#include <zephly/protocol/utilities.h>

#include <cstdint>
#include <random>
#include <vector>

namespace bits {

namespace {

void digestUtilities() {
  std::mt19937 random(4);
  const auto byte = [&random] { return static_cast<int>(random() % 256); };
  Digest digest;
  ::Utilities wrapper;
  for (int round = 0; round < 50000; ++round) {
    const int a = byte();
    const int b = byte();
    const int c = byte();
    const int d = byte();
    digest.add(Zephly::Utilities::toU2(a, b, c));
    digest.add(Zephly::Utilities::q16ToFloat(a, b, c, d));
    digest.add(Zephly::Utilities::q30ToFloat(a, b, c, d));
    digest.add(Zephly::Utilities::q30ToDouble(a, b, c, d));
    digest.add(wrapper.q16tofloat(a, b, c, d));
  }
  digest.print("Utilities");
}

void digestDecoders() {
  std::mt19937 random(3);
  Digest samples;
  Digest temperatures;
  Digest batteries;
  Digest motions;
  for (int round = 0; round < 20000; ++round) {
    std::vector<std::uint8_t> bytes(random() % 24);
    for (auto& byte : bytes) byte = static_cast<std::uint8_t>(random());
    const Zephly::hosts::Data frame(bytes);
    for (const float sample : FrameDecoders::calculateECGValue(frame)) samples.add(sample);
    const auto temperature = FrameDecoders::calculateTemperatureValue(frame);
    temperatures.add(temperature.objectTemperature);
    temperatures.add(temperature.ambientTemperature);
    const auto battery = FrameDecoders::calculateBatterySOCValue(frame);
    batteries.add(battery.soc);
    batteries.add(battery.inCharge ? 1 : 0);
    const auto motion = FrameDecoders::calculateMotionValue(frame);
    for (const float number :
         {motion.qw, motion.qx, motion.qy, motion.qz, motion.ax, motion.ay, motion.az}) {
      motions.add(number);
    }
  }
  samples.print("FrameDecoders waveform");
  temperatures.print("FrameDecoders temperature");
  batteries.print("FrameDecoders battery");
  motions.print("FrameDecoders motion");
}

}  // namespace

void digestProtocol() {
  digestUtilities();
  digestDecoders();
}

}  // namespace bits
