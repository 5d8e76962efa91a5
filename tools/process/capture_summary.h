// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// summary.json: what is in a capture, as one JSON object. docs/process.md describes it.
///
///   CaptureSummary summary;
///   summary.begin(preamble, timeline);
///   // pass records, beats, breaths and seconds
///   summary.json("walk.zcap", defects).text();
///
/// Holds every beat, because heart rate variability is that of the whole recording.

#include <capture/record.h>
#include <hosts/replay/capture_player.h>
#include <hosts/replay/survey.h>
#include <tools/common/json_object.h>
#include <tools/vitals/vitals_summary.h>
#include <vitals/vitals.h>
#include <zephly/protocol/battery_status.h>

#include <cstdint>
#include <vector>

namespace Zephly::processing {

class CaptureSummary final : public vitals::Receiver {
 public:
  void begin(const capture::Preamble& preamble, const replay::Timeline& timeline);
  void take(const replay::PlayedRecord& record);
  void beat(const vitals::Beat& beat) override { vitals_.beat(beat); }
  void breath(const vitals::Breath& breath) override { vitals_.breath(breath); }
  void second(const vitals::Second& second) override { vitals_.second(second); }

  /// `about`: what was read, with a name that has no folder. `defects`: of the capture.
  tools::JsonObject json(const recorders::AboutInput& about,
                         const std::vector<replay::Defect>& defects) const;

 private:
  // Of a value that is measured from time to time.
  class Readings {
   public:
    void take(double value);
    tools::JsonObject json(int digits) const;

   private:
    std::uint64_t count_ = 0;
    double sum_ = 0;
    double lowest_ = 0;
    double highest_ = 0;
  };

  capture::Preamble preamble_;
  replay::Timeline timeline_;
  recorders::VitalsSummary vitals_;
  Readings skin_;
  Readings ambient_;
  Readings body_;
  std::uint64_t batteryReports_ = 0;
  BatteryStatus firstBattery_;
  BatteryStatus lastBattery_;
  float lowestCharge_ = 0;
};

}  // namespace Zephly::processing
