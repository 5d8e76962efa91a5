// SPDX-License-Identifier: MIT
#include <tools/export/unfinished.h>

#include <capture/file_names.h>
#include <tools/common/output_path.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

namespace Zephly::exporting {

namespace {

constexpr std::string_view unfinishedMark = ".part-";

bool isLocked(int descriptor) {
  int result = 0;
  do {
    result = ::flock(descriptor, LOCK_EX | LOCK_NB);
  } while (result < 0 && errno == EINTR);
  return result == 0;
}

// Locks what was just created. False when another program has taken it for a leftover before.
bool isClaimed(int descriptor, const std::filesystem::path& name) {
  struct stat named {};
  struct stat opened {};
  if (!isLocked(descriptor) && errno == EWOULDBLOCK) return false;
  return ::stat(name.c_str(), &named) == 0 && ::fstat(descriptor, &opened) == 0 &&
         named.st_ino == opened.st_ino;
}

// "4711" or "4711-2"
bool isNumbered(std::string_view text) {
  const auto digits = [](std::string_view part) {
    return !part.empty() &&
           std::all_of(part.begin(), part.end(), [](char one) { return one >= '0' && one <= '9'; });
  };
  const std::size_t dash = text.find('-');
  return digits(text.substr(0, dash)) &&
         (dash == std::string_view::npos || digits(text.substr(dash + 1)));
}

std::filesystem::path orCurrent(const std::filesystem::path& directory) {
  return directory.empty() ? "." : directory;
}

}  // namespace

Unfinished createUnfinished(const std::filesystem::path& path, const std::filesystem::path& target,
                            const std::function<int(const std::filesystem::path&)>& create) {
  const std::string stem =
      target.string() + std::string(unfinishedMark) + std::to_string(::getpid());
  // A program with the same process id, in another container, may be writing one.
  constexpr int names = 100;
  errno = EEXIST;
  for (int i = 0; i < names; ++i) {
    const std::filesystem::path name = i == 0 ? stem : stem + "-" + std::to_string(i);
    main_queue::FileDescriptor descriptor(create(name));
    if (descriptor.get() < 0 && errno != EEXIST) break;
    if (descriptor.get() >= 0 && isClaimed(descriptor.get(), name)) {
      return {name, std::move(descriptor)};
    }
  }
  throw tools::cannotWrite(path, errno);
}

std::string targetOfUnfinished(const std::string& name) {
  const std::size_t mark = name.rfind(unfinishedMark);
  const bool isOne = mark != std::string::npos &&
                     isNumbered(std::string_view(name).substr(mark + unfinishedMark.size()));
  return isOne ? name.substr(0, mark) : std::string();
}

void sweepUnfinished(const std::filesystem::path& target, std::filesystem::file_type type,
                     const std::function<void(const std::filesystem::path&)>& remove) {
  std::error_code error;
  std::vector<std::filesystem::path> found;
  const std::filesystem::path folder = orCurrent(target.parent_path());
  for (const std::string& name : capture::fileNames(folder, error)) {
    if (targetOfUnfinished(name) != target.filename()) continue;
    std::error_code unknown;
    std::filesystem::path path = folder / name;
    if (std::filesystem::symlink_status(path, unknown).type() == type) {
      found.push_back(std::move(path));
    }
  }
  for (const std::filesystem::path& one : found) {
    const main_queue::FileDescriptor leftover(
        ::open(one.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (leftover.get() >= 0 && isLocked(leftover.get())) remove(one);
  }
}

void writeAll(int descriptor, std::string_view bytes, const std::filesystem::path& path) {
  while (!bytes.empty()) {
    const ssize_t count = ::write(descriptor, bytes.data(), bytes.size());
    if (count > 0) {
      bytes.remove_prefix(static_cast<std::size_t>(count));
    } else if (count == 0 || errno != EINTR) {
      throw tools::cannotWrite(path, count == 0 ? EIO : errno);
    }
  }
}

void synchronizeDirectory(const std::filesystem::path& directory) {
  const main_queue::FileDescriptor opened(
      ::open(orCurrent(directory).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (opened.get() >= 0) static_cast<void>(::fsync(opened.get()));
}

}  // namespace Zephly::exporting
