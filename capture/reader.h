#pragma once
/// @file
/// Reads a capture from its beginning to its end, whatever has happened to the file.
///
///   Reader reader("walk.zcap");
///   show(reader.preamble());
///   while (true) {
///     try {
///       const std::optional<Record> record = reader.next();
///       if (!record) break;
///       use(*record);
///     } catch (const CaptureError& error) {
///       tell(error);  // where and what; next() goes on behind the damage
///     }
///   }
///
/// Holds one record at a time: what the file says of its own lengths never makes it need more than
/// a few MiB. Not thread-safe.

#include <capture/capture_file.h>
#include <capture/codec.h>
#include <capture/record.h>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

namespace Zephly::capture {

class Reader {
 public:
  /// Reads the head. Throws CaptureError (unusable, cut or damaged; there is then no reader) for
  /// what is no capture: a directory, a pipe, no bytes, a file of another kind or of a later
  /// version, a head that is cut or damaged.
  explicit Reader(const std::filesystem::path& path);

  const Preamble& preamble() const { return preamble_; }

  /// The next record; empty at the end of the file, also where that is no orderly end (see
  /// ended()). Records of a type that this program does not know are passed over.
  ///
  /// Throws CaptureError for damage, each once. A record whose checksum is wrong is never
  /// returned: called again, it goes on with the next one that can be found; after
  /// CaptureError::Kind::cut it is empty for good. Also damage: records that are missing (by their
  /// sequence), a content that makes no sense, bytes behind the Ended record.
  std::optional<Record> next();

  /// Whether the Ended record has been read.
  bool ended() const { return ended_; }
  /// Where the next record is looked for: bytes from the beginning of the file. After a record, its
  /// end; after damage, the first byte that is in order again.
  std::uint64_t offset() const { return offset_; }
  /// Whole records so far, with those of unknown types.
  std::uint64_t wholeRecords() const { return wholeRecords_; }
  /// Of those, the records of types that this program does not know.
  std::uint64_t unknownRecords() const { return unknownRecords_; }

 private:
  void readHead();
  RecordHeader readHeader();
  void checkSequence(const RecordHeader& header);
  std::optional<Record> readRecord(const RecordHeader& header);
  [[noreturn]] void leaveDamage();
  [[noreturn]] void cut(std::uint64_t offset);
  [[noreturn]] void damaged(std::uint64_t offset, const std::string& what) const;

  CaptureFile file_;
  Preamble preamble_;
  std::uint64_t offset_ = 0;
  std::uint64_t expected_ = 0;  // sequence of the next record
  std::uint64_t wholeRecords_ = 0;
  std::uint64_t unknownRecords_ = 0;
  bool ended_ = false;
  bool over_ = false;
};

}  // namespace Zephly::capture
