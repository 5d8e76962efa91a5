// SPDX-License-Identifier: MIT
#include <tools/vitals/input_error.h>
#include <tools/vitals/line_source.h>

#include <algorithm>

namespace Zephly::recorders {

LineSource::LineSource(const InputFile& file, std::size_t longest)
    : file_(&file), longest_(longest), lines_(linesFrom(0)) {}

simulator::Lines LineSource::linesFrom(std::uint64_t position) {
  next_ = std::min(position, file_->size());
  read_ = next_;
  const auto read = [this](char* bytes, std::size_t count) {
    const auto here =
        static_cast<std::size_t>(std::min<std::uint64_t>(count, file_->size() - read_));
    file_->read(read_, {reinterpret_cast<unsigned char*>(bytes), here});
    read_ += here;
    return here;
  };
  return {read, longest_};
}

std::optional<TextLine> LineSource::next() {
  const std::optional<std::string_view> text = lines_.next();
  if (!text) return std::nullopt;
  TextLine line{*text, next_};
  if (text->size() > longest_) {
    throw InputError(file_->path(), line.at,
                     "a line of more than " + std::to_string(longest_) + " bytes");
  }
  next_ = std::min(next_ + text->size() + 1, file_->size());
  if (line.text.ends_with('\r')) line.text.remove_suffix(1);
  return line;
}

void LineSource::seek(std::uint64_t position) { lines_ = linesFrom(position); }

}  // namespace Zephly::recorders
