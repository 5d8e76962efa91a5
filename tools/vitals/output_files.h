// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The files that `zephly vitals` writes: each appears complete or not at all.
///
///   OutputFiles files({.beats = "beats.csv"}, inputs);
///   // pass beats, breaths and seconds
///   files.publish();  // otherwise the destructor removes them

#include <tools/export/csv_file.h>
#include <tools/export/pending_file.h>
#include <tools/export/written_file.h>
#include <tools/vitals/mit_annotations.h>
#include <vitals/vitals.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Zephly::recorders {

struct OutputOptions {
  std::optional<std::filesystem::path> beats = std::nullopt;
  std::optional<std::filesystem::path> breaths = std::nullopt;
  std::optional<std::filesystem::path> vitals = std::nullopt;
  std::optional<std::filesystem::path> rr = std::nullopt;
  std::optional<std::filesystem::path> annotations = std::nullopt;
  exporting::Existing existing = exporting::Existing::refused;

  bool any() const { return beats || breaths || vitals || rr || annotations; }
};

/// How times are counted in the annotations.
struct AnnotationClock {
  double rate = 0;             ///< samples per second
  bool isOfTheRecord = false;  ///< a WFDB header beside the file states it
  vitals::Time begin{};        ///< the time of sample 0
};

class OutputFiles final : public vitals::Receiver {
 public:
  /// Throws std::runtime_error, one line, when one of them cannot be created, is one of `inputs`,
  /// or is named twice.
  OutputFiles(const OutputOptions& options, const std::vector<std::filesystem::path>& inputs,
              const AnnotationClock& clock);
  ~OutputFiles() override;

  void beat(const vitals::Beat& beat) override;
  void breath(const vitals::Breath& breath) override;
  void second(const vitals::Second& second) override;

  /// Writes all of them through to the disk, then gives them their names. Throws
  /// std::runtime_error.
  std::vector<exporting::WrittenFile> publish();

 private:
  struct Table;

  void takeInterval(const vitals::Beat& beat);

  AnnotationClock clock_;
  std::unique_ptr<Table> beats_;
  std::unique_ptr<Table> breaths_;
  std::unique_ptr<Table> vitals_;
  std::unique_ptr<exporting::PendingFile> rr_;
  std::unique_ptr<exporting::PendingFile> annotations_;
  std::string rrText_;
  std::optional<exporting::WrittenFile::Span> beatSpan_;
  MitAnnotations beatCodes_;
};

}  // namespace Zephly::recorders
