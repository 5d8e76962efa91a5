// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// What `zephly report` shows of a capture, as one JSON object; docs/report.md describes it.
///
///   CaptureReport report;
///   recorders::CaptureInput input("walk.zcap", false, &report);
///   const std::vector<std::string> complaints = input.play(report, progress);
///   const std::string json = report.json(input.about(), complaints, "Night 3").text();
///
/// Holds every beat and some numbers for each second; of the ECG only strips.

#include <hosts/replay/survey.h>
#include <timing/stream_clock.h>
#include <tools/common/json_object.h>
#include <tools/report/ecg_strips.h>
#include <tools/report/report_json.h>
#include <tools/vitals/capture_input.h>
#include <tools/vitals/vitals_summary.h>
#include <vitals/vitals.h>

#include <optional>
#include <string>
#include <vector>

namespace Zephly::reporting {

class CaptureReport final : public recorders::CaptureListener, public vitals::Receiver {
 public:
  void begin(const capture::Preamble& preamble, const replay::Timeline& timeline) override;
  void record(const replay::PlayedRecord& record) override;

  void beat(const vitals::Beat& beat) override { summary_.beat(beat); }
  void breath(const vitals::Breath& breath) override { summary_.breath(breath); }
  void second(const vitals::Second& second) override;

  /// `complaints`: the defects of the capture, one line each. `title`: a heading.
  tools::JsonObject json(const recorders::AboutInput& about,
                         const std::vector<std::string>& complaints,
                         const std::string& title) const;

 private:
  capture::Preamble preamble_;
  std::vector<replay::Annotation> annotations_;
  timing::Nanoseconds end_{};
  std::optional<timing::ClockWalk> ecg_;
  std::optional<timing::ClockWalk> temperature_;
  replay::BatteryTimes batteryTimes_;

  recorders::VitalsSummary summary_;
  EcgStrips strips_;
  std::vector<vitals::Second> seconds_;
  TimedReadings<replay::TemperatureSample> temperatures_;
  TimedReadings<BatteryStatus> battery_;
};

}  // namespace Zephly::reporting
