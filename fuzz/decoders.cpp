// SPDX-License-Identifier: MIT
// The strap's frames, and identifiers as text: any bytes of any length.

#include <hosts/foundation/data.h>
#include <zephly/platform/cb_uuid.h>
#include <zephly/protocol/frame_decoders.h>
#include <zephly/protocol/streams.h>
#include <zephly/protocol/utilities.h>
#include <fuzz/support/input.h>
#include <fuzz/support/require.h>
#include <fuzz/support/target.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <vector>

namespace {

using fuzz::require;
using Bytes = std::vector<std::uint8_t>;
using Zephly::Stream;
using Zephly::streamInfo;
using Zephly::hosts::Data;

bool same(float left, float right) {
  return std::bit_cast<std::uint32_t>(left) == std::bit_cast<std::uint32_t>(right);
}

bool within(float value, double least, double most) {
  return static_cast<double>(value) >= least && static_cast<double>(value) <= most;
}

// Truncated or padded with zeros to the size of the stream's frames.
Data exact(Bytes bytes, Stream stream) {
  bytes.resize(streamInfo(stream).bytesPerFrame);
  return Data(std::move(bytes));
}

// Without floating point: the six samples in units of 2^-23 of full scale.
long long sampleOf(const Bytes& frame, std::size_t index) {
  long long value = 0;
  for (std::size_t i = 0; i < 3; ++i) {
    const std::size_t at = 3 * index + i;
    if (at < frame.size()) value += static_cast<long long>(frame[at]) << (8 * i);
  }
  return value < 0x800000 ? value : value - 0x1000000;
}

void decodeSamples(const Bytes& bytes, const Data& frame) {
  const auto samples = FrameDecoders::calculateECGValue(frame);
  require(samples.size() == 6, "six samples a frame");
  for (std::size_t i = 0; i < samples.size(); ++i) {
    const float expected = static_cast<float>(sampleOf(bytes, i)) * 0x1p-23F * 2.42F;
    require(same(samples[i], expected), "a sample is its 24 bits");
    require(std::abs(samples[i]) <= 2.42F, "a sample within full scale");
  }
}

void decodeTemperature(const Bytes& bytes, const Data& frame) {
  const auto reading = FrameDecoders::calculateTemperatureValue(frame);
  for (const float degrees : {reading.objectTemperature, reading.ambientTemperature}) {
    require(within(degrees, -273.151, 1037.56), "a temperature within its range");
  }
  const auto again = FrameDecoders::calculateTemperatureValue(exact(bytes, Stream::temperature));
  require(same(reading.objectTemperature, again.objectTemperature) &&
              same(reading.ambientTemperature, again.ambientTemperature),
          "the length of a temperature frame does not matter");
}

void decodeBattery(const Bytes& bytes, const Data& frame) {
  const auto status = FrameDecoders::calculateBatterySOCValue(frame);
  require(within(status.soc, 0, 6553.5), "a charge within its range");
  require(status.inCharge == (bytes.size() > 2 && bytes[2] != 0), "the third byte is the flag");
  require(status == FrameDecoders::calculateBatterySOCValue(exact(bytes, Stream::battery)),
          "the length of a battery frame does not matter");
}

void decodeMotion(const Bytes& bytes, const Data& frame) {
  const auto motion = FrameDecoders::calculateMotionValue(frame);
  for (const float part : {motion.qw, motion.qx, motion.qy, motion.qz}) {
    require(within(part, -2, 2), "an orientation within its range");
  }
  for (const float part : {motion.ax, motion.ay, motion.az}) {
    require(within(part, -32768, 32768), "an acceleration within its range");
  }
  const auto again = FrameDecoders::calculateMotionValue(exact(bytes, Stream::motion));
  require(same(motion.qw, again.qw) && same(motion.az, again.az),
          "the length of a motion frame does not matter");
}

// The arguments are meant to be bytes, but are ints and may have any value.
void convertNumbers(fuzz::Input input) {
  ::Utilities messages;
  while (!input.empty()) {
    const int a = input.number<int>();
    const int b = input.number<int>();
    const int c = input.number<int>();
    const int d = input.number<int>();
    require(messages.performSelector<int>("toU2:byteB:byteC:", a, b, c) ==
                Zephly::Utilities::toU2(a, b, c),
            "a message is the call");
    require(within(Zephly::Utilities::q16ToFloat(a, b, c, d), -32768, 32768), "Q16.16");
    require(within(Zephly::Utilities::q30ToFloat(a, b, c, d), -2, 2), "Q2.30");
    require(std::abs(Zephly::Utilities::q30ToDouble(a, b, c, d)) <= 2, "Q2.30");
    const int u2 = Zephly::Utilities::toU2(a & 0xFF, b & 0xFF, c & 0xFF);
    require(u2 >= -0x800000 && u2 <= 0x7FFFFF, "24 bits");
  }
}

void parseIdentifier(fuzz::Input input) {
  const std::string text = input.text(64);
  const auto identifier = CBUUID::parse(text);
  if (!identifier) return;
  const std::string written = identifier->UUIDString();
  require(written.size() == 36, "the long form");
  require(CBUUID::parse(written) == identifier, "what is written reads back");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Bytes bytes(data, data + size);
  const Data frame(bytes);
  decodeSamples(bytes, frame);
  decodeTemperature(bytes, frame);
  decodeBattery(bytes, frame);
  decodeMotion(bytes, frame);
  convertNumbers({data, size});
  parseIdentifier({data, size});
  return 0;
}
