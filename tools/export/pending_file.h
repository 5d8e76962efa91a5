// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A file that appears complete or not at all: written under a temporary name in the same directory
/// and renamed when it is complete.
///
///   PendingFile file("walk.edf", Existing::refused);
///   write(file.temporary());
///   file.publish();  // otherwise the destructor removes it
///
/// A program that is killed leaves the unfinished one, "walk.edf.part-4711", behind. The next
/// PendingFile of the same name removes it.

#include <tools/common/output_path.h>
#include <tools/export/unfinished.h>

#include <filesystem>
#include <string_view>

namespace Zephly::exporting {

/// What happens to an output that exists already.
enum class Existing { refused, replaced };

/// The reason why an existing output is not replaced.
inline constexpr const char* existsAlready = "it exists already (see --force)";
/// The reason why a file is not replaced that another program has locked.
inline constexpr const char* inUse = "another program is writing it";

using tools::cannotWrite;

class PendingFile {
 public:
  /// Creates the unfinished file, empty. A symbolic link stays a link: its target is replaced.
  /// Throws std::runtime_error (see cannotWrite) when that cannot be, or when `path` is there and
  /// may not be replaced, is no regular file, or is being recorded by another program.
  PendingFile(std::filesystem::path path, Existing existing);
  PendingFile(const PendingFile&) = delete;
  PendingFile& operator=(const PendingFile&) = delete;
  /// Removes the unfinished file.
  ~PendingFile();

  const std::filesystem::path& path() const { return path_; }
  /// The unfinished file, to be opened by name.
  const std::filesystem::path& temporary() const { return unfinished_.name; }

  /// Appends to the unfinished file, in place of opening it by name. Throws as the constructor
  /// does.
  void write(std::string_view bytes);

  /// Writes it through to the disk and gives it its name. Once. Throws as the constructor does.
  void publish();

 private:
  void checkTarget() const;

  std::filesystem::path path_;
  std::filesystem::path target_;
  Existing existing_;
  Unfinished unfinished_;
  bool published_ = false;
};

}  // namespace Zephly::exporting
