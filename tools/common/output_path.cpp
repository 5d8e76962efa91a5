// SPDX-License-Identifier: MIT
#include <tools/common/output_path.h>

#include <capture/capture_error.h>
#include <capture/reader.h>
#include <capture/text.h>

#include <system_error>
#include <vector>

namespace Zephly::tools {

namespace {

// A capture and the files that continue it; `input` alone when it is none.
std::vector<std::filesystem::path> filesOfRecording(const std::filesystem::path& input) {
  try {
    return capture::Reader(input).files();
  } catch (const capture::CaptureError&) {
    return {input};
  }
}

}  // namespace

std::runtime_error cannotWrite(const std::filesystem::path& file, const std::string& reason) {
  return std::runtime_error("cannot write " + capture::printable(file.string()) + ": " + reason);
}

std::runtime_error cannotWrite(const std::filesystem::path& file, int errorNumber) {
  return cannotWrite(file, std::generic_category().message(errorNumber));
}

std::filesystem::path outputTarget(const std::filesystem::path& path) {
  std::error_code error;
  // An error of symlink_status is left to whoever creates the file.
  if (!std::filesystem::is_symlink(std::filesystem::symlink_status(path, error))) return path;
  std::filesystem::path target = std::filesystem::canonical(path, error);
  if (error == std::errc::no_such_file_or_directory) {
    throw cannotWrite(path, "a symbolic link to a file that does not exist");
  }
  if (error) throw cannotWrite(path, error.message());
  return target;
}

bool isSameFile(const std::filesystem::path& one, const std::filesystem::path& other) {
  std::error_code absent;
  return std::filesystem::equivalent(one, other, absent) ||
         std::filesystem::weakly_canonical(one, absent) ==
             std::filesystem::weakly_canonical(other, absent);
}

void refuseInput(const std::filesystem::path& output, const std::filesystem::path& input) {
  const std::string name = capture::printable(input.string());
  if (isSameFile(output, input)) throw cannotWrite(output, "it is the input " + name);
  for (const std::filesystem::path& file : filesOfRecording(input)) {
    if (isSameFile(output, file)) throw cannotWrite(output, "it continues the input " + name);
  }
}

}  // namespace Zephly::tools
