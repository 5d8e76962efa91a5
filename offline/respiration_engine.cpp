// SPDX-License-Identifier: MIT
#include <offline/respiration_engine.h>

#include <cstddef>
#include <cstring>

namespace Zephly::offline {

namespace {

// After the samples from `begin` on that have the same contact.
std::size_t endOfRun(std::span<const std::uint8_t> contact, std::size_t begin) {
  const std::uint8_t other = contact[begin] != 0 ? 0 : 1;
  const void* const change = std::memchr(&contact[begin], other, contact.size() - begin);
  if (change == nullptr) return contact.size();
  return static_cast<std::size_t>(static_cast<const std::uint8_t*>(change) - contact.data());
}

}  // namespace

void RespirationEngine::process(std::span<const float> in, std::uint64_t processorTime,
                                std::span<float> filtered, std::span<std::uint8_t> contact) {
  const FrameTime frame = {in.size(), processorTime};
  process(in, std::span(&frame, 1), filtered, contact);
}

void RespirationEngine::process(std::span<const float> in, std::span<const FrameTime> frames,
                                std::span<float> filtered, std::span<std::uint8_t> contact) {
  detector_.process(in, contact);
  std::size_t done = 0;
  const auto filterUpTo = [&](std::size_t end) {
    chain_.process(in.subspan(done, end - done), filtered.subspan(done, end - done));
    done = end;
  };
  std::size_t begin = 0;
  std::size_t nextChange = 0;  // the first sample whose contact is not that of `begin`
  for (const FrameTime& frame : frames) {
    if (frame.samples == 0) continue;
    const std::size_t end = begin + frame.samples;
    if (nextChange <= begin) nextChange = endOfRun(contact, begin);
    if (end > nextChange || !nothingResets(contact[begin] != 0, frame.processorTime)) {
      for (std::size_t i = begin; i < end; ++i) {
        const bool on = contact[i] != 0;
        const bool settles = highPassTimer_.fires(on, frame.processorTime);
        const bool clears = normalizationTimer_.fires(on, frame.processorTime);
        if (!settles && !clears) continue;
        filterUpTo(i);
        if (settles) chain_.settleHighPass();
        if (clears) chain_.clearNormalization();
      }
    }
    begin = end;
  }
  filterUpTo(in.size());
}

// For a frame in which contact does not change: almost all of a recording.
bool RespirationEngine::nothingResets(bool contact, std::uint64_t processorTime) {
  return highPassTimer_.idles(contact, processorTime) &&
         normalizationTimer_.idles(contact, processorTime);
}

}  // namespace Zephly::offline
