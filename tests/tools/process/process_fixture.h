// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// For tests of `zephly process`: two captures of the simulated strap, and what is in a directory.

#include <tests/support/captures.h>
#include <tests/support/process.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace process_test {

namespace fs = std::filesystem;

inline Finished process(std::vector<std::string> arguments,
                        const std::vector<std::string>& environment = {}) {
  arguments.insert(arguments.begin(), "process");
  return Process(arguments, Process::Output::pipe, environment).finish();
}

inline captures::Bytes bytesOf(const fs::path& file) { return captures::contentOf(file); }

inline std::string textOf(const fs::path& file) {
  const captures::Bytes bytes = bytesOf(file);
  return {bytes.begin(), bytes.end()};
}

inline std::vector<std::string> namesBelow(const fs::path& folder) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(folder)) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

/// Every file below a folder, by its path in it.
inline std::map<std::string, captures::Bytes> contentsBelow(const fs::path& folder) {
  std::map<std::string, captures::Bytes> contents;
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    if (!entry.is_regular_file()) continue;
    contents[fs::relative(entry.path(), folder).string()] = bytesOf(entry.path());
  }
  return contents;
}

class Fixture : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    folder_ = std::make_unique<captures::ScratchDirectory>();
    record("walk", "40");
    record("rest", "5");
  }
  static void TearDownTestSuite() { folder_.reset(); }

  static fs::path capture(const std::string& name) { return *folder_ / (name + ".zcap"); }
  fs::path result(const std::string& name) const { return out_ / name; }

  captures::ScratchDirectory scratch_;
  fs::path out_ = scratch_ / "results";

 private:
  static void record(const std::string& name, const std::string& seconds) {
    const Finished made = runProgram(
        {"record", capture(name), "--simulated", "--duration", seconds, "--speed", "1000"});
    ASSERT_EQ(made.exitCode, 0) << made.errors;
  }

  static inline std::unique_ptr<captures::ScratchDirectory> folder_;
};

}  // namespace process_test
