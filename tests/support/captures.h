// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Captures for tests: records of every kind, files in a temporary directory, and reading a file to
/// its end despite errors.
///
///   const ScratchDirectory scratch;
///   const Bytes bytes = captureOf(someOfEach());
///   const ReadBack back = readBack(scratch.file("walk.zcap", bytes));

#include <capture/capture_error.h>
#include <capture/reader.h>
#include <capture/record.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace captures {

using Bytes = std::vector<std::uint8_t>;

/// A directory that is removed on destruction.
class ScratchDirectory {
 public:
  ScratchDirectory();
  ScratchDirectory(const ScratchDirectory&) = delete;
  ScratchDirectory& operator=(const ScratchDirectory&) = delete;
  ~ScratchDirectory();

  const std::filesystem::path& path() const { return path_; }
  std::filesystem::path operator/(const std::string& name) const { return path_ / name; }
  /// Writes a file and returns its path.
  std::filesystem::path file(const std::string& name, const Bytes& content) const;

 private:
  std::filesystem::path path_;
};

Bytes contentOf(const std::filesystem::path& file);

Zephly::capture::Preamble somePreamble();
/// Two records of each kind, without and with all optional fields; Ended last.
std::vector<Zephly::capture::Record> someOfEach();
/// Random records except Ended.
std::vector<Zephly::capture::Record> randomRecords(std::mt19937_64& random, std::size_t count);

/// A whole file. The records are numbered from 0.
Bytes captureOf(const std::vector<Zephly::capture::Record>& records);
/// Where each record of captureOf() begins; the size of the file last.
std::vector<std::size_t> beginningsOf(const std::vector<Zephly::capture::Record>& records);

/// All results of a reader.
struct ReadBack {
  std::optional<Zephly::capture::Preamble> preamble;  ///< empty: the constructor threw
  std::vector<Zephly::capture::Record> records;
  std::vector<Zephly::capture::CaptureError> errors;
  bool ended = false;
};

ReadBack readBack(const std::filesystem::path& file);

}  // namespace captures
