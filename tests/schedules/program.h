// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Runs a command of `zephly` inside this process, with its standard output in a pipe that is read
/// when the test says so.

#include <hosts/main_queue/file_descriptor.h>

#include <filesystem>
#include <string>
#include <vector>

namespace schedules {

struct ProgramResult {
  int exitCode = 0;
  std::string errors;              ///< the standard error
  std::vector<std::string> lines;  ///< of the standard output
};

class Program {
 public:
  Program(const std::filesystem::path& folder, std::vector<std::string> arguments);
  /// To its end. Once.
  ProgramResult run();
  /// Takes what is in the pipe.
  void read();

 private:
  std::filesystem::path errors_;
  std::vector<std::string> arguments_;
  Zephly::main_queue::FileDescriptor output_;
  std::string text_;
};

}  // namespace schedules
