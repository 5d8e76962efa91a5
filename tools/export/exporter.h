#pragma once
/// @file
/// Writes a capture as files for other programs.
///
///   const auto complaints = exportCapture({.capture = "walk.zcap", .edf = "walk.edf"});
///   for (const std::string& complaint : complaints) std::cerr << complaint << '\n';
///
/// The capture is read twice: the clock of the strap is known when all of it has been seen.

#include <tools/export/pending_file.h>

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace Zephly::exporting {

struct ExportOptions {
  std::filesystem::path capture;
  std::optional<std::filesystem::path> edf = std::nullopt;  ///< a file
  std::optional<std::filesystem::path> csv = std::nullopt;  ///< a directory
  Existing existing = Existing::refused;
  /// Asked after each record: when true, exportCapture() ends with an error and leaves no file.
  std::function<bool()> interrupted = [] { return false; };
};

/// Throws std::runtime_error, one line, when a file that is asked for cannot be had. To be called
/// before a session is recorded that is to be exported at its end. Creates the directory.
void checkTargets(const ExportOptions& options);

/// Throws std::runtime_error, one line, when nothing was written: the capture is none, a file
/// cannot be written, it was interrupted. What is returned is wrong with the capture although the
/// files are there, with all that stands before the damage; one line each.
///
/// On the main queue's thread, without another host in use. The program must ignore SIGXFSZ for a
/// limit of a file's size to become an error.
std::vector<std::string> exportCapture(const ExportOptions& options);

}  // namespace Zephly::exporting
