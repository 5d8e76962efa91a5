// SPDX-License-Identifier: MIT
// The public classes: the kit's results, copies that continue, and arguments that do not fit.

#include <offline/offline.h>

#include <tests/support/bits.h>
#include <tests/support/fake_processor_clock.h>
#include <tests/zephly/dsp/signals.h>
#include <zephly/dsp/signal_processor.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <span>
#include <stdexcept>
#include <vector>

namespace Zephly::offline {
namespace {

constexpr std::size_t frameLength = 6;
constexpr std::size_t frameCount = 600;
constexpr std::size_t sampleCount = frameLength * frameCount;

std::vector<float> breathing() {
  std::vector<float> samples;
  for (const double sample : respirationLike(sampleCount, 3)) {
    samples.push_back(static_cast<float>(sample));
  }
  // A loss of contact that lasts long enough for both resets.
  for (std::size_t i = 600; i < 2'400; ++i) samples[i] = 1.25F;
  return samples;
}

std::vector<FrameTime> frameTimes() {
  constexpr std::uint64_t step = 20'000;  // microseconds
  std::vector<FrameTime> frames;
  for (std::uint64_t i = 0; i < frameCount; ++i) frames.push_back({frameLength, step * i});
  return frames;
}

struct Expected {
  std::vector<float> ecg;
  std::vector<float> respiration;
  std::vector<std::uint8_t> contact;
};

Expected kitResults(const std::vector<float>& raw, const std::vector<FrameTime>& frames) {
  const FakeProcessorClock clock;
  const auto kit = std::make_unique<SignalProcessor>();
  Expected expected;
  std::size_t next = 0;
  for (const FrameTime& frame : frames) {
    FakeProcessorClock::now = frame.processorTime;
    for (std::size_t i = 0; i < frame.samples; ++i, ++next) {
      expected.ecg.push_back(kit->processECG(raw[next]));
      expected.contact.push_back(kit->processLeadoffDetection(raw[next]) ? 1 : 0);
      expected.respiration.push_back(kit->processRespiration(raw[next]));
    }
  }
  return expected;
}

TEST(OfflineTest, EcgAndItsCopiesGiveTheKitsBits) {
  const std::vector<float> raw = breathing();
  const std::vector<float> expected = kitResults(raw, frameTimes()).ecg;
  constexpr std::size_t cut = 1'001;
  std::vector<float> filtered = raw;  // in place
  Ecg first;
  first.process(std::span(filtered).first(cut), std::span(filtered).first(cut));
  std::vector<float> again(raw.begin() + cut, raw.end());
  Ecg copy(first);
  Ecg assigned;
  assigned.process(again, again);
  assigned = first;
  first.process(std::span(filtered).subspan(cut), std::span(filtered).subspan(cut));
  std::vector<float> byCopy(raw.size() - cut);
  copy.process(std::span(raw).subspan(cut), byCopy);
  std::vector<float> byAssigned(raw.size() - cut);
  assigned.process(std::span(raw).subspan(cut), byAssigned);
  for (std::size_t i = 0; i < raw.size(); ++i) {
    ASSERT_SAME_BITS(filtered[i], expected[i]) << i;
    if (i < cut) continue;
    ASSERT_SAME_BITS(byCopy[i - cut], expected[i]) << i;
    ASSERT_SAME_BITS(byAssigned[i - cut], expected[i]) << i;
  }
}

TEST(OfflineTest, RespirationAndItsCopiesGiveTheKitsBits) {
  const std::vector<float> raw = breathing();
  const std::vector<FrameTime> frames = frameTimes();
  const Expected expected = kitResults(raw, frames);
  constexpr std::size_t cutFrames = 150;  // during the loss
  constexpr std::size_t cut = cutFrames * frameLength;
  std::vector<float> filtered = raw;  // in place
  std::vector<std::uint8_t> contact(raw.size(), 2);
  Respiration first;
  first.process(std::span(filtered).first(cut), std::span(frames).first(cutFrames),
                std::span(filtered).first(cut), std::span(contact).first(cut));
  Respiration copy(first);
  Respiration assigned;
  assigned = first;
  const auto rest = std::span(raw).subspan(cut);
  const auto restFrames = std::span(frames).subspan(cutFrames);
  first.process(rest, restFrames, std::span(filtered).subspan(cut),
                std::span(contact).subspan(cut));
  for (Respiration* other : {&copy, &assigned}) {
    std::vector<float> otherFiltered(rest.size());
    std::vector<std::uint8_t> otherContact(rest.size(), 2);
    other->process(rest, restFrames, otherFiltered, otherContact);
    for (std::size_t i = 0; i < rest.size(); ++i) {
      ASSERT_SAME_BITS(otherFiltered[i], expected.respiration[cut + i]) << i;
      ASSERT_EQ(otherContact[i], expected.contact[cut + i]) << i;
    }
  }
  for (std::size_t i = 0; i < raw.size(); ++i) {
    ASSERT_SAME_BITS(filtered[i], expected.respiration[i]) << i;
    ASSERT_EQ(contact[i], expected.contact[i]) << i;
  }
}

// Calls that are refused leave no trace in the results of those that follow.
TEST(OfflineTest, RefusesLengthsThatDiffer) {
  const std::vector<float> raw = breathing();
  const std::vector<FrameTime> frames = frameTimes();
  const Expected expected = kitResults(raw, frames);
  std::vector<float> filtered(raw.size());
  std::vector<std::uint8_t> contact(raw.size());

  Ecg ecg;
  EXPECT_THROW(ecg.process(raw, std::span(filtered).first(1)), std::invalid_argument);
  ecg.process(raw, filtered);
  for (std::size_t i = 0; i < raw.size(); ++i) ASSERT_SAME_BITS(filtered[i], expected.ecg[i]) << i;

  Respiration respiration;
  EXPECT_THROW(respiration.process(raw, frames, std::span(filtered).first(1), contact),
               std::invalid_argument);
  EXPECT_THROW(respiration.process(raw, frames, filtered, std::span(contact).first(1)),
               std::invalid_argument);
  EXPECT_THROW(respiration.process(raw, std::span(frames).first(1), filtered, contact),
               std::invalid_argument);
  EXPECT_THROW(respiration.process(std::span(raw).first(1), frames, std::span(filtered).first(1),
                                   std::span(contact).first(1)),
               std::invalid_argument);
  // The sum of the lengths overflows to the right one.
  const std::vector<FrameTime> overflow = {
      {std::numeric_limits<std::size_t>::max(), 0}, {1, 0}, {raw.size(), 0}};
  EXPECT_THROW(respiration.process(raw, overflow, filtered, contact), std::invalid_argument);
  respiration.process(raw, frames, filtered, contact);
  for (std::size_t i = 0; i < raw.size(); ++i) {
    ASSERT_SAME_BITS(filtered[i], expected.respiration[i]) << i;
  }
}

}  // namespace
}  // namespace Zephly::offline
