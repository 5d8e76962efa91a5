// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Writes a capture as files for other programs.
///
///   const auto complaints = exportCapture({.capture = "walk.zcap", .edf = "walk.edf"});
///   for (const std::string& complaint : complaints) std::cerr << complaint << '\n';
///
/// The strap's clock is known only after the whole capture was read.

#include <capture/record.h>
#include <tools/export/edf_file.h>
#include <tools/export/pending_file.h>
#include <tools/export/written_file.h>

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace Zephly::exporting {

/// A capture is read twice, and its outputs are written the second time.
enum class Stage { reading, writing };

struct ExportOptions {
  std::filesystem::path capture;
  std::optional<std::filesystem::path> edf = std::nullopt;  ///< a file
  EdfForm edfForm = {};
  std::optional<std::filesystem::path> csv = std::nullopt;  ///< a directory
  Existing existing = Existing::refused;
  /// Called after each record; `part` is 0..1.
  std::function<void(Stage stage, double part)> progress = [](Stage /*stage*/, double /*part*/) {};
  /// Called at the end for each file that was written.
  std::function<void(const WrittenFile&)> written = [](const WrittenFile& /*file*/) {};
  /// Asked after each record: when true, exportCapture() ends with an error and leaves no file.
  std::function<bool()> interrupted = [] { return false; };
};

/// Throws std::runtime_error, one line, when one of the outputs cannot be created, or would replace
/// the capture or the other output. `zephly record` calls it before it records, so that a wrong
/// path is reported at once. Leaves nothing.
void checkTargets(const ExportOptions& options);

/// Throws std::runtime_error, one line, when the capture began at a time for which there is no
/// date.
void checkBegin(const std::filesystem::path& capture, const capture::Preamble& preamble);

/// Throws std::runtime_error, one line, when the file is not a capture, an output cannot be
/// written, or it was interrupted. Each output appears complete or not at all. Otherwise returns
/// the defects of the capture, one line each; the files then hold everything before the damage.
///
/// On the main queue's thread, with no other host in use. The program must ignore SIGXFSZ, so that
/// a limit of the file size is reported as an error.
std::vector<std::string> exportCapture(const ExportOptions& options);

}  // namespace Zephly::exporting
