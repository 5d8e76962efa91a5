// SPDX-License-Identifier: MIT
#include <simulator/lines.h>

#include <algorithm>
#include <cstring>
#include <utility>

namespace Zephly::simulator {

namespace {

constexpr std::size_t pieceSize = 65'536;

}  // namespace

Lines::Lines(Read read, std::size_t longest)
    : read_(std::move(read)), longest_(longest), held_(longest + pieceSize) {}

std::optional<std::string_view> Lines::next() {
  std::size_t searched = begin_;
  while (true) {
    const void* const found = std::memchr(held_.data() + searched, '\n', end_ - searched);
    if (found != nullptr) {
      const auto length =
          static_cast<std::size_t>(static_cast<const char*>(found) - (held_.data() + begin_));
      const std::string_view line(held_.data() + begin_, length);
      begin_ += length + 1;
      return line;
    }
    const std::size_t unfinished = end_ - begin_;
    if (unfinished <= longest_ && readMore()) {
      searched = begin_ + unfinished;
      continue;
    }
    if (unfinished == 0) return std::nullopt;
    const std::string_view line(held_.data() + begin_, unfinished);
    begin_ = end_;
    return line;
  }
}

// There is room for a piece, because at most `longest_` bytes are held when it is called.
bool Lines::readMore() {
  std::copy(held_.data() + begin_, held_.data() + end_, held_.data());
  end_ -= begin_;
  begin_ = 0;
  const std::size_t count = read_(held_.data() + end_, held_.size() - end_);
  end_ += count;
  return count > 0;
}

}  // namespace Zephly::simulator
