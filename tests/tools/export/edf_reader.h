// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Reads an EDF+ file as specified by the format (B. Kemp, J. Olivan 2003), independently of the
/// library that wrote it.
///
///   const EdfReader edf(path);
///   edf.signals[0].physical(3);

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace exporting_test {

struct ReadSignal {
  std::string label;
  std::string transducer;
  std::string dimension;
  std::string prefilter;
  double physicalMinimum = 0;
  double physicalMaximum = 0;
  int digitalMinimum = 0;
  int digitalMaximum = 0;
  int perRecord = 0;
  std::vector<int> digital;  ///< all samples

  double step() const;
  double physical(std::size_t index) const;
};

struct ReadAnnotation {
  double onset;
  std::optional<double> duration;
  std::string text;
};

class EdfReader {
 public:
  /// Throws std::runtime_error when the file violates the format.
  explicit EdfReader(const std::filesystem::path& path);

  std::string patient;
  std::string recording;
  std::string date;  ///< "01.03.26"
  std::string time;  ///< "09.30.00"
  std::string type;  ///< "EDF+C" or "EDF+D"
  long records = 0;
  std::vector<long> onsets;  ///< of the records, in seconds
  double recordDuration = 0;
  std::vector<ReadSignal> signals;  ///< without those of annotations
  std::vector<ReadAnnotation> annotations;

  const ReadSignal& signal(const std::string& label) const;

 private:
  void readAnnotations(const std::string& bytes);
};

}  // namespace exporting_test
