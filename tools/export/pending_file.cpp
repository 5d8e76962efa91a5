// SPDX-License-Identifier: MIT
#include <tools/export/pending_file.h>

#include <capture/text.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <system_error>
#include <utility>

namespace Zephly::exporting {

namespace {

constexpr const char* thereAlready = "it exists already (see --force)";

void checkPlace(const std::filesystem::path& path, Existing existing) {
  struct stat status {};
  if (::stat(path.c_str(), &status) < 0) {
    if (errno == ENOENT) return;
    throw cannotWrite(path, errno);
  }
  if (!S_ISREG(status.st_mode)) throw cannotWrite(path, "not a regular file");
  if (existing == Existing::refused) throw cannotWrite(path, thereAlready);
}

// Not every file system supports RENAME_NOREPLACE.
int moveUnlessThere(const char* from, const char* to) {
  if (::renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE) == 0) return 0;
  if (errno != EINVAL && errno != ENOSYS) return -1;
  if (::access(to, F_OK) == 0) {
    errno = EEXIST;
    return -1;
  }
  return ::rename(from, to);
}

}  // namespace

std::runtime_error cannotWrite(const std::filesystem::path& file, const std::string& reason) {
  return std::runtime_error("cannot write " + capture::printable(file.string()) + ": " + reason);
}

std::runtime_error cannotWrite(const std::filesystem::path& file, int errorNumber) {
  return cannotWrite(file, std::generic_category().message(errorNumber));
}

PendingFile::PendingFile(std::filesystem::path path, Existing existing)
    : path_(std::move(path)), existing_(existing) {
  checkPlace(path_, existing_);
  create();
}

void PendingFile::create() {
  const std::string stem = path_.string() + ".part-" + std::to_string(::getpid());
  // A program that was killed may have left a file with the same process id.
  constexpr int names = 100;
  for (int i = 0; i < names; ++i) {
    temporary_ = i == 0 ? stem : stem + "-" + std::to_string(i);
    file_ = main_queue::FileDescriptor(
        ::open(temporary_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_APPEND | O_CLOEXEC, 0666));
    if (file_.get() >= 0) return;
    if (errno != EEXIST) break;
  }
  throw cannotWrite(path_, errno);
}

PendingFile::~PendingFile() {
  if (!published_) ::unlink(temporary_.c_str());
}

void PendingFile::write(std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = ::write(file_.get(), text.data(), text.size());
    if (written > 0) {
      text.remove_prefix(static_cast<std::size_t>(written));
    } else if (written == 0 || errno != EINTR) {
      throw cannotWrite(path_, written == 0 ? EIO : errno);
    }
  }
}

void PendingFile::publish() {
  // EINVAL: the file system does not support fsync(); the data were written all the same.
  if (::fsync(file_.get()) < 0 && errno != EINVAL) throw cannotWrite(path_, errno);
  const int moved = existing_ == Existing::replaced
                        ? ::rename(temporary_.c_str(), path_.c_str())
                        : moveUnlessThere(temporary_.c_str(), path_.c_str());
  if (moved < 0) {
    if (errno == EEXIST) throw cannotWrite(path_, thereAlready);
    throw cannotWrite(path_, errno);
  }
  published_ = true;
}

}  // namespace Zephly::exporting
