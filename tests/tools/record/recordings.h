// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Arguments of recordings, and their contents.
///
///   EXPECT_EQ(runProgram(record("walk.zcap", 60)).exitCode, 0);
///   EXPECT_EQ(inspected("walk.zcap")["ended"], true);

#include <tests/support/process.h>

#include <nlohmann/json.hpp>
#include <filesystem>
#include <string>
#include <vector>

namespace recordings {

using Arguments = std::vector<std::string>;

// A simulated session of `seconds` at maximum speed.
inline Arguments record(const std::filesystem::path& file, int seconds,
                        const Arguments& more = {}) {
  Arguments arguments = {"record", file.string(), "--simulated",          "--speed",
                         "2000",   "--duration",  std::to_string(seconds)};
  arguments.insert(arguments.end(), more.begin(), more.end());
  return arguments;
}

inline nlohmann::json inspected(const std::filesystem::path& file) {
  return nlohmann::json::parse(runProgram({"inspect", file.string(), "--json"}).output);
}

// No message bus is at this address, so no strap can be found.
inline Arguments recordWithoutBluetooth(const std::filesystem::path& file) {
  return {"record", file.string(), "--bus", "unix:path=/nonexistent", "--duration", "0.2"};
}

}  // namespace recordings
