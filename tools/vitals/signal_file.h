// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A recording of other devices: some signals, of which one or two are read.
///
///   const auto file = openSignalFile("101.hea", {});
///   file->choose({0});                       // the first signal
///   std::vector<SignalSample> samples;
///   while (file->next(samples)) use(samples);
///
/// Each format has its class: EdfReader (edf_reader.h), WfdbReader (wfdb_reader.h), CsvReader
/// (csv_reader.h). A recording is read once, in pieces; errors are InputError. Not thread-safe.

#include <vitals/beat.h>

#include <cstddef>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Zephly::recorders {

/// No sample is later, in seconds: a 64-bit count of nanoseconds holds it, and dates since 1970
/// too.
inline constexpr double latestTime = 4e9;

struct SignalInfo {
  std::string name;
  std::string unit;  ///< empty: unknown
  double rate = 0;   ///< samples per second
};

/// A sample that is missing in the file is left out.
struct SignalSample {
  std::size_t signal = 0;  ///< its place in what was given to choose()
  vitals::Time time{};
  float value = 0;  ///< in the signal's unit, finite
};

class SignalFile {
 public:
  SignalFile() = default;
  SignalFile(const SignalFile&) = delete;
  SignalFile& operator=(const SignalFile&) = delete;
  virtual ~SignalFile() = default;

  virtual const char* format() const = 0;  ///< "WFDB"
  virtual const std::vector<SignalInfo>& signals() const = 0;
  /// Every file that is read: none of them may be replaced by an output.
  virtual std::vector<std::filesystem::path> files() const = 0;
  /// The rate in which annotations count time. Empty: the format has none of its own.
  virtual std::optional<double> annotationRate() const = 0;
  /// The time of the first sample. Annotations count from there.
  virtual vitals::Time begin() const { return {}; }
  /// How much has been read, from 0 to 1.
  virtual double part() const = 0;

  /// Which signals next() gives; once, before next().
  virtual void choose(const std::vector<std::size_t>& signals) = 0;
  /// The next samples, in order of time within each signal, and of all signals within a second.
  /// False at the end.
  virtual bool next(std::vector<SignalSample>& samples) = 0;
};

/// The time of sample `index` at `rate` samples per second.
vitals::Time timeOfSample(double index, double rate);

/// Merges runs that are in order of time each; `begins` are their first indices.
void mergeByTime(std::vector<SignalSample>& samples, const std::vector<std::size_t>& begins);

/// What a user may have to add to the file.
struct OpenOptions {
  std::optional<double> rate = std::nullopt;  ///< of a CSV file, in rows per second
};

/// Recognises EDF and BDF by their content, WFDB by the name of its header (with or without
/// ".hea"), and takes everything else for CSV. Throws InputError.
std::unique_ptr<SignalFile> openSignalFile(const std::filesystem::path& path,
                                           const OpenOptions& options);

}  // namespace Zephly::recorders
