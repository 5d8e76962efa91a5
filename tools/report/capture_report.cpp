// SPDX-License-Identifier: MIT
#include <tools/report/capture_report.h>

#include <tools/common/version_text.h>
#include <zephly/protocol/streams.h>

#include <ctime>

namespace Zephly::reporting {

namespace {

using namespace std::chrono_literals;
using tools::JsonArray;
using tools::JsonObject;

// Later, a number of JSON does not hold the milliseconds and no calendar needs them.
constexpr timing::Nanoseconds latestBegin = 8'000'000'000s;  // the year 2223

// The wall clock, as the zone of this machine has it when the recording begins.
std::optional<JsonObject> wallClockJson(timing::Nanoseconds began) {
  if (began < timing::Nanoseconds::zero() || began > latestBegin) return std::nullopt;
  const std::time_t seconds = std::chrono::duration_cast<std::chrono::seconds>(began).count();
  std::tm local{};
  if (::localtime_r(&seconds, &local) == nullptr) return std::nullopt;
  return JsonObject()
      .add("began", std::chrono::duration_cast<std::chrono::milliseconds>(began).count())
      .add("utcOffset", local.tm_gmtoff)
      .add("zone", local.tm_zone);
}

}  // namespace

void CaptureReport::begin(const capture::Preamble& preamble, const replay::Timeline& timeline) {
  preamble_ = preamble;
  annotations_ = timeline.annotations;
  end_ = timeline.end;
  ecg_.emplace(timeline.clock(Stream::ecg));
  temperature_.emplace(timeline.clock(Stream::temperature));
}

void CaptureReport::record(const replay::PlayedRecord& record) {
  for (const float value : record.ecg) strips_.sample(ecg_->next().time, value);
  if (record.temperature) {
    temperatures_.emplace_back(temperature_->next().time, *record.temperature);
  }
  if (const auto time = batteryTimes_.take(record)) {
    battery_.emplace_back(time->time, *record.battery);
  }
}

void CaptureReport::second(const vitals::Second& second) {
  summary_.second(second);
  strips_.second(second);
  seconds_.push_back(second);
}

JsonObject CaptureReport::json(const recorders::AboutInput& about,
                               const std::vector<std::string>& complaints,
                               const std::string& title) const {
  JsonArray lines;
  for (const std::string& complaint : complaints) lines.add(complaint);
  return JsonObject()
      .add("program", tools::programName())
      .add("title", title)
      .add("file", about.file.string())
      .add("source", preamble_.source)
      .add("recordedBy", preamble_.program)
      .add("simulated", preamble_.simulated)
      .add("clock", wallClockJson(preamble_.began))
      .add("duration", seconds(end_))
      .add("complaints", lines)
      .add("vitals", summary_.json(about))
      .add("contact", contactJson(annotations_, end_))
      .add("windows", windowsJson(summary_.beats(), seconds_, end_))
      .add("seconds", secondsColumns(seconds_))
      .add("beats", beatColumns(summary_.beats()))
      .add("temperature", temperatureColumns(temperatures_))
      .add("battery", batteryColumns(battery_))
      .add("events", eventsJson(annotations_))
      .add("strips", stripsJson(strips_.all()));
}

}  // namespace Zephly::reporting
