// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Beats, breaths and their quality in a capture, with the times of its samples.
///
///   CaptureVitals vitals(timeline, receiver);                // of a survey of the same records
///   player.play([&](const PlayedRecord& record) { vitals.take(record); });
///   vitals.finish();
///
/// Takes raw ECG and raw respiration, and contact from the sample at which the session reported it.

#include <hosts/replay/capture_player.h>
#include <hosts/replay/survey.h>
#include <timing/stream_clock.h>
#include <vitals/vitals.h>

namespace Zephly::replay {

/// The vitals of one capture.
class CaptureVitals {
 public:
  /// Owns neither; both must outlive it. `searchBack`: see vitals/vitals.h.
  CaptureVitals(const Timeline& timeline, vitals::Receiver& receiver, bool searchBack = false);

  /// Records must come in order of time.
  void take(const PlayedRecord& record);
  /// Reports what is held back. The last call.
  void finish() { vitals_.finish(); }

 private:
  timing::ClockWalk ecg_;
  timing::ClockWalk respiration_;
  vitals::Vitals vitals_;
};

}  // namespace Zephly::replay
