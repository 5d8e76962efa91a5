// SPDX-License-Identifier: MIT
#include <tools/process/work_list.h>

#include <capture/capture_error.h>
#include <capture/reader.h>
#include <capture/text.h>
#include <tools/common/output_path.h>
#include <tools/export/unfinished.h>
#include <tools/process/cohort.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <map>
#include <system_error>

namespace Zephly::processing {

namespace {

std::string shown(const std::filesystem::path& path) { return capture::printable(path.string()); }

void checkName(const std::filesystem::path& capture, const std::string& name) {
  if (!name.empty() && name != "." && name != ".." && name != cohortName &&
      exporting::targetOfUnfinished(name).empty()) {
    return;
  }
  throw CLI::ValidationError(shown(capture) + ": a result cannot have this name; rename the file");
}

// "walk" of "walk.2", the name of a file that may continue walk.zcap; empty for other names.
std::string firstName(const std::string& name) {
  const std::size_t point = name.rfind('.');
  const bool numbered = point != std::string::npos && point + 1 < name.size() &&
                        name.find_first_not_of("0123456789", point + 1) == std::string::npos;
  return numbered ? name.substr(0, point) : std::string();
}

// Whether `file` is read with `first`.
bool continues(const std::filesystem::path& file, const std::filesystem::path& first) {
  try {
    if (!capture::Reader(file).preamble().continues) return false;
    const std::vector<std::filesystem::path> files = capture::Reader(first).files();
    return std::any_of(files.begin(), files.end(),
                       [&](const auto& one) { return tools::isSameFile(one, file); });
  } catch (const capture::CaptureError&) {
    return false;  // said again when it is processed
  }
}

}  // namespace

std::string resultName(const std::filesystem::path& capture) {
  const std::filesystem::path file = capture.filename();
  return file.extension() == ".zcap" ? file.stem().string() : file.string();
}

std::vector<WorkItem> workList(const std::vector<std::filesystem::path>& captures) {
  std::map<std::string, std::filesystem::path> byName;
  for (const std::filesystem::path& capture : captures) {
    const std::string name = resultName(capture);
    checkName(capture, name);
    const auto [other, isNew] = byName.emplace(name, capture);
    if (!isNew) {
      throw CLI::ValidationError(shown(other->second) + " and " + shown(capture) +
                                 " have the same name: their results would be one directory");
    }
  }
  std::vector<WorkItem> items;
  for (const auto& [name, capture] : byName) {
    const auto first = byName.find(firstName(name));
    if (first != byName.end() && continues(capture, first->second)) continue;
    std::error_code unreadable;
    const std::uintmax_t bytes = std::filesystem::file_size(capture, unreadable);
    items.push_back({.capture = capture, .name = name, .bytes = unreadable ? 0 : bytes});
  }
  std::stable_sort(items.begin(), items.end(),
                   [](const WorkItem& a, const WorkItem& b) { return a.bytes > b.bytes; });
  return items;
}

}  // namespace Zephly::processing
