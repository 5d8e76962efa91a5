// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Reads the records of a capture strictly: every error of the file, a time that runs backwards and
/// a missing end are damage, after which nothing is read.
///
///   RecordOrder records("walk.zcap");
///   while (const auto record = records.next()) {
///     try {
///       host.deliver(*record);
///     } catch (const Contradiction& contradiction) {
///       throw records.damaged(contradiction.what());
///     }
///   }

#include <capture/capture_error.h>
#include <capture/reader.h>
#include <capture/record.h>
#include <hosts/replay/replay_host.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

namespace Zephly::replay {

/// The records of one capture, in order.
class RecordOrder {
 public:
  /// Throws capture::CaptureError when the file is not a capture, or continues another one.
  explicit RecordOrder(std::filesystem::path file);

  const capture::Preamble& preamble() const { return reader_.preamble(); }

  /// The next record; empty after the Ended record. Throws capture::CaptureError for damage, for a
  /// file without an Ended record, and for a time that runs backwards or is later than longestTime.
  /// Must not be called again after that.
  std::optional<capture::Record> next();

  /// How much of the file has been read, from 0 to 1.
  double part() const;

  /// The error for the record that next() returned last.
  capture::CaptureError damaged(const std::string& what) const;

  /// The given file.
  const std::filesystem::path& path() const { return path_; }
  /// The file of the recording that is being read.
  const std::filesystem::path& file() const { return reader_.file(); }

  /// The complaint, in one line without the name of the file, about a capture that has been played;
  /// empty when there were no divergences and no records were lost between the files of the
  /// recording.
  std::optional<std::string> complaint(const Divergences& divergences) const;

 private:
  std::filesystem::path path_;
  capture::Reader reader_;
  std::uintmax_t size_;              // of the file, when it was opened
  std::uint64_t offset_ = 0;         // of the last record
  std::chrono::nanoseconds time_{};  // of the last record
};

}  // namespace Zephly::replay
