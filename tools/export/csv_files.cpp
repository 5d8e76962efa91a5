// SPDX-License-Identifier: MIT
#include <tools/export/csv_files.h>

#include <tools/common/output_path.h>

namespace Zephly::exporting {

CsvFiles::CsvFiles(const std::filesystem::path& directory, Existing existing,
                   const replay::Timeline& timeline, timing::Nanoseconds began)
    : directory_(directory, existing, CsvTables::names()),
      tables_(directory, directory_.temporary(), timeline, began),
      vitals_(timeline, tables_) {}

void CsvFiles::check(const std::filesystem::path& directory, Existing existing,
                     const std::filesystem::path& capture) {
  const std::vector<std::string> names = CsvTables::names();
  for (const std::string& name : names) tools::refuseInput(directory / name, capture);
  const PendingDirectory probe(directory, existing, names);
}

void CsvFiles::take(const replay::PlayedRecord& record) {
  tables_.take(record);
  vitals_.take(record);
}

void CsvFiles::complete() {
  vitals_.finish();
  tables_.complete();
}

}  // namespace Zephly::exporting
