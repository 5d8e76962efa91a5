#pragma once
/// @file
/// What is wrong with a capture, in one line: which file, where in it, and what.
///
///   try {
///     reader.next();
///   } catch (const CaptureError& error) {
///     std::cerr << error.what() << '\n';  // "walk.zcap: at byte 4711: cut off in the middle of
///     ..."
///   }

#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <string>

namespace Zephly::capture {

class CaptureError : public std::runtime_error {
 public:
  enum class Kind {
    unusable,  ///< no capture, or none that this program can read: nothing can be read from it
    cut,       ///< the file ends too early: all that stands before has been read
    damaged,   ///< something in it is not as it was written: reading goes on behind it
  };

  /// What could drive a terminal in the name of the file is shown as '?'.
  CaptureError(Kind kind, const std::filesystem::path& file, std::uint64_t offset,
               const std::string& what);

  Kind kind() const { return kind_; }
  /// Bytes from the beginning of the file.
  std::uint64_t offset() const { return offset_; }
  /// The message without file and offset.
  const std::string& reason() const { return reason_; }

 private:
  Kind kind_;
  std::uint64_t offset_;
  std::string reason_;
};

}  // namespace Zephly::capture
