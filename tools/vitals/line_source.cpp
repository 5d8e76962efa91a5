// SPDX-License-Identifier: MIT
#include <tools/vitals/input_error.h>
#include <tools/vitals/line_source.h>

#include <algorithm>

namespace Zephly::recorders {

namespace {

constexpr std::size_t bytesAtOnce = 1U << 18U;

}  // namespace

// Adds more of the file to the buffer; false at its end.
bool LineSource::fill() {
  buffer_.erase(0, taken_);
  bufferAt_ += taken_;
  taken_ = 0;
  const std::uint64_t from = bufferAt_ + buffer_.size();
  const auto count =
      static_cast<std::size_t>(std::min<std::uint64_t>(bytesAtOnce, file_->size() - from));
  if (count == 0) return false;
  buffer_ += file_->text(from, count);
  return true;
}

std::optional<TextLine> LineSource::next() {
  std::size_t end = buffer_.find('\n', taken_);
  while (end == std::string::npos && buffer_.size() - taken_ <= longest_ && fill()) {
    end = buffer_.find('\n', taken_);
  }
  if (taken_ == buffer_.size()) return std::nullopt;
  end = std::min(end, buffer_.size());
  TextLine line{std::string_view(buffer_).substr(taken_, end - taken_), position()};
  if (line.text.size() > longest_) {
    throw InputError(file_->path(), line.at,
                     "a line of more than " + std::to_string(longest_) + " bytes");
  }
  taken_ = std::min(end + 1, buffer_.size());
  if (line.text.ends_with('\r')) line.text.remove_suffix(1);
  return line;
}

void LineSource::seek(std::uint64_t position) {
  buffer_.clear();
  taken_ = 0;
  bufferAt_ = std::min(position, file_->size());
}

}  // namespace Zephly::recorders
