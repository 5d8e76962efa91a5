// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A file that appears complete or not at all: written under a temporary name in the same directory
/// and renamed when it is complete.
///
///   PendingFile file("walk.csv", Existing::refused);
///   file.write("time,value\n");
///   file.publish();  // otherwise the destructor removes it
///
/// A program that is killed leaves the unfinished one, "walk.csv.part-4711", behind.

#include <hosts/main_queue/file_descriptor.h>

#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>

namespace Zephly::exporting {

/// What happens to a regular file that exists already.
enum class Existing { refused, replaced };

/// One line that names the file and says why it cannot be written.
std::runtime_error cannotWrite(const std::filesystem::path& file, const std::string& reason);
std::runtime_error cannotWrite(const std::filesystem::path& file, int errorNumber);

class PendingFile {
 public:
  /// Creates the unfinished file, empty. Throws std::runtime_error (see cannotWrite) when that
  /// cannot be, or when `path` is there and may not be replaced or is no regular file.
  PendingFile(std::filesystem::path path, Existing existing);
  PendingFile(const PendingFile&) = delete;
  PendingFile& operator=(const PendingFile&) = delete;
  /// Removes the unfinished file.
  ~PendingFile();

  const std::filesystem::path& path() const { return path_; }
  /// The unfinished file, to be opened by name.
  const std::filesystem::path& temporary() const { return temporary_; }
  /// Adds to it. Throws as the constructor does.
  void write(std::string_view text);

  /// Writes it through to the disk and gives it its name. Once. Throws as the constructor does.
  void publish();

 private:
  void create();

  std::filesystem::path path_;
  std::filesystem::path temporary_;
  Existing existing_;
  main_queue::FileDescriptor file_;
  bool published_ = false;
};

}  // namespace Zephly::exporting
