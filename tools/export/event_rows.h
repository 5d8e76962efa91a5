// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The events of a session as rows of a CSV file. docs/export.md describes the columns.
///
///   CsvFile file(path, temporary / eventsName, eventColumns, began);
///   writeEvents(file, timeline);

#include <hosts/replay/survey.h>
#include <tools/export/csv_file.h>

namespace Zephly::exporting {

inline constexpr const char* eventsName = "events.csv";
inline constexpr const char* eventColumns = "event,stream,duration_s";

void writeEvents(CsvFile& file, const replay::Timeline& timeline);

}  // namespace Zephly::exporting
