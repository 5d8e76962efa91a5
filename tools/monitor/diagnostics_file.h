// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The file that receives every diagnostic line of a session: those that the kit writes on its
/// console, by taking the console's place, and those of the host.
///
///   DiagnosticsFile file("lines.txt");
///   const hosts::Observation observation(*receiver, &file);
///   file.writeLine("Bluetooth: adapter hci0 is ready.");
///   if (const auto error = file.finish()) complain(*error);

#include <hosts/main_queue/file_descriptor.h>
#include <tools/common/output.h>

#include <filesystem>
#include <optional>
#include <streambuf>
#include <string>
#include <string_view>

namespace Zephly::monitor {

class DiagnosticsFile final : public std::streambuf {
 public:
  /// Creates the file, or empties it. Throws std::system_error when it cannot be opened.
  explicit DiagnosticsFile(const std::filesystem::path& path);

  void writeLine(std::string_view line);
  /// The last call: writes buffered lines. Returns why the file is incomplete; empty when it is
  /// complete.
  std::optional<std::string> finish();

 protected:
  int_type overflow(int_type character) override;
  std::streamsize xsputn(const char* text, std::streamsize count) override;

 private:
  main_queue::FileDescriptor file_;
  tools::Output output_;
};

}  // namespace Zephly::monitor
