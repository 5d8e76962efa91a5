// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A directory of files that appears complete or not at all: written under a temporary name beside
/// its place and renamed when it is complete.
///
///   PendingDirectory set("walk", Existing::refused, {"ecg.csv", "events.csv"});
///   write(set.temporary() / "ecg.csv");
///   set.publish();  // otherwise the destructor removes it with its files
///
/// Its place may be free or an empty directory. A directory of an earlier set is replaced as a
/// whole on request. A directory that holds anything else is never replaced.
///
/// A program that is killed leaves the unfinished one, "walk.part-4711", behind. The next
/// PendingDirectory of the same name removes it.

#include <capture/file_lock.h>
#include <tools/export/pending_file.h>
#include <tools/export/unfinished.h>

#include <filesystem>
#include <string>
#include <vector>

namespace Zephly::exporting {

class PendingDirectory {
 public:
  /// Creates the unfinished directory, empty. `names`: of all files of the set. Throws
  /// std::runtime_error (see cannotWrite) when that cannot be, or when the place is not free and
  /// may not be replaced.
  PendingDirectory(std::filesystem::path path, Existing existing, std::vector<std::string> names);
  PendingDirectory(const PendingDirectory&) = delete;
  PendingDirectory& operator=(const PendingDirectory&) = delete;
  /// Removes the unfinished directory.
  ~PendingDirectory();

  /// Removes what killed programs have left of a set of these names that was to be at `path`.
  static void sweep(const std::filesystem::path& path, const std::vector<std::string>& names);

  const std::filesystem::path& path() const { return path_; }
  /// The unfinished directory, to put the files into.
  const std::filesystem::path& temporary() const { return unfinished_.name; }

  /// Gives it its name. Once, and after the files have been written through to the disk. Throws as
  /// the constructor does.
  void publish();

 private:
  enum class Place { free, emptyDirectory, earlierSet };

  /// Throws when the place may not be replaced.
  Place checkedPlace() const;
  std::vector<capture::FileLock> lockEarlierSet() const;
  bool isOfTheSet(const std::string& name) const;
  void keepPermissions() const;
  void exchange() const;

  std::filesystem::path path_;
  std::filesystem::path target_;
  Existing existing_;
  std::vector<std::string> names_;
  Unfinished unfinished_;
  bool published_ = false;
};

}  // namespace Zephly::exporting
