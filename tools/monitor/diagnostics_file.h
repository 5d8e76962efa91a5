#pragma once
/// @file
/// The file that gets every diagnostic line of a session.
///
///   DiagnosticsFile file("lines.txt");
///   file.writeLine("didFailToConnectPeripheral");
///   if (const auto error = file.finish()) complain(*error);

#include <hosts/main_queue/file_descriptor.h>
#include <tools/common/output.h>

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace Zephly::monitor {

class DiagnosticsFile {
 public:
  /// Creates the file, or empties it. Throws std::system_error when it cannot be opened.
  explicit DiagnosticsFile(const std::filesystem::path& path);

  void writeLine(std::string_view line);
  /// The last call: writes buffered lines. Returns why the file is incomplete; empty when it is
  /// complete.
  std::optional<std::string> finish();

 private:
  main_queue::FileDescriptor file_;
  tools::Output output_;
};

}  // namespace Zephly::monitor
