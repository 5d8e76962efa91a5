// SPDX-License-Identifier: MIT
#include <capture/file_lock.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace Zephly::capture {

namespace {

// Whether the path still leads to the open file: another program may have replaced the file between
// open() and flock().
bool leadsTo(const std::filesystem::path& path, int descriptor) {
  struct stat named {};
  struct stat opened {};
  return ::stat(path.c_str(), &named) == 0 && ::fstat(descriptor, &opened) == 0 &&
         named.st_dev == opened.st_dev && named.st_ino == opened.st_ino;
}

bool isRegularFile(int descriptor) {
  struct stat status {};
  return ::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
}

}  // namespace

std::optional<FileLock> FileLock::take(const std::filesystem::path& path) {
  while (true) {
    // O_NONBLOCK: to open a pipe without a writer would wait.
    FileLock lock(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (lock.descriptor_ < 0 || !isRegularFile(lock.descriptor_)) return lock;
    if (::flock(lock.descriptor_, LOCK_EX | LOCK_NB) < 0) {
      if (errno == EINTR) continue;
      if (errno == EWOULDBLOCK) return std::nullopt;
      return lock;
    }
    if (leadsTo(path, lock.descriptor_)) return lock;
  }
}

FileLock::FileLock(FileLock&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}

FileLock& FileLock::operator=(FileLock&& other) noexcept {
  std::swap(descriptor_, other.descriptor_);
  return *this;
}

FileLock::~FileLock() {
  if (descriptor_ >= 0) ::close(descriptor_);
}

}  // namespace Zephly::capture
