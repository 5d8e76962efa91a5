// SPDX-License-Identifier: MIT
#include <capture/capture_file.h>

#include <capture/capture_error.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <system_error>

namespace Zephly::capture {

namespace {

// Read at least at once: records are small, and each system call costs.
constexpr std::size_t pieceSize = 65'536;

std::string textOf(int errorNumber) { return std::generic_category().message(errorNumber); }

[[noreturn]] void cannotOpen(const std::filesystem::path& path, int errorNumber) {
  throw CaptureError(path, errorNumber == ENOENT ? "no such file" : textOf(errorNumber));
}

// A capture is read at any offset, which a pipe does not allow.
const char* unfitFor(mode_t mode) {
  if (S_ISDIR(mode)) return "is a directory, not a capture";
  if (S_ISFIFO(mode)) return "is a pipe, not a regular file: save the capture to a file first";
  return "is not a regular file, so not a capture";
}

}  // namespace

CaptureFile::CaptureFile(const std::filesystem::path& path)
    // O_NONBLOCK: to open a pipe without a writer would wait. O_NOCTTY: a terminal must not become
    // the controlling one.
    : path_(path), descriptor_(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC)) {
  if (descriptor_ < 0) cannotOpen(path, errno);
  struct stat status {};
  const int failed = ::fstat(descriptor_, &status) < 0 ? errno : 0;
  if (failed == 0 && S_ISREG(status.st_mode)) return;
  ::close(descriptor_);
  if (failed != 0) cannotOpen(path, failed);
  throw CaptureError(path, unfitFor(status.st_mode));
}

CaptureFile::~CaptureFile() { ::close(descriptor_); }

std::span<const std::uint8_t> CaptureFile::held(std::uint64_t offset, std::size_t count) const {
  if (offset < begin_ || offset - begin_ > held_.size()) return {};
  const auto rest = std::span(held_).subspan(static_cast<std::size_t>(offset - begin_));
  return rest.first(std::min(count, rest.size()));
}

std::span<const std::uint8_t> CaptureFile::at(std::uint64_t offset, std::size_t count) {
  const auto before = held(offset, count);
  if (before.size() == count || failed_) return before;
  held_.resize(std::max(count, pieceSize));
  begin_ = offset;
  std::size_t filled = 0;
  while (filled < held_.size()) {
    const ssize_t got = ::pread(descriptor_, held_.data() + filled, held_.size() - filled,
                                static_cast<off_t>(offset + filled));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) {
      const int errorNumber = errno;
      failed_ = true;
      held_.clear();
      throw CaptureError(CaptureError::Kind::unusable, path_, offset + filled,
                         "cannot be read: " + textOf(errorNumber));
    }
    if (got == 0) break;
    filled += static_cast<std::size_t>(got);
  }
  held_.resize(filled);
  return held(offset, count);
}

}  // namespace Zephly::capture
