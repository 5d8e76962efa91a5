// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Owns a file descriptor of the system and closes it.

#include <unistd.h>

#include <utility>

namespace Zephly::main_queue {

/// Closes what it holds; movable, not copyable.
class FileDescriptor {
 public:
  FileDescriptor() = default;
  /// Takes `descriptor` over; -1 is none.
  explicit FileDescriptor(int descriptor) : descriptor_(descriptor) {}
  FileDescriptor(FileDescriptor&& other) noexcept
      : descriptor_(std::exchange(other.descriptor_, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    std::swap(descriptor_, other.descriptor_);
    return *this;
  }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  ~FileDescriptor() {
    if (descriptor_ >= 0) ::close(descriptor_);
  }

  int get() const { return descriptor_; }
  /// Gives it up unclosed.
  int release() { return std::exchange(descriptor_, -1); }

 private:
  int descriptor_ = -1;
};

}  // namespace Zephly::main_queue
