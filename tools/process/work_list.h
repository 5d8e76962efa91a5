// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The captures of one run, with the directories of their results.
///
///   for (const WorkItem& item : workList(options)) start(item);

#include <tools/process/process_options.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace Zephly::processing {

struct WorkItem {
  std::filesystem::path capture;
  std::string name;         ///< of the result: the file's name without ".zcap"
  std::uint64_t bytes = 0;  ///< of the file; 0 when it cannot be read
};

/// "walk" for "captures/walk.zcap".
std::string resultName(const std::filesystem::path& capture);

/// The largest capture first, so that the last ones to end are small. A file that continues another
/// one of the captures is left out: it is read with the first one. Throws CLI::ValidationError when
/// two captures have the same name or a name cannot be that of a result.
std::vector<WorkItem> workList(const std::vector<std::filesystem::path>& captures);

}  // namespace Zephly::processing
