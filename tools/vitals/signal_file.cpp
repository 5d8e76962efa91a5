// SPDX-License-Identifier: MIT
#include <tools/vitals/signal_file.h>

#include <tools/vitals/csv_reader.h>
#include <tools/vitals/edf_reader.h>
#include <tools/vitals/input_error.h>
#include <tools/vitals/input_file.h>
#include <tools/vitals/wfdb_reader.h>

#include <algorithm>
#include <cmath>
#include <system_error>
#include <utility>

namespace Zephly::recorders {

namespace {

constexpr const char* headerSuffix = ".hea";

bool isThere(const std::filesystem::path& path) {
  std::error_code unknown;
  return std::filesystem::exists(path, unknown);
}

// "101" and "101.hea" name the record whose header is 101.hea.
std::optional<std::filesystem::path> wfdbHeaderOf(const std::filesystem::path& path) {
  if (path.extension() == headerSuffix) return path;
  std::filesystem::path named = path;
  named += headerSuffix;
  std::error_code unknown;
  if (path.has_filename() && !std::filesystem::is_regular_file(path, unknown) && isThere(named)) {
    return named;
  }
  return std::nullopt;
}

void refuseSamplesOfWfdb(const std::filesystem::path& path) {
  std::filesystem::path header = path;
  header.replace_extension(headerSuffix);
  if (path.extension() == ".dat" && isThere(header)) {
    throw InputError(path, "samples of a WFDB record: name its header, " + header.string());
  }
}

}  // namespace

vitals::Time timeOfSample(double index, double rate) {
  return vitals::Time(std::llround(index / rate * 1e9));
}

void mergeByTime(std::vector<SignalSample>& samples, const std::vector<std::size_t>& begins) {
  const auto at = [&](std::size_t index) {
    return samples.begin() + static_cast<std::ptrdiff_t>(index);
  };
  for (std::size_t run = 1; run < begins.size(); ++run) {
    const std::size_t end = run + 1 < begins.size() ? begins[run + 1] : samples.size();
    std::inplace_merge(
        samples.begin(), at(begins[run]), at(end),
        [](const SignalSample& a, const SignalSample& b) { return a.time < b.time; });
  }
}

std::unique_ptr<SignalFile> openSignalFile(const std::filesystem::path& path,
                                           const OpenOptions& options) {
  const auto refuseRate = [&] {
    if (options.rate) throw InputError(path, "--rate is for CSV; this file has its own rate");
  };
  if (const auto header = wfdbHeaderOf(path)) {
    refuseRate();
    return std::make_unique<WfdbReader>(*header);
  }
  refuseSamplesOfWfdb(path);
  InputFile file(path);
  if (EdfReader::isEdf(file)) {
    refuseRate();
    return std::make_unique<EdfReader>(std::move(file));
  }
  return std::make_unique<CsvReader>(std::move(file), options.rate);
}

}  // namespace Zephly::recorders
