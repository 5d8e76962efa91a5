// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// What an output is on the disk until it is complete: a file or a directory beside it, such as
/// "walk.edf.part-4711" (4711: the process), with a lock (flock) that ends with the program.
///
///   sweepUnfinished(target, std::filesystem::file_type::regular, remove);
///   Unfinished unfinished = createUnfinished(path, target, create);
///   // write, then rename unfinished.name to `target`
///   synchronizeDirectory(target.parent_path());
///
/// One without a lock was left by a program that was killed.

#include <hosts/main_queue/file_descriptor.h>

#include <filesystem>
#include <functional>
#include <string>
#include <string_view>

namespace Zephly::exporting {

struct Unfinished {
  std::filesystem::path name;
  main_queue::FileDescriptor descriptor;  ///< holds the lock
};

/// Creates one beside `target`. `create` gets a name and returns a descriptor, or -1 with errno,
/// which is EEXIST when the name is taken. Throws std::runtime_error (see tools::cannotWrite) about
/// `path`, as the user has named it.
Unfinished createUnfinished(const std::filesystem::path& path, const std::filesystem::path& target,
                            const std::function<int(const std::filesystem::path&)>& create);

/// The name of the target of an unfinished one: "walk" of "walk.part-4711"; empty for other names.
std::string targetOfUnfinished(const std::string& name);

/// Calls `remove` for what killed programs have left beside `target`. Nothing is removed where the
/// file system has no locks.
void sweepUnfinished(const std::filesystem::path& target, std::filesystem::file_type type,
                     const std::function<void(const std::filesystem::path&)>& remove);

/// Writes all of `bytes`. Throws std::runtime_error (see tools::cannotWrite) about `path`.
void writeAll(int descriptor, std::string_view bytes, const std::filesystem::path& path);

/// Makes the names in a directory durable; "" is the current one. Not every file system supports
/// it: errors are ignored.
void synchronizeDirectory(const std::filesystem::path& directory);

}  // namespace Zephly::exporting
