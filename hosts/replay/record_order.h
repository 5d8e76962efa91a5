#pragma once
/// @file
/// The records of a capture in the order in which a session had them: from the first to the one
/// that ends it, no time before the last. What a file says otherwise is damage.
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

class RecordOrder {
 public:
  /// Throws capture::CaptureError for what is no capture.
  explicit RecordOrder(std::filesystem::path file);

  const capture::Preamble& preamble() const { return reader_.preamble(); }

  /// The next record; empty after the one that ends the session. Throws capture::CaptureError for
  /// damage, for a file that stops before that, and for a time that runs backwards or that no
  /// session reaches. Nothing is to be asked for after that.
  std::optional<capture::Record> next();

  /// What is to be said when the record that next() has returned last makes no sense.
  capture::CaptureError damaged(const std::string& what) const;

  /// What is to be said of a capture that has been played, in one line: empty when the session had
  /// asked for all of it.
  std::optional<std::string> complaint(const Divergences& divergences) const;

 private:
  std::filesystem::path file_;
  capture::Reader reader_;
  std::uint64_t offset_ = 0;         // of the last record
  std::chrono::nanoseconds time_{};  // of the last record
};

}  // namespace Zephly::replay
