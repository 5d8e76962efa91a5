// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The date and time at which an EDF+ file starts. EDF has local time without a zone; the zone is
/// written into the recording identification.
///
///   const EdfStart start = edfStart(preamble.began, EdfClock::local);
///   start.zone;  // "UTC+01:00"

#include <timing/stream_clock.h>

#include <chrono>
#include <string>

namespace Zephly::exporting {

/// local: of the machine that exports (TZ, /etc/localtime).
enum class EdfClock { local, utc };

struct EdfStart {
  std::chrono::year_month_day day;
  std::chrono::hh_mm_ss<std::chrono::seconds> time;  ///< whole seconds, rounded down
  std::string zone;                                  ///< "UTC", or local "UTC+01:00"
  /// Whether EDF+ can represent the date: it has the years 1985 to 2084. Otherwise the start is
  /// 1 January 1985, 00:00.
  bool isDated;
};

/// `began`: since 1970.
EdfStart edfStart(timing::Nanoseconds began, EdfClock clock);

}  // namespace Zephly::exporting
