// SPDX-License-Identifier: MIT
#include <tools/process/capture_result.h>

#include <capture/capture_error.h>
#include <capture/reader.h>
#include <capture/text.h>
#include <tools/common/output_path.h>
#include <tools/export/pending_directory.h>
#include <tools/process/manifest.h>
#include <tools/process/result_files.h>
#include <tools/vitals/capture_input.h>

#include <fcntl.h>
#include <unistd.h>

#include <nlohmann/json.hpp>
#include <algorithm>
#include <cerrno>
#include <optional>
#include <stdexcept>
#include <utility>

namespace Zephly::processing {

namespace {

using exporting::Existing;
using exporting::PendingDirectory;
using Progress = std::function<void(double part)>;

// The shares of the whole that the parts of the work take.
constexpr double digestEnd = 0.1;
constexpr double playEnd = 0.9;

std::string about(const std::filesystem::path& file, const std::string& what) {
  return capture::printable(file.string()) + ": " + what;
}

std::vector<NamedDigest> inputDigests(const std::vector<std::filesystem::path>& files,
                                      const Progress& progress) {
  std::uint64_t size = 0;
  for (const auto& file : files) size += std::filesystem::file_size(file);
  std::vector<NamedDigest> digests;
  std::uint64_t before = 0;
  for (const auto& file : files) {
    const FileDigest digest = digestOf(file, [&](std::uint64_t bytes) {
      const double part = static_cast<double>(before + bytes) / static_cast<double>(size);
      progress(digestEnd * std::min(part, 1.0));
    });
    before += digest.bytes;
    digests.push_back({.name = file.filename().string(), .digest = digest});
  }
  return digests;
}

// The same files may be in use by another process, which replaces or removes them meanwhile.
bool isComplete(const Manifest& wanted, const std::filesystem::path& directory,
                const Progress& progress) {
  const std::optional<Manifest> there = readManifest(directory);
  if (!there || there->program != wanted.program || there->forms != wanted.forms ||
      there->input != wanted.input || there->outputs.empty()) {
    return false;
  }
  try {
    return outputsHaveTheirDigests(*there, directory, [&] { progress(digestEnd); });
  } catch (const std::runtime_error&) {
    return false;
  }
}

// The damage in the summary of a result, as lines for people.
std::vector<std::string> complaintsOf(const ResultJob& job) {
  std::vector<std::string> complaints;
  const auto text = smallFile(job.directory / summaryName, longestSummary);
  const auto summary = nlohmann::json::parse(text.value_or(""), nullptr, false);
  if (!summary.is_object() || !summary.contains("damage")) return complaints;
  for (const nlohmann::json& damage : summary["damage"]) {
    const std::filesystem::path file =
        job.capture.parent_path() / damage.value("file", std::string());
    const std::string reason = damage.value("reason", std::string());
    const auto offset = damage.find("offset");
    complaints.push_back(offset != damage.end() && offset->is_number()
                             ? capture::CaptureError(capture::CaptureError::Kind::damaged, file,
                                                     offset->get<std::uint64_t>(), reason)
                                   .what()
                             : about(file, reason));
  }
  return complaints;
}

void writeText(const PendingDirectory& set, const char* name, const std::string& text) {
  const std::filesystem::path path = set.path() / name;
  const main_queue::FileDescriptor file(
      ::open((set.temporary() / name).c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
  if (file.get() < 0) throw tools::cannotWrite(path, errno);
  exporting::writeAll(file.get(), text, path);
  // EINVAL: the file system does not support fsync(); the data were written all the same.
  if (::fsync(file.get()) < 0 && errno != EINVAL) throw tools::cannotWrite(path, errno);
}

std::vector<NamedDigest> outputDigests(const PendingDirectory& set, const Progress& progress) {
  std::vector<NamedDigest> digests;
  for (const std::string& name : resultNames()) {
    const std::filesystem::path file = set.temporary() / name;
    if (!std::filesystem::exists(file)) continue;
    digests.push_back(
        {.name = name, .digest = digestOf(file, [&](std::uint64_t) { progress(playEnd); })});
  }
  return digests;
}

// A file of the capture with the name of an output would be replaced.
void refuseInputs(const ResultJob& job, const std::vector<std::filesystem::path>& files) {
  for (const std::string& name : resultNames()) {
    for (const std::filesystem::path& file : files) {
      if (tools::isSameFile(job.directory / name, file)) {
        throw tools::cannotWrite(job.directory, "the capture is there");
      }
    }
  }
}

}  // namespace

const std::vector<std::string>& resultNames() {
  static const std::vector<std::string> names = [] {
    std::vector<std::string> all = ResultFiles::names();
    all.insert(all.end(), {summaryName, manifestName});
    std::sort(all.begin(), all.end());
    return all;
  }();
  return names;
}

ResultReport writeResult(const ResultJob& job, const Progress& progress) {
  const std::vector<std::filesystem::path> files = capture::Reader(job.capture).files();
  refuseInputs(job, files);
  Manifest manifest = newManifest(job.forms, inputDigests(files, progress));
  PendingDirectory::sweep(job.directory, resultNames());
  if (isComplete(manifest, job.directory, progress)) {
    return {.wasThere = true, .complaints = complaintsOf(job)};
  }
  PendingDirectory set(job.directory, Existing::replaced, resultNames());
  ResultFiles results(job.capture, set.path(), set.temporary(), job.forms);
  recorders::CaptureInput input(job.capture, /*searchBack=*/false, &results);
  ResultReport report;
  report.complaints =
      input.play(results, [&](double part) { progress(digestEnd + (playEnd - digestEnd) * part); });
  // A result must not depend on it.
  const bool unread = std::any_of(input.defects().begin(), input.defects().end(),
                                  [](const replay::Defect& defect) { return defect.unread; });
  if (unread) throw std::runtime_error(report.complaints.front());
  for (std::size_t i = 0; i < files.size(); ++i) {
    if (std::filesystem::file_size(files[i]) != manifest.input[i].digest.bytes) {
      throw std::runtime_error(about(files[i], "it has changed while it was read"));
    }
  }
  recorders::AboutInput read = input.about();
  read.file = read.file.filename();
  writeText(set, summaryName, results.summary().json(read, input.defects()).text() + "\n");
  manifest.outputs = outputDigests(set, progress);
  writeText(set, manifestName, manifest.text());
  try {
    set.publish();
  } catch (const std::runtime_error&) {
    // Another process may have published the same result meanwhile.
    if (!isComplete(manifest, job.directory, progress)) throw;
  }
  return report;
}

}  // namespace Zephly::processing
