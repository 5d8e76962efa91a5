#pragma once
/// @file
/// Writes a capture while the session runs, so that whatever ends the program leaves everything up
/// to the record in flight.
///
///   Writer writer("walk.zcap", preamble);  // throws when there is no such file to be had
///   writer.append(record);                 // one write(2)
///   writer.append({stamp, Ended{}});
///   if (const auto reason = writer.close()) complain(*reason);
///
/// Each record is handed to the system as a whole, which keeps it when the program is killed. Once
/// a second a thread of the writer's own makes the disk keep it too (fdatasync), for the day on
/// which the power fails; the caller never waits for that.
///
/// Where a record cannot be written (the disk is full, the file may not grow, the medium fails),
/// the file is cut back to its last whole record, and that was the last one: append() does nothing
/// from then on. The program must ignore SIGXFSZ for a limit of the file's size to become such an
/// error.
///
/// To be called from one thread.

#include <capture/record.h>

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

/// What the writer asks of the system: a seam for tests. Each returns -1 and sets errno when it
/// fails, as the functions of the same names do.
struct FileCalls {
  std::function<ssize_t(int, const void*, std::size_t)> write;
  std::function<int(int, off_t)> truncate;
  std::function<int(int)> synchronize;  ///< called by the writer's thread and by close()

  /// The system's own.
  static FileCalls system();
};

struct WriterOptions {
  bool overwrite = false;  ///< replace a regular file that is there already
  std::chrono::milliseconds synchronizeEvery{1000};
  FileCalls calls = FileCalls::system();
};

class Writer {
 public:
  /// Creates the file and writes its head. Throws std::runtime_error with one line that names the
  /// file when it is there already (and `overwrite` is not set), is no regular file, is being
  /// written by another program or cannot be written.
  Writer(const std::filesystem::path& path, const Preamble& preamble, WriterOptions options = {});
  Writer(const Writer&) = delete;
  Writer& operator=(const Writer&) = delete;
  /// close(), whatever comes of it.
  ~Writer();

  /// Whether the record is in the file now. False once something has failed, for good.
  bool append(const Record& record);

  /// The first thing that failed, one line that names the file; empty while all is well. A failure
  /// of the thread is seen here too.
  std::optional<std::string> error() const;

  /// Makes the disk keep everything and ends the writing; what error() says then. A second call
  /// does nothing more.
  std::optional<std::string> close();

  std::uint64_t records() const { return records_; }
  /// Size of the file: everything up to the end of the last whole record.
  std::uint64_t bytes() const { return bytes_; }

 private:
  bool writeWhole(const std::vector<std::uint8_t>& bytes);
  void cutBack();
  void fail(const std::string& reason);
  void synchronizeWhileOpen();

  const std::filesystem::path path_;
  const WriterOptions options_;
  const int descriptor_;
  bool closed_ = false;
  std::uint64_t records_ = 0;
  std::uint64_t bytes_ = 0;

  mutable std::mutex mutex_;  // of the members below, which the thread uses too
  std::condition_variable ending_;
  bool end_ = false;
  bool dirty_ = false;
  std::optional<std::string> error_;
  std::thread thread_;  // last: it uses all the others
};

}  // namespace Zephly::capture
