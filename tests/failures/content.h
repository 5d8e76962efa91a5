// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The content of a file, empty when it cannot be read.

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace failures {

inline std::string contentOf(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace failures
