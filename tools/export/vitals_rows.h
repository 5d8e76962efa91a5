// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Beats, breaths and the state of each second as rows of CSV files. docs/vitals.md describes the
/// columns.
///
///   CsvFile file(path, temporary, beatColumns, began);
///   writeBeat(file, beat);

#include <tools/export/csv_file.h>
#include <vitals/vitals.h>

namespace Zephly::exporting {

inline constexpr const char* beatColumns = "rr_s,class,quality,amplitude,late";
inline constexpr const char* breathColumns = "duration_s,depth,quality,derived";
inline constexpr const char* secondColumns =
    "heart_rate_per_min,heart_rate_quality,ecg_quality,breathing_rate_per_min,breathing_quality,"
    "breathing_derived,respiration_quality,contact";

void writeBeat(CsvFile& file, const vitals::Beat& beat);
void writeBreath(CsvFile& file, const vitals::Breath& breath);
void writeSecond(CsvFile& file, const vitals::Second& second);

}  // namespace Zephly::exporting
