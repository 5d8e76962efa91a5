// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A regular file that is read at any position. Every error names the file and the byte.
///
///   const InputFile file("101.dat");
///   std::array<unsigned char, 3> bytes{};
///   file.read(0, bytes);

#include <hosts/main_queue/file_descriptor.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <span>
#include <string>

namespace Zephly::recorders {

class InputFile {
 public:
  /// Throws InputError when it cannot be opened, or is not a regular file.
  explicit InputFile(std::filesystem::path path);

  const std::filesystem::path& path() const { return path_; }
  /// In bytes, when it was opened.
  std::uint64_t size() const { return size_; }

  /// Fills `bytes` from `offset` on. Throws InputError when the file ends before, or cannot be
  /// read.
  void read(std::uint64_t offset, std::span<unsigned char> bytes) const;
  /// The same, as text.
  std::string text(std::uint64_t offset, std::size_t size) const;

 private:
  std::filesystem::path path_;
  main_queue::FileDescriptor file_;
  std::uint64_t size_ = 0;
};

}  // namespace Zephly::recorders
