// SPDX-License-Identifier: MIT
// Runs a fuzz target on files without a fuzzer: the seeds and earlier findings, as a test for any
// compiler. Usage: PROGRAM FILE_OR_FOLDER...; a folder without files is an error.

#include <fuzz/support/target.h>

#include <algorithm>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

namespace {

std::vector<std::filesystem::path> filesOf(const std::filesystem::path& path) {
  if (!std::filesystem::is_directory(path)) return {path};
  std::vector<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::directory_iterator(path)) {
    if (entry.is_regular_file()) files.push_back(entry.path());
  }
  std::ranges::sort(files);
  return files;
}

bool run(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  // Printed first, so that an input that ends the program is the last one printed.
  std::cerr << path.string() << std::endl;
  const std::string bytes{std::istreambuf_iterator<char>(file), {}};
  if (!file) {
    std::cerr << "error: cannot be read\n";
    return false;
  }
  // A copy of exactly this size, so that a sanitizer detects reads beyond it.
  const std::vector<std::uint8_t> exact(bytes.begin(), bytes.end());
  static_cast<void>(LLVMFuzzerTestOneInput(exact.data(), exact.size()));
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  std::size_t count = 0;
  try {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    for (const std::string& argument : arguments) {
      const auto files = filesOf(argument);
      if (files.empty()) {
        std::cerr << "error: no input in " << argument << '\n';
        return 1;
      }
      for (const auto& file : files) {
        if (!run(file)) return 1;
        ++count;
      }
    }
  } catch (const std::exception& error) {
    std::cerr << "error: " << error.what() << '\n';
    return 1;
  }
  if (count == 0) {
    std::cerr << "error: no input\n";
    return 1;
  }
  std::cerr << count << " inputs run\n";
  return 0;
}
