// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The file that receives every diagnostic line of a session: those that the kit writes on its
/// console, by taking the console's place, and those of the host.
///
///   DiagnosticsFile file("lines.txt", {.inputs = {"walk.zcap"}});
///   const hosts::Observation observation(*receiver, &file);
///   file.writeLine("Bluetooth: adapter hci0 is ready.");
///   if (const auto error = file.finish()) complain(*error);

#include <capture/file_lock.h>
#include <hosts/main_queue/file_descriptor.h>
#include <tools/common/output.h>

#include <filesystem>
#include <optional>
#include <streambuf>
#include <string>
#include <string_view>
#include <vector>

namespace Zephly::monitor {

struct DiagnosticsOptions {
  bool overwrite = false;                          ///< replaces an existing file
  std::vector<std::filesystem::path> inputs = {};  ///< files that it must not be
};

/// An existing file is replaced by the first lines that are written: it is not lost when the
/// session cannot begin or the disk is full.
class DiagnosticsFile final : public std::streambuf {
 public:
  /// Creates the file. Throws std::runtime_error, one line with the path, when it cannot be
  /// created, exists already, is one of the inputs, or is not a regular file.
  explicit DiagnosticsFile(const std::filesystem::path& path, const DiagnosticsOptions& options);
  DiagnosticsFile(const DiagnosticsFile&) = delete;
  DiagnosticsFile& operator=(const DiagnosticsFile&) = delete;
  /// Without lines and without finish(), no file is left.
  ~DiagnosticsFile() override;

  void writeLine(std::string_view line);
  /// Writes buffered lines.
  void flush();
  /// The last call: writes buffered lines. Returns why the file is incomplete, one line with the
  /// path; empty when it is complete.
  std::optional<std::string> finish();

 protected:
  int_type overflow(int_type character) override;
  std::streamsize xsputn(const char* text, std::streamsize count) override;

 private:
  void publish();

  std::filesystem::path target_;
  // Beside an existing file until publish() renames it; else the target itself.
  std::filesystem::path place_;
  std::optional<capture::FileLock> lock_;  // on the file that is replaced
  main_queue::FileDescriptor file_;
  std::optional<tools::Output> output_;
  bool published_ = false;   // lines are in the target, or it is finished
  bool incomplete_ = false;  // there was no memory for some of the text
  std::optional<std::string> renameError_;
};

}  // namespace Zephly::monitor
