// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The names of the files in a folder. Internal to the capture library and the tools.
///
///   std::error_code failed;
///   for (const std::string& name : fileNames(folder, failed)) ...
///
/// std::filesystem::directory_iterator ends the program when there is no memory for a name: GCC's
/// standard library reads it in a function that is noexcept.

#include <dirent.h>

#include <cerrno>
#include <filesystem>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace Zephly::capture {

/// In no order; without "." and "..". On an error, those before it. std::bad_alloc without memory.
inline std::vector<std::string> fileNames(const std::filesystem::path& folder,
                                          std::error_code& failed) {
  std::vector<std::string> names;
  const std::unique_ptr<DIR, int (*)(DIR*)> opened(::opendir(folder.c_str()), &::closedir);
  while (opened) {
    errno = 0;
    const dirent* const entry = ::readdir(opened.get());
    if (entry == nullptr) break;
    const std::string_view name(&entry->d_name[0]);
    if (name != "." && name != "..") names.emplace_back(name);
  }
  if (errno == ENOMEM) throw std::bad_alloc();
  failed.assign(errno, std::generic_category());
  return names;
}

}  // namespace Zephly::capture
