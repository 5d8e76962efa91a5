// SPDX-License-Identifier: MIT
#include <tools/export/pending_directory.h>

#include <capture/file_names.h>
#include <capture/text.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <new>
#include <system_error>
#include <utility>

namespace Zephly::exporting {

namespace {

int createDirectory(const std::filesystem::path& name) {
  if (::mkdir(name.c_str(), 0777) < 0) return -1;
  const int descriptor = ::open(name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (descriptor >= 0) return descriptor;
  const int reason = errno;
  ::rmdir(name.c_str());
  errno = reason;
  return -1;
}

// The place itself: without a slash at the end, without links, "." and "..", because it is renamed.
std::filesystem::path directoryTarget(const std::filesystem::path& path) {
  const std::filesystem::path named = path.has_filename() ? path : path.parent_path();
  const std::filesystem::path target = tools::outputTarget(named);
  std::error_code absent;
  const std::filesystem::path canonical = std::filesystem::canonical(target, absent);
  return absent ? target : canonical;
}

bool isMountPoint(const std::filesystem::path& directory) {
  struct stat inside {};
  struct stat above {};
  return ::stat(directory.c_str(), &inside) == 0 &&
         ::stat((directory / "..").c_str(), &above) == 0 &&
         (inside.st_dev != above.st_dev || inside.st_ino == above.st_ino);
}

// A directory that holds anything else is left.
void removeSet(const std::filesystem::path& directory, const std::vector<std::string>& names) {
  for (const std::string& name : names) ::unlink((directory / name).c_str());
  ::rmdir(directory.c_str());
}

// The same, of a program that was killed while it wrote files of the set under temporary names.
void removeLeftover(const std::filesystem::path& directory, const std::vector<std::string>& names) {
  std::error_code unreadable;
  for (const std::string& name : capture::fileNames(directory, unreadable)) {
    if (std::find(names.begin(), names.end(), targetOfUnfinished(name)) != names.end()) {
      ::unlink((directory / name).c_str());
    }
  }
  removeSet(directory, names);
}

}  // namespace

PendingDirectory::PendingDirectory(std::filesystem::path path, Existing existing,
                                   std::vector<std::string> names)
    : path_(std::move(path)),
      target_(directoryTarget(path_)),
      existing_(existing),
      names_(std::move(names)) {
  if (checkedPlace() == Place::earlierSet) lockEarlierSet();
  sweep(target_, names_);
  unfinished_ = createUnfinished(path_, target_, createDirectory);
}

void PendingDirectory::sweep(const std::filesystem::path& path,
                             const std::vector<std::string>& names) {
  sweepUnfinished(directoryTarget(path), std::filesystem::file_type::directory,
                  [&](const std::filesystem::path& leftover) { removeLeftover(leftover, names); });
}

PendingDirectory::~PendingDirectory() {
  if (published_) return;
  try {
    removeSet(temporary(), names_);
  } catch (const std::bad_alloc&) {
    // The next one of the same name removes it.
  }
}

bool PendingDirectory::isOfTheSet(const std::string& name) const {
  std::error_code unknown;
  return std::filesystem::symlink_status(target_ / name, unknown).type() ==
             std::filesystem::file_type::regular &&
         std::find(names_.begin(), names_.end(), name) != names_.end();
}

PendingDirectory::Place PendingDirectory::checkedPlace() const {
  struct stat status {};
  if (::lstat(target_.c_str(), &status) < 0) {
    if (errno == ENOENT) return Place::free;
    throw cannotWrite(path_, errno);
  }
  if (!S_ISDIR(status.st_mode)) throw cannotWrite(path_, "not a directory");
  std::error_code unknown;
  if (std::filesystem::equivalent(target_, ".", unknown)) {
    throw cannotWrite(path_, "the current directory cannot be replaced; name a new one in it");
  }
  if (isMountPoint(target_)) {
    throw cannotWrite(path_,
                      "a mounted file system cannot be replaced; name a new directory in it");
  }
  Place place = Place::emptyDirectory;
  std::error_code error;
  for (const std::string& name : capture::fileNames(target_, error)) {
    if (!isOfTheSet(name)) {
      throw cannotWrite(path_, "it holds other files, such as " + capture::printable(name) +
                                   "; name a new directory");
    }
    place = Place::earlierSet;
  }
  if (error) throw cannotWrite(path_, error.value());
  if (place == Place::earlierSet && existing_ == Existing::refused) {
    throw cannotWrite(path_, existsAlready);
  }
  if (::access(target_.c_str(), W_OK) < 0) throw cannotWrite(path_, errno);
  return place;
}

// A recording may have been given the name of a file of the set.
std::vector<capture::FileLock> PendingDirectory::lockEarlierSet() const {
  std::vector<capture::FileLock> locks;
  for (const std::string& name : names_) {
    auto lock = capture::FileLock::take(target_ / name);
    if (!lock) throw cannotWrite(path_ / name, inUse);
    locks.push_back(std::move(*lock));
  }
  return locks;
}

// The directory of an earlier set, or one made for this set, may have been closed to other users.
void PendingDirectory::keepPermissions() const {
  struct stat status {};
  if (::stat(target_.c_str(), &status) < 0 ||
      ::fchmod(unfinished_.descriptor.get(), (status.st_mode & 07777) | S_IRWXU) < 0) {
    throw cannotWrite(path_, errno);
  }
}

void PendingDirectory::exchange() const {
  if (::renameat2(AT_FDCWD, temporary().c_str(), AT_FDCWD, target_.c_str(), RENAME_EXCHANGE) == 0) {
    return;
  }
  if (errno == EINVAL || errno == ENOSYS) {
    throw cannotWrite(path_,
                      "this file system cannot replace a directory at once; remove it first");
  }
  throw cannotWrite(path_, errno);
}

void PendingDirectory::publish() {
  // EINVAL: the file system does not support fsync() of a directory.
  if (::fsync(unfinished_.descriptor.get()) < 0 && errno != EINVAL) throw cannotWrite(path_, errno);
  const Place place = checkedPlace();
  if (place != Place::free) keepPermissions();
  std::vector<capture::FileLock> locks;
  if (place == Place::earlierSet) {
    locks = lockEarlierSet();
    exchange();
  } else if (::rename(temporary().c_str(), target_.c_str()) < 0) {
    if (errno == EEXIST || errno == ENOTEMPTY) throw cannotWrite(path_, existsAlready);
    throw cannotWrite(path_, errno);
  }
  published_ = true;
  unfinished_.descriptor = {};  // others may lock it now
  synchronizeDirectory(target_.parent_path());
  if (place == Place::earlierSet) removeSet(temporary(), names_);
}

}  // namespace Zephly::exporting
