// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The parts of a report's JSON. Series are columns: one array for each quantity, null where it is
/// not known. Times are in seconds since the session began.

#include <hosts/replay/survey.h>
#include <timing/stream_clock.h>
#include <tools/common/json_object.h>
#include <tools/report/ecg_strips.h>
#include <vitals/vitals.h>

#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Zephly::reporting {

template <class Reading>
using TimedReadings = std::vector<std::pair<timing::Nanoseconds, Reading>>;

/// With three decimals.
double seconds(timing::Nanoseconds time);

/// The times with and without contact while there was a link, and the share of `end` with contact.
tools::JsonObject contactJson(const std::vector<replay::Annotation>& annotations,
                              timing::Nanoseconds end);

/// For each 5 min from the begin of the session to `end`: rates, and heart rate variability.
tools::JsonArray windowsJson(std::span<const vitals::Beat> beats,
                             std::span<const vitals::Second> all, timing::Nanoseconds end);

tools::JsonObject secondsColumns(std::span<const vitals::Second> all);

/// In order of time; "class" has a letter for each beat: n, e or a.
tools::JsonObject beatColumns(std::span<const vitals::Beat> beats);

tools::JsonObject temperatureColumns(const TimedReadings<replay::TemperatureSample>& readings);

tools::JsonObject batteryColumns(const TimedReadings<BatteryStatus>& readings);

tools::JsonArray eventsJson(const std::vector<replay::Annotation>& annotations);

tools::JsonArray stripsJson(const std::vector<EcgStrip>& strips);

/// JSON that can be put into an HTML document: without any "<".
std::string embeddable(std::string_view json);

}  // namespace Zephly::reporting
