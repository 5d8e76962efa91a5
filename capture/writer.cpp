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
#include <new>
#include <stdexcept>
#include <system_error>
#include <utility>
#include <variant>

namespace Zephly::capture {

namespace {

std::string cannotWrite(const std::filesystem::path& path, const std::string& reason) {
  return "cannot write " + printable(path.string()) + ": " + reason;
}

std::string system(int errorNumber) { return std::generic_category().message(errorNumber); }

[[noreturn]] void refuse(const std::filesystem::path& path, const std::string& reason) {
  throw std::runtime_error(cannotWrite(path, reason));
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

constexpr mode_t permissions = 0666;  // restricted by the umask

// Empty when something has that name already.
std::optional<int> create(const std::filesystem::path& path) {
  const int descriptor =
      ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_APPEND | O_CLOEXEC, permissions);
  if (descriptor >= 0) return descriptor;
  if (errno == EEXIST) return std::nullopt;
  refuse(path, system(errno));
}

// Whether the existing file may be replaced; its permissions.
mode_t checkReplaceable(const std::filesystem::path& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) < 0) refuse(path, system(errno));
  if (S_ISDIR(status.st_mode)) refuse(path, system(EISDIR));
  if (!S_ISREG(status.st_mode)) refuse(path, "not a regular file");
  if (::access(path.c_str(), W_OK) < 0) refuse(path, system(errno));
  return status.st_mode & (S_IRWXU | S_IRWXG | S_IRWXO);
}

std::filesystem::path nameBeside(const std::filesystem::path& path) {
  return path.string() + ".new-" + std::to_string(::getpid());
}

// Only a recording with something of a link is worth an older file.
bool isOfALink(const Record& record) {
  return std::holds_alternative<Connected>(record.what) ||
         std::holds_alternative<Value>(record.what);
}

// How often a call is repeated that may succeed at once.
constexpr int mostRepetitions = 10;

bool isWorthRepeating(int errorNumber, int& repetitions) {
  if (errorNumber == EINTR) return true;
  return errorNumber == EAGAIN && ++repetitions <= mostRepetitions;
}

}  // namespace

FileCalls FileCalls::system() { return {::write, ::ftruncate, ::fdatasync}; }

Writer::Writer(const std::filesystem::path& path, const Preamble& preamble, WriterOptions options)
    : path_(path), options_(std::move(options)) {
  open();
  try {
    if (!writeWhole(encodePreamble(preamble))) throw std::runtime_error(*error_);
    if (!replaces_) synchronizeDirectory(path_);
    outOfMemory_ = cannotWrite(path_, system(ENOMEM));
    startThread();
  } catch (...) {
    ::unlink(name_.c_str());
    ::close(descriptor_);
    throw;
  }
}

void Writer::open() {
  name_ = path_;
  if (const auto created = create(path_)) {
    descriptor_ = *created;
  } else {
    if (!options_.overwrite) refuse(path_, "it exists already (see --force)");
    const mode_t mode = checkReplaceable(path_);
    replaced_ = FileLock::take(path_);
    if (!replaced_) refuse(path_, "another program is writing it");
    replaces_ = true;
    name_ = nameBeside(path_);
    const auto beside = create(name_);
    if (!beside) refuse(name_, "it exists already");
    descriptor_ = *beside;
    static_cast<void>(::fchmod(descriptor_, mode));
  }
  // Nobody else knows the file yet.
  static_cast<void>(::flock(descriptor_, LOCK_EX | LOCK_NB));
}

Writer::~Writer() {
  try {
    static_cast<void>(close());
  } catch (const std::bad_alloc&) {
    // The file is closed. There is no memory for the text of an error that nobody would read.
  }
}

bool Writer::append(const Record& record) {
  if (closed_ || error()) return false;
  try {
    if (!writeWhole(encodeRecord(record, records_))) return false;
  } catch (const std::logic_error& unfit) {
    fail(cannotWrite(path_, unfit.what()));
    return false;
  }
  ++records_;
  if (!isOfALink(record)) return true;
  const std::lock_guard lock(mutex_);
  worthReplacing_ = true;
  dirty_ = true;
  return true;
}

