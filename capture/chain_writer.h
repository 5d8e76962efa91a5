// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Writes a recording that survives a full disk: when a file cannot be written any more, it is left
/// as it is, and the recording continues in another file beside it ("walk.2.zcap").
///
///   ChainWriter writer("walk.zcap", preamble, {.written = [&](const Record& record) {...}});
///   writer.append(record);
///   if (writer.isWaiting()) writer.tryToContinue();  // every few seconds
///   if (const auto reason = writer.close()) report(*reason);
///
/// While nothing can be written, records are kept in memory and written first into the next file.
/// When that takes too much memory, notifications are dropped and counted; the records of the link
/// are kept, so that the files together can be played.
///
/// All functions must be called from one thread.

#include <capture/record.h>
#include <capture/writer.h>
#include <zephly/platform/export.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Zephly::capture {

/// How a ChainWriter writes.
struct ChainOptions {
  WriterOptions writer = {};  ///< of each file; later ones never replace a file
  /// Receives each record when it is in a file.
  std::function<void(const Record&)> written = [](const Record&) {};
  /// Notifications are dropped when the records in memory have this many bytes; all records, for
  /// good, at twice as many.
  std::size_t mostBytesInMemory = 8'388'608;
};

/// Writes one recording into one file or several.
class ZEPHLY_EXPORT ChainWriter {
 public:
  /// Creates the first file; throws as Writer does.
  ChainWriter(std::filesystem::path path, Preamble preamble, ChainOptions options = {});

  /// Writes the record, or keeps it in memory. When the file fails, continues in another one at
  /// once if that is possible.
  void append(const Record& record);
  /// Does nothing unless isWaiting().
  void tryToContinue();

  /// Whether nothing can be written at the moment.
  bool isWaiting() const { return waiting_; }
  /// The last failure, in one line that names the file; empty when there was none.
  const std::string& trouble() const { return trouble_; }

  /// Tries to continue once more, and closes all files. The result is empty when every record is in
  /// a file and on the disk; otherwise one line.
  std::optional<std::string> close();

  /// Whether an existing file under the first name was left as it was, see Writer.
  bool hasKeptOldFile() const { return writers_.empty() || !writers_.front()->isInPlace(); }
  /// The files, in order.
  const std::vector<std::filesystem::path>& files() const { return files_; }
  std::uint64_t records() const;
  std::uint64_t bytes() const;
  /// Records that are in no file and no longer in memory; after close() also those that were.
  std::uint64_t lost() const { return lost_; }
  /// Stamp::monotonic of the last record that is in a file.
  std::chrono::nanoseconds recordedUntil() const { return recordedUntil_; }

 private:
  void beginAgain();
  void keep(const Record& record);
  void noteWritten(const Record& record);
  std::unique_ptr<Writer> openPart(const std::filesystem::path& path);
  std::filesystem::path nextName() const;

  std::filesystem::path path_;
  Preamble preamble_;
  ChainOptions options_;
  // The first ones stay open, so that their locks protect them until the end of the recording.
  std::vector<std::unique_ptr<Writer>> writers_;
  std::vector<std::filesystem::path> files_;
  bool waiting_ = false;
  bool overflowed_ = false;   // records of the link were dropped: the recording cannot be continued
  std::deque<Record> early_;  // records of a first file that has not replaced the old one yet
  std::deque<Record> kept_;
  std::size_t notedBefore_ = 0;  // records at the front of kept_ that options_.written has received
  std::size_t keptBytes_ = 0;
  std::uint64_t lost_ = 0;
  std::uint64_t lostSinceLastFile_ = 0;
  std::chrono::nanoseconds recordedUntil_{};
  std::string trouble_;
};

}  // namespace Zephly::capture
