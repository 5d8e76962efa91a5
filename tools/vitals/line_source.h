// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The lines of a file, one after the other, with their position.
///
///   LineSource lines(file, 65'536);
///   while (const auto line = lines.next()) use(line->text);

#include <simulator/lines.h>
#include <tools/vitals/input_file.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace Zephly::recorders {

struct TextLine {
  std::string_view text;  ///< without its end, LF or CRLF; until the next call of next()
  std::uint64_t at = 0;   ///< of its first byte in the file
};

/// Not copied, because what it reads refers to it.
class LineSource {
 public:
  /// `longest`: bytes of a line. `file` must outlive it.
  LineSource(const InputFile& file, std::size_t longest);
  LineSource(const LineSource&) = delete;
  LineSource& operator=(const LineSource&) = delete;
  ~LineSource() = default;

  /// Empty at the end of the file. Throws InputError, also for a line that is too long.
  std::optional<TextLine> next();
  /// Where the next line begins.
  std::uint64_t position() const { return next_; }
  /// Continues at the line that begins there.
  void seek(std::uint64_t position);

 private:
  simulator::Lines linesFrom(std::uint64_t position);

  const InputFile* file_;
  std::size_t longest_;
  std::uint64_t next_ = 0;  // where the next line begins
  std::uint64_t read_ = 0;  // bytes before it are in lines_
  simulator::Lines lines_;
};

}  // namespace Zephly::recorders
