// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The kit's ECG and respiration processing for whole recordings: the same bits, faster.
///
///   Ecg ecg;
///   ecg.process(raw, filtered);                    // spans of equal length, of any length
///   Respiration respiration;
///   respiration.process(raw, frames, filtered, contact);
///
/// Input is what the decoders of zephly/protocol return, at 500 samples a second. However a
/// recording is cut into calls, the results are the same. The state is a value: a copy continues
/// independently from where it was made.
///
/// Long calls are faster, because they are computed in vectors where the processor and the build
/// have them: pass a minute or more at a time. Every form gives the same bits. Only the sign and
/// the payload of a NaN are not fixed.
///
/// A process that flushes subnormal numbers to zero gets other bits, as it does from the kit.
///
/// Not thread-safe: one thread at a time for each object.

#include <zephly/platform/export.h>
#include <offline/frame_time.h>

#include <cstdint>
#include <memory>
#include <span>

namespace Zephly::offline {

/// The filtered ECG of a session: the results of SignalProcessor::processECG().
class ZEPHLY_EXPORT Ecg {
 public:
  Ecg();
  Ecg(const Ecg& other);
  Ecg& operator=(const Ecg& other);
  ~Ecg();

  /// The next samples. `filtered` may be the same memory as `raw`. Throws std::invalid_argument
  /// when their lengths differ; the state is then unchanged.
  void process(std::span<const float> raw, std::span<float> filtered);

 private:
  class State;
  std::unique_ptr<State> state_;
};

/// The filtered respiration and the electrode contact of a session: for each sample the results of
/// SignalProcessor::processLeadoffDetection() and then processRespiration().
///
/// While contact is lost the kit resets parts of its filter, after times that it takes from the
/// processor clock. A capture has that time for each frame: Value::processorTime.
class ZEPHLY_EXPORT Respiration {
 public:
  Respiration();
  Respiration(const Respiration& other);
  Respiration& operator=(const Respiration& other);
  ~Respiration();

  /// The next samples, which are those of all `frames`. `contact` is 1 or 0. `filtered` may be the
  /// same memory as `raw`. Throws std::invalid_argument when the lengths differ, or when the frames
  /// have more or fewer samples; the state is then unchanged.
  void process(std::span<const float> raw, std::span<const FrameTime> frames,
               std::span<float> filtered, std::span<std::uint8_t> contact);

 private:
  class State;
  std::unique_ptr<State> state_;
};

}  // namespace Zephly::offline
