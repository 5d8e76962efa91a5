// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Reads a capture from beginning to end, also when the file is cut or damaged.
///
/// A recording that was continued in other files ("walk.2.zcap") is read to its end when its first
/// file is given: each file that follows is found by its name beside the first one and by its head.
///
///   Reader reader("walk.zcap");
///   show(reader.preamble());
///   while (true) {
///     try {
///       const std::optional<Record> record = reader.next();
///       if (!record) break;
///       use(*record);
///     } catch (const CaptureError& error) {
///       report(error);  // position and reason; next() continues after the damage
///     }
///   }
///
/// Holds one record at a time. Memory is limited to a few MiB, whatever lengths a damaged file
/// states. Not thread-safe; different readers may be used on different threads.

#include <capture/record.h>
#include <zephly/platform/export.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Zephly::capture {

class CaptureFile;
struct RecordHeader;

/// Reads one capture, from its beginning to its end.
class ZEPHLY_EXPORT Reader {
 public:
  /// Reads the head. Throws CaptureError of kind `unusable` for a directory, a pipe, an empty file,
  /// a file of another format or of a later major version and a file that cannot be opened, and of
  /// kind `cut` or `damaged` for such a head.
  explicit Reader(const std::filesystem::path& path);
  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;
  ~Reader();

  const Preamble& preamble() const { return preamble_; }

  /// The next record; empty at the end of the file, also when the Ended record is missing (see
  /// ended()). Records of unknown types are skipped.
  ///
  /// Throws CaptureError once for each damage. A record whose checksum is wrong is never returned:
  /// the next call goes on with the next valid record; after CaptureError::Kind::cut every call
  /// returns empty. Damage is also: records that are missing (by their sequence), an invalid
  /// content, bytes behind the Ended record.
  std::optional<Record> next();

  /// Whether the Ended record has been read.
  bool ended() const { return ended_; }
  /// The file that is being read: the given one, or one that continues it.
  const std::filesystem::path& file() const;
  /// The given file and those that continue it, also where the recording has lost one in between.
  std::vector<std::filesystem::path> files() const;
  /// The number of files of the recording so far.
  std::uint32_t parts() const { return parts_; }
  /// Records that were lost between the files so far, because nothing could be written.
  std::uint64_t lostRecords() const { return lostRecords_; }
  /// Where the next record is expected, in bytes from the beginning of file(). After a record,
  /// its end; after damage, the first valid byte.
  std::uint64_t offset() const { return offset_; }
  /// Valid records so far, with those of unknown types.
  std::uint64_t wholeRecords() const { return wholeRecords_; }
  /// Of those, the records of unknown types, which a later minor version may write.
  std::uint64_t unknownRecords() const { return unknownRecords_; }

 private:
  void readHead();
  std::optional<Record> nextOfFile();
  bool openNextPart();
  /// The reader of a file that continues this one; null when `path` is none.
  std::unique_ptr<Reader> partAt(const std::filesystem::path& path) const;
  RecordHeader readHeader();
  void checkSequence(const RecordHeader& header);
  std::optional<Record> readRecord(const RecordHeader& header);
  [[noreturn]] void leaveDamage();
  [[noreturn]] void cut(std::uint64_t offset);
  [[noreturn]] void damaged(std::uint64_t offset, const std::string& what) const;

  std::filesystem::path path_;
  std::unique_ptr<CaptureFile> file_;
  Preamble preamble_;
  std::uint32_t parts_ = 1;
  std::uint64_t lostRecords_ = 0;
  std::uint64_t offset_ = 0;
  std::uint64_t expected_ = 0;  // sequence of the next record
  std::uint64_t wholeRecords_ = 0;
  std::uint64_t unknownRecords_ = 0;
  bool ended_ = false;
  bool over_ = false;
};

}  // namespace Zephly::capture
