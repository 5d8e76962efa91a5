// SPDX-License-Identifier: MIT
#include <capture/writer.h>

#include <capture/codec.h>
#include <capture/text.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <exception>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace Zephly::capture {

namespace {

std::string cannotWrite(const std::filesystem::path& path, const std::string& reason) {
  return "cannot write " + printable(path.string()) + ": " + reason;
}

std::string system(int errorNumber) { return std::generic_category().message(errorNumber); }

[[noreturn]] void refuse(const std::filesystem::path& path, const std::string& reason) {
  throw std::runtime_error(cannotWrite(path, reason));
}

[[noreturn]] void closeAndRefuse(int descriptor, const std::filesystem::path& path,
                                 const std::string& reason) {
  ::close(descriptor);
  refuse(path, reason);
}

int openFile(const std::filesystem::path& path, bool overwrite) {
  constexpr mode_t permissions = 0666;  // restricted by the umask
  // O_NONBLOCK: to open a pipe without a reader would wait. No O_TRUNC: the file is truncated only
  // after it has been found to be a regular one that no other program is writing.
  const int flags =
      O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOCTTY | O_NONBLOCK | (overwrite ? 0 : O_EXCL);
  const int descriptor = ::open(path.c_str(), flags, permissions);
  if (descriptor < 0 && errno == EEXIST) refuse(path, "it exists already (see --force)");
  // ENXIO: a pipe without a reader.
  if (descriptor < 0 && errno == ENXIO) refuse(path, "not a regular file");
  if (descriptor < 0) refuse(path, system(errno));
  return descriptor;
}

// Makes the directory entry of the file durable. Errors are ignored: not every file system supports
// it.
void synchronizeDirectory(const std::filesystem::path& path) {
  const std::filesystem::path parent = path.parent_path();
  const int directory =
      ::open(parent.empty() ? "." : parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (directory < 0) return;
  static_cast<void>(::fsync(directory));
  ::close(directory);
}

int openEmpty(const std::filesystem::path& path, bool overwrite) {
  const int descriptor = openFile(path, overwrite);
  struct stat status {};
  if (::fstat(descriptor, &status) < 0) closeAndRefuse(descriptor, path, system(errno));
  if (!S_ISREG(status.st_mode)) closeAndRefuse(descriptor, path, "not a regular file");
  if (::flock(descriptor, LOCK_EX | LOCK_NB) < 0 && errno == EWOULDBLOCK) {
    closeAndRefuse(descriptor, path, "another program is writing it");
  }
  if (::ftruncate(descriptor, 0) < 0) closeAndRefuse(descriptor, path, system(errno));
  return descriptor;
}

}  // namespace

FileCalls FileCalls::system() { return {::write, ::ftruncate, ::fdatasync}; }

Writer::Writer(const std::filesystem::path& path, const Preamble& preamble, WriterOptions options)
    : path_(path), options_(std::move(options)), descriptor_(openEmpty(path, options_.overwrite)) {
  try {
    if (!writeWhole(encodePreamble(preamble))) throw std::runtime_error(*error_);
    synchronizeDirectory(path_);
    // The thread inherits a mask that blocks all signals: they are delivered to the other threads.
    sigset_t all{};
    sigset_t before{};
    ::sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &before);
    thread_ = std::thread([this] { synchronizeWhileOpen(); });
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
  } catch (...) {
    // A file that was created here is removed again.
    if (!options_.overwrite) ::unlink(path_.c_str());
    ::close(descriptor_);
    throw;
  }
}

Writer::~Writer() { static_cast<void>(close()); }

bool Writer::append(const Record& record) {
  if (closed_ || error()) return false;
  try {
    if (!writeWhole(encodeRecord(record, records_))) return false;
  } catch (const std::logic_error& unfit) {
    fail(cannotWrite(path_, unfit.what()));
    return false;
  }
  ++records_;
  return true;
}

bool Writer::writeWhole(const std::vector<std::uint8_t>& bytes) {
  std::size_t written = 0;
  while (written < bytes.size()) {
    const ssize_t count =
        options_.calls.write(descriptor_, bytes.data() + written, bytes.size() - written);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) {
      fail(cannotWrite(path_, system(count < 0 ? errno : EIO)));
      cutBack();
      return false;
    }
    written += static_cast<std::size_t>(count);
  }
  bytes_ += bytes.size();
  const std::lock_guard lock(mutex_);
  dirty_ = true;
  return true;
}

// Our reader would skip the incomplete record. It is removed for other readers.
void Writer::cutBack() {
  if (options_.calls.truncate(descriptor_, static_cast<off_t>(bytes_)) == 0) return;
  const std::string reason = system(errno);
  const std::lock_guard lock(mutex_);
  *error_ += "; nor can it be cut back to its last whole record: " + reason;
}

void Writer::fail(const std::string& reason) {
  const std::lock_guard lock(mutex_);
  if (!error_) error_ = reason;
}

std::optional<std::string> Writer::error() const {
  const std::lock_guard lock(mutex_);
  return error_;
}

std::optional<std::string> Writer::close() {
  if (closed_) return error();
  closed_ = true;
  if (thread_.joinable()) {
    {
      const std::lock_guard lock(mutex_);
      end_ = true;
    }
    ending_.notify_all();
    thread_.join();
  }
  if (::close(descriptor_) < 0) fail(cannotWrite(path_, system(errno)));
  return error();
}

void Writer::synchronizeWhileOpen() {
  std::unique_lock lock(mutex_);
  while (true) {
    // Synchronizes once more after the last record.
    const bool last = ending_.wait_for(lock, options_.synchronizeEvery, [this] { return end_; });
    if (std::exchange(dirty_, false)) {
      lock.unlock();
      const int failed = options_.calls.synchronize(descriptor_) < 0 ? errno : 0;
      lock.lock();
      // EINVAL: the file system does not support it.
      if (failed != 0 && failed != EINVAL && !error_) error_ = cannotWrite(path_, system(failed));
    }
    if (last) return;
  }
}

}  // namespace Zephly::capture
