// SPDX-License-Identifier: MIT
#include <tools/process/cohort.h>

#include <capture/file_names.h>
#include <capture/text.h>
#include <hosts/main_queue/file_descriptor.h>
#include <tools/common/output_path.h>
#include <tools/export/end_signals.h>
#include <tools/export/pending_file.h>
#include <tools/process/capture_result.h>
#include <tools/process/manifest.h>
#include <tools/process/result_files.h>

#include <fcntl.h>
#include <nlohmann/json.hpp>
#include <sys/file.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

namespace Zephly::processing {

namespace {

using nlohmann::json;

struct Column {
  const char* name;
  const char* place;  // in the summary
};

constexpr std::array columns = {
    Column{"began_utc", "/began"},
    Column{"duration_s", "/duration"},
    Column{"links", "/links/connected"},
    Column{"links_lost", "/links/lost"},
    Column{"links_lost_s", "/links/lostSeconds"},
    Column{"ecg_samples", "/streams/ecg/samples"},
    Column{"ecg_gaps", "/streams/ecg/gaps"},
    Column{"ecg_gap_s", "/streams/ecg/gapSeconds"},
    Column{"ecg_rate", "/streams/ecg/rate"},
    Column{"respiration_samples", "/streams/respiration/samples"},
    Column{"drift_ppm", "/streams/ecg/driftPpm"},
    Column{"drift_error_ppm", "/streams/ecg/driftErrorPpm"},
    Column{"contact_share", "/contact/share"},
    Column{"push_ups", "/repetitions/pushUps"},
    Column{"sit_ups", "/repetitions/sitUps"},
    Column{"jumps", "/repetitions/jumps"},
    Column{"skin_mean_degC", "/temperature/skin/mean"},
    Column{"ambient_mean_degC", "/temperature/ambient/mean"},
    Column{"battery_first_percent", "/battery/first"},
    Column{"battery_last_percent", "/battery/last"},
    Column{"beats", "/vitals/beats/count"},
    Column{"normal_beats", "/vitals/beats/normal"},
    Column{"heart_rate_median_per_min", "/vitals/heartRate/median"},
    Column{"heart_rate_lowest_per_min", "/vitals/heartRate/lowest"},
    Column{"heart_rate_highest_per_min", "/vitals/heartRate/highest"},
    Column{"heart_rate_known_share", "/vitals/heartRate/known"},
    Column{"mean_nn_ms", "/vitals/hrv/meanNN"},
    Column{"sdnn_ms", "/vitals/hrv/sdnn"},
    Column{"rmssd_ms", "/vitals/hrv/rmssd"},
    Column{"breaths", "/vitals/breaths/count"},
    Column{"breathing_rate_median_per_min", "/vitals/breathingRate/median"},
    Column{"breathing_known_share", "/vitals/breathingRate/known"},
};

// RFC 4180: in quotes where it has to be.
std::string cellOf(const std::string& text) {
  if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
  std::string quoted = "\"";
  for (const char character : text) {
    if (character == '"') quoted += '"';
    quoted += character;
  }
  return quoted + '"';
}

std::string cellOf(const json& value) {
  if (value.is_null()) return "";
  return value.is_string() ? cellOf(value.get<std::string>()) : value.dump();
}

std::string header() {
  std::string text = "name,program,input_bytes,input_sha256,damage";
  for (const Column& column : columns) text += std::string(",") + column.name;
  return text + "\n";
}

// Empty: there is no complete result.
std::optional<std::string> rowOf(const std::filesystem::path& directory) {
  const std::optional<Manifest> manifest = readManifest(directory);
  if (!manifest || manifest->input.empty() || !outputsHaveTheirSizes(*manifest, directory)) {
    return std::nullopt;
  }
  const auto text = smallFile(directory / summaryName, longestSummary);
  const json summary = json::parse(text.value_or(""), nullptr, false);
  if (!summary.is_object()) return std::nullopt;
  std::uint64_t bytes = 0;
  for (const NamedDigest& file : manifest->input) bytes += file.digest.bytes;
  const auto valueAt = [&](const char* place) {
    return summary.value(json::json_pointer(place), json());
  };
  std::string row = cellOf(directory.filename().string()) + ',' + cellOf(manifest->program) + ',' +
                    std::to_string(bytes) + ',' + manifest->input.front().digest.sha256 + ',' +
                    std::to_string(valueAt("/damage").size());
  for (const Column& column : columns) row += ',' + cellOf(valueAt(column.place));
  return row + "\n";
}

// Ends with the descriptor. Where the file system has no locks, nothing is locked.
main_queue::FileDescriptor lockDirectory(const std::filesystem::path& directory) {
  main_queue::FileDescriptor opened(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  while (opened.get() >= 0 && ::flock(opened.get(), LOCK_EX) < 0 && errno == EINTR) {
    if (exporting::EndSignals::came()) throw Interrupted{};
  }
  return opened;
}

// Whatever else has this name is not replaced.
void refuseOther(const std::filesystem::path& file) {
  std::error_code absent;
  if (!std::filesystem::exists(file, absent)) return;
  constexpr std::size_t longest = 1U << 30;
  const auto text = smallFile(file, longest);
  if (text && (text->empty() || text->starts_with("name,program,"))) return;
  throw tools::cannotWrite(file, "another file has this name");
}

}  // namespace

std::size_t writeCohort(const std::filesystem::path& directory) {
  const std::filesystem::path file = directory / cohortName;
  const main_queue::FileDescriptor lock = lockDirectory(directory);
  refuseOther(file);
  std::error_code failed;
  std::vector<std::string> names = capture::fileNames(directory, failed);
  if (failed) throw tools::cannotWrite(file, failed.value());
  std::sort(names.begin(), names.end());
  exporting::PendingFile pending(file, exporting::Existing::replaced);
  pending.write(header());
  std::size_t rows = 0;
  for (const std::string& name : names) {
    if (exporting::EndSignals::came()) throw Interrupted{};
    if (!exporting::targetOfUnfinished(name).empty()) continue;
    if (const auto row = rowOf(directory / name)) {
      pending.write(*row);
      ++rows;
    }
  }
  pending.publish();
  return rows;
}

}  // namespace Zephly::processing
