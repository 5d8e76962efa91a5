// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Writes the result of one capture: a directory with its signals, events, summary and manifest,
/// which appears complete or not at all.
///
///   const ResultReport report = writeResult({.capture = "walk.zcap", .directory = "results/walk"},
///                                           [](double part) { show(part); });
///   for (const std::string& complaint : report.complaints) complain(complaint);
///
/// The bytes of all files depend on nothing but the capture, the forms and the version of the
/// program: not on the time, the machine, its time zone, or the names of folders.

#include <tools/process/process_options.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace Zephly::processing {

/// What ends a piece of work at Ctrl-C. Not an error.
struct Interrupted {};

struct ResultJob {
  std::filesystem::path capture;
  std::filesystem::path directory;
  Forms forms;
};

struct ResultReport {
  bool wasThere = false;  ///< a complete result of this capture was there and stays as it is
  /// The defects of the capture, one line each.
  std::vector<std::string> complaints;
};

/// The names of all files that a result can have, in whatever forms.
const std::vector<std::string>& resultNames();

/// Calls `progress` often with 0..1; what it throws ends the work and leaves no file. Throws
/// std::runtime_error, one line, when the file is not a capture or the result cannot be written.
///
/// On the main queue's thread, with no other host in use. One at a time in a process.
ResultReport writeResult(const ResultJob& job, const std::function<void(double part)>& progress);

}  // namespace Zephly::processing
