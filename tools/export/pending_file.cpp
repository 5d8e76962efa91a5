// SPDX-License-Identifier: MIT
#include <tools/export/pending_file.h>

#include <capture/file_lock.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <utility>

namespace Zephly::exporting {

namespace {

int createFile(const std::filesystem::path& name) {
  return ::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
}

void removeFile(const std::filesystem::path& name) { ::unlink(name.c_str()); }

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

PendingFile::PendingFile(std::filesystem::path path, Existing existing)
    : path_(std::move(path)), target_(tools::outputTarget(path_)), existing_(existing) {
  checkTarget();
  if (!capture::FileLock::take(target_)) throw cannotWrite(path_, inUse);
  sweepUnfinished(target_, std::filesystem::file_type::regular, removeFile);
  unfinished_ = createUnfinished(path_, target_, createFile);
}

PendingFile::~PendingFile() {
  if (!published_) removeFile(temporary());
}

void PendingFile::checkTarget() const {
  struct stat status {};
  if (::stat(target_.c_str(), &status) < 0) {
    if (errno == ENOENT) return;
    throw cannotWrite(path_, errno);
  }
  if (!S_ISREG(status.st_mode)) throw cannotWrite(path_, "not a regular file");
  if (existing_ == Existing::refused) throw cannotWrite(path_, existsAlready);
}

void PendingFile::write(std::string_view bytes) {
  writeAll(unfinished_.descriptor.get(), bytes, path_);
}

void PendingFile::publish() {
  // EINVAL: the file system does not support fsync(); the data were written all the same.
  if (::fsync(unfinished_.descriptor.get()) < 0 && errno != EINVAL) throw cannotWrite(path_, errno);
  const auto lock = capture::FileLock::take(target_);
  if (!lock) throw cannotWrite(path_, inUse);
  const int moved = existing_ == Existing::replaced
                        ? ::rename(temporary().c_str(), target_.c_str())
                        : moveUnlessThere(temporary().c_str(), target_.c_str());
  if (moved < 0) {
    if (errno == EEXIST) throw cannotWrite(path_, existsAlready);
    throw cannotWrite(path_, errno);
  }
  published_ = true;
  unfinished_.descriptor = {};  // others may lock it now
  synchronizeDirectory(target_.parent_path());
}

}  // namespace Zephly::exporting
