// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// What the kit's engine makes of raw respiration: contact, filtered samples, and the resets of
/// the chain after a loss of contact.
///
///   RespirationEngine engine;
///   engine.process(frame, processorTime, filtered, contact);
///   engine.process(samples, frames, filtered, contact);  // a whole recording, 20 times as fast
///
/// The results are those of SignalProcessor::processLeadoffDetection() and processRespiration(),
/// called one after the other for each sample, while the processor clock shows `processorTime`. A
/// capture has that time for each frame.

#include <offline/contact_detector.h>
#include <offline/frame_time.h>
#include <offline/reset_timer.h>
#include <offline/respiration_chain.h>

#include <cstdint>
#include <span>

namespace Zephly::offline {

/// The respiration part of one engine. A value, as its parts are.
class RespirationEngine {
 public:
  /// The next samples, during which the processor clock does not advance. In microseconds.
  /// `filtered` and `contact` have the length of `in`; contact is 1 or 0.
  void process(std::span<const float> in, std::uint64_t processorTime, std::span<float> filtered,
               std::span<std::uint8_t> contact);

  /// The next samples, which are those of all the frames.
  void process(std::span<const float> in, std::span<const FrameTime> frames,
               std::span<float> filtered, std::span<std::uint8_t> contact);

 private:
  bool nothingResets(bool contact, std::uint64_t processorTime);

  ContactDetector detector_;
  ResetTimer highPassTimer_{4.0F};
  ResetTimer normalizationTimer_{4.1F};
  RespirationChain chain_;
};

}  // namespace Zephly::offline
