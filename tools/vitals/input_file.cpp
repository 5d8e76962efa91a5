// SPDX-License-Identifier: MIT
#include <tools/vitals/input_error.h>
#include <tools/vitals/input_file.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace Zephly::recorders {

namespace {

std::string readReason(int errorNumber) {
  return errorNumber == ENOENT ? "no such file" : std::generic_category().message(errorNumber);
}

}  // namespace

InputFile::InputFile(std::filesystem::path path) : path_(std::move(path)) {
  // Opening a pipe without a writer must not wait.
  file_ = main_queue::FileDescriptor(::open(path_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  struct stat status {};
  if (file_.get() < 0 || ::fstat(file_.get(), &status) < 0) {
    throw InputError(path_, readReason(errno));
  }
  if (S_ISDIR(status.st_mode)) throw InputError(path_, "is a directory");
  if (!S_ISREG(status.st_mode)) throw InputError(path_, "not a regular file");
  size_ = static_cast<std::uint64_t>(status.st_size);
}

void InputFile::read(std::uint64_t offset, std::span<unsigned char> bytes) const {
  while (!bytes.empty()) {
    const ssize_t count =
        ::pread(file_.get(), bytes.data(), bytes.size(), static_cast<off_t>(offset));
    if (count > 0) {
      bytes = bytes.subspan(static_cast<std::size_t>(count));
      offset += static_cast<std::uint64_t>(count);
    } else if (count == 0) {
      throw InputError(path_, offset, "the file ends here, too early");
    } else if (errno != EINTR) {
      throw InputError(path_, offset, readReason(errno));
    }
  }
}

std::string InputFile::text(std::uint64_t offset, std::size_t size) const {
  std::string text(size, '\0');
  read(offset, {reinterpret_cast<unsigned char*>(text.data()), text.size()});
  return text;
}

}  // namespace Zephly::recorders
