// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Changes a continuous EDF+ file into a discontinuous one (EDF+D), whose data records have gaps
/// between them. EDFlib writes continuous files only: this changes the type of the file in its
/// header, and the time at the beginning of each data record.
///
///   makeDiscontinuous(file.temporary(), records);
///
/// The two types of file differ in nothing else.

#include <tools/export/edf_records.h>

#include <filesystem>

namespace Zephly::exporting {

/// `file` must have one data record for each of `records`. Throws std::system_error when it cannot
/// be read or written, and std::runtime_error when it is not such a file.
void makeDiscontinuous(const std::filesystem::path& file, const EdfRecords& records);

}  // namespace Zephly::exporting