bool Writer::writeWhole(const std::vector<std::uint8_t>& bytes) {
  std::size_t written = 0;
  int repetitions = 0;
  while (written < bytes.size()) {
    const ssize_t count =
        options_.calls.write(descriptor_, bytes.data() + written, bytes.size() - written);
    if (count < 0 && isWorthRepeating(errno, repetitions)) continue;
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
  int result = 0;
  do {
    result = options_.calls.truncate(descriptor_, static_cast<off_t>(bytes_));
  } while (result < 0 && errno == EINTR);
  if (result == 0) return;
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
  endThread();
  if (replaces_ && !worthReplacing_) ::unlink(name_.c_str());  // the old file stays
  const int failed = ::close(descriptor_) < 0 ? errno : 0;
  replaced_.reset();
  // The texts last: they need memory.
  if (replaces_ && worthReplacing_) *error_ += "; the recording is in " + printable(name_.string());
  if (failed != 0) fail(cannotWrite(path_, system(failed)));
  return error();
}

void Writer::discard() {
  if (closed_) return;
  closed_ = true;
  {
    const std::lock_guard lock(mutex_);
    dirty_ = false;
  }
  endThread();
  ::unlink(name_.c_str());
  ::close(descriptor_);
  replaced_.reset();
}

bool Writer::isInPlace() const {
  const std::lock_guard lock(mutex_);
  return !replaces_;
}

bool Writer::isSynchronized() const {
  const std::lock_guard lock(mutex_);
  return synchronized_;
}

// The thread inherits a mask that blocks all signals: they are delivered to the other threads.
void Writer::startThread() {
  sigset_t all{};
  sigset_t before{};
  ::sigfillset(&all);
  ::pthread_sigmask(SIG_SETMASK, &all, &before);
  int failed = 0;
  try {
    thread_ = std::thread([this] { synchronizeWhileOpen(); });
  } catch (const std::system_error& error) {
    failed = error.code().value();
  } catch (const std::bad_alloc&) {
    failed = ENOMEM;
  }
  ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
  if (failed != 0) refuse(path_, "cannot start a thread: " + system(failed));
}

void Writer::endThread() {
  if (!thread_.joinable()) return;
  {
    const std::lock_guard lock(mutex_);
    end_ = true;
  }
  ending_.notify_all();
  thread_.join();
}

// On the thread of the writer. Retries without a limit: EINTR comes once for each signal.
int Writer::synchronize() const {
  while (options_.calls.synchronize(descriptor_) < 0) {
    if (errno != EINTR) return errno;
  }
  return 0;
}

// On the thread of the writer, when the new file is safe on the disk. The lock on the
// old file is released by close().
int Writer::replaceOld() const {
  if (::rename(name_.c_str(), path_.c_str()) < 0) return errno;
  synchronizeDirectory(path_);
  return 0;
}

// On the thread of the writer, which no exception may leave. Once.
std::string Writer::synchronizationError(int errorNumber) {
  try {
    return cannotWrite(path_, system(errorNumber));
  } catch (const std::bad_alloc&) {
    return std::move(outOfMemory_);
  }
}

void Writer::synchronizeWhileOpen() {
  std::unique_lock lock(mutex_);
  while (true) {
    // Synchronizes once more after the last record.
    const bool last = ending_.wait_for(lock, options_.synchronizeEvery, [this] { return end_; });
    if (std::exchange(dirty_, false)) {
      const bool replace = replaces_ && worthReplacing_;
      lock.unlock();
      int failed = synchronize();
      // EINVAL: the file system does not support it.
      const bool synchronized = failed == 0 || failed == EINVAL;
      try {
        if (synchronized) failed = replace ? replaceOld() : 0;
      } catch (const std::bad_alloc&) {
        failed = ENOMEM;  // nothing may leave the thread
      }
      lock.lock();
      if (!synchronized) synchronized_ = false;
      if (replace && failed == 0) replaces_ = false;
      if (failed != 0 && !error_) error_ = synchronizationError(failed);
    }
    if (last) return;
  }
}

}  // namespace Zephly::capture
