// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The lines of a file, one after the other, with their position.
///
///   LineSource lines(file, 65'536);
///   while (const auto line = lines.next()) use(line->text);

#include <tools/vitals/input_file.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Zephly::recorders {

struct TextLine {
  std::string_view text;  ///< without its end, LF or CRLF; until the next call of next()
  std::uint64_t at = 0;   ///< of its first byte in the file
};

class LineSource {
 public:
  /// `longest`: bytes of a line. `file` must outlive it.
  LineSource(const InputFile& file, std::size_t longest) : file_(&file), longest_(longest) {}

  /// Empty at the end of the file. Throws InputError, also for a line that is too long.
  std::optional<TextLine> next();
  /// Where the next line begins.
  std::uint64_t position() const { return bufferAt_ + taken_; }
  /// Continues at the line that begins there.
  void seek(std::uint64_t position);

 private:
  bool fill();

  const InputFile* file_;
  std::size_t longest_;
  std::uint64_t bufferAt_ = 0;  // of buffer_ in the file
  std::string buffer_;
  std::size_t taken_ = 0;  // of buffer_
};

}  // namespace Zephly::recorders
