// SPDX-License-Identifier: MIT
#include <tools/export/edf_start.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace Zephly::exporting {

namespace {

// Of local time from UTC. <chrono> has no time zones in the oldest supported library.
std::chrono::seconds localOffset(std::chrono::sys_seconds time) {
  const std::time_t seconds = time.time_since_epoch().count();
  std::tm local{};
  if (::localtime_r(&seconds, &local) == nullptr) return std::chrono::seconds::zero();
  return std::chrono::seconds(local.tm_gmtoff);
}

// "UTC-03:30"
std::string offsetText(std::chrono::seconds offset) {
  const auto minutes = static_cast<int>(std::abs(offset / std::chrono::minutes(1)));
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "UTC%c%02d:%02d",
                offset < std::chrono::seconds::zero() ? '-' : '+', minutes / 60, minutes % 60);
  return text.data();
}

}  // namespace

EdfStart edfStart(timing::Nanoseconds began, EdfClock clock) {
  const std::chrono::sys_seconds utc(std::chrono::floor<std::chrono::seconds>(began));
  const auto offset = clock == EdfClock::local ? localOffset(utc) : std::chrono::seconds::zero();
  const auto midnight = std::chrono::floor<std::chrono::days>(utc + offset);
  const std::chrono::year_month_day day(midnight);
  const std::string zone = clock == EdfClock::local ? offsetText(offset) : "UTC";
  if (day.year() >= std::chrono::year(1985) && day.year() <= std::chrono::year(2084)) {
    return {.day = day,
            .time = std::chrono::hh_mm_ss(utc + offset - midnight),
            .zone = zone,
            .isDated = true};
  }
  return {.day = std::chrono::year(1985) / 1 / 1,
          .time = std::chrono::hh_mm_ss(std::chrono::seconds::zero()),
          .zone = zone,
          .isDated = false};
}

}  // namespace Zephly::exporting
