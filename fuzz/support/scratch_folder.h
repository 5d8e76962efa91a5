// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A folder for the files of one input, for readers that need names. Removed when the program ends
/// in an orderly way.
///
///   const auto path = ScratchFolder::holding("a.edf", bytes);

#include <fuzz/support/require.h>

#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>
#include <vector>

namespace fuzz {

class ScratchFolder {
 public:
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;
  ~ScratchFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }

  static const std::filesystem::path& path() {
    static const ScratchFolder folder;
    return folder.path_;
  }

  /// Replaces the file `name` and returns its path.
  static std::filesystem::path holding(const std::string& name,
                                       const std::vector<std::uint8_t>& bytes) {
    std::ofstream file(path() / name, std::ios::binary | std::ios::trunc);
    file.write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
    file.close();
    require(file.good(), "a file in the scratch folder");
    return path() / name;
  }

 private:
  ScratchFolder() : path_(std::filesystem::temp_directory_path()) {
    path_ /= "zephly-fuzz-" + std::to_string(::getpid());
    std::filesystem::create_directories(path_);
  }

  std::filesystem::path path_;
};

}  // namespace fuzz
