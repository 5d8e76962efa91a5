// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Writes a capture while the session runs. After a crash of the program the file holds every
/// record up to the one that was being written.
///
///   Writer writer("walk.zcap", preamble);  // throws when the file cannot be created
///   writer.append(record);                 // one write(2)
///   writer.append({stamp, Ended{}});
///   if (const auto reason = writer.close()) report(*reason);
///
/// Each record is passed to the system by one call, so that it survives the end of the program.
/// Once a second a thread of the writer synchronizes the file with the disk (fdatasync), so that it
/// also survives a power failure; the caller never waits for that.
///
/// An existing file is replaced only when something of a link has been recorded: until then, and
/// until that is safe on the disk, the new file lies beside it ("walk.zcap.new-4711"). A recording
/// in which no strap was connected leaves the old file as it was.
///
/// A call that was interrupted is repeated. When a record cannot be written (the disk is full, the
/// file reaches a limit, the medium fails), the file is truncated to its last whole record, and
/// append() does nothing from then on. The program must ignore SIGXFSZ, or a limit of the file's
/// size ends it instead.
///
/// All functions must be called from one thread.

#include <capture/file_lock.h>
#include <capture/record.h>
#include <zephly/platform/export.h>

#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace Zephly::capture {

/// The system calls of the writer: a seam for tests. Each returns -1 and sets errno when it fails,
/// as the functions of the same names do.
struct ZEPHLY_EXPORT FileCalls {
  std::function<ssize_t(int, const void*, std::size_t)> write;
  std::function<int(int, off_t)> truncate;
  std::function<int(int)> synchronize;  ///< called by the writer's thread and by close()

  /// The functions of the system.
  static FileCalls system();
};

/// How a Writer writes.
struct WriterOptions {
  bool overwrite = false;  ///< replace an existing regular file, see above
  std::chrono::milliseconds synchronizeEvery{1000};
  FileCalls calls = FileCalls::system();
};

/// Writes one capture.
class ZEPHLY_EXPORT Writer {
 public:
  /// Creates the file and writes its head. Throws std::runtime_error with one line that names the
  /// file when it exists already (and `overwrite` is not set), is not a regular file, is being
  /// written by another program or cannot be written.
  Writer(const std::filesystem::path& path, const Preamble& preamble, WriterOptions options = {});
  Writer(const Writer&) = delete;
  Writer& operator=(const Writer&) = delete;
  /// Calls close() and ignores its result.
  ~Writer();

  /// Whether the record was written. False after a failure, and for every later record.
  bool append(const Record& record);

  /// The first failure, in one line that names the file; empty when there was none. Also reports a
  /// failure of the writer's thread.
  std::optional<std::string> error() const;

  /// Synchronizes and closes the file and returns error(). A second call only returns error().
  std::optional<std::string> close();

  /// Closes the file and removes it; an old file stays. Afterwards nothing can be called.
  void discard();

  /// Whether the file has its name: false while an old file is still there under it.
  bool isInPlace() const;
  /// Whether no synchronization with the disk has failed.
  bool isSynchronized() const;

  std::uint64_t records() const { return records_; }
  /// The size of the file up to the end of the last whole record.
  std::uint64_t bytes() const { return bytes_; }

 private:
  void open();
  bool writeWhole(const std::vector<std::uint8_t>& bytes);
  void cutBack();
  void fail(const std::string& reason);
  void startThread();
  void endThread();
  int synchronize() const;
  int replaceOld() const;
  std::string synchronizationError(int errorNumber);
  void synchronizeWhileOpen();

  const std::filesystem::path path_;
  const WriterOptions options_;
  int descriptor_ = -1;
  std::filesystem::path name_;        // of the file until it replaces the old one
  std::optional<FileLock> replaced_;  // on the old one
  bool closed_ = false;
  std::uint64_t records_ = 0;
  std::uint64_t bytes_ = 0;

  mutable std::mutex mutex_;  // of the members below, which the thread uses too
  std::condition_variable ending_;
  bool end_ = false;
  bool dirty_ = false;
  bool replaces_ = false;        // and has not yet done so
  bool worthReplacing_ = false;  // the file has a record of a link
  bool synchronized_ = true;
  std::optional<std::string> error_;
  std::string outOfMemory_;  // the text of such an error, which must not need memory then
  std::thread thread_;       // last: it uses all the others
};

}  // namespace Zephly::capture
