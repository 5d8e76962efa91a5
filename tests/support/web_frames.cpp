// SPDX-License-Identifier: MIT
#include <tests/support/web_frames.h>

namespace web {

namespace {

constexpr unsigned twoBytes = 126;
constexpr unsigned eightBytes = 127;

void appendBigEndian(std::string& bytes, std::uint64_t number, unsigned count) {
  while (count-- > 0) bytes += static_cast<char>(number >> (8U * count));
}

std::uint64_t bigEndianIn(std::string_view bytes) {
  std::uint64_t number = 0;
  for (const char byte : bytes) number = number << 8U | static_cast<unsigned char>(byte);
  return number;
}

}  // namespace

std::string clientFrame(const ClientFrame& frame) {
  std::string bytes;
  const unsigned first = (frame.last ? 0x80U : 0U) | (frame.reserved & 7U) << 4U;
  bytes += static_cast<char>(first | (frame.kind & 15U));
  const std::uint64_t length = frame.length.value_or(frame.payload.size());
  const unsigned masked = frame.masked ? 0x80U : 0U;
  if (length <= shortLength) {
    bytes += static_cast<char>(masked | static_cast<unsigned>(length));
  } else {
    const bool two = length <= 0xFFFF;
    bytes += static_cast<char>(masked | (two ? twoBytes : eightBytes));
    appendBigEndian(bytes, length, two ? 2 : 8);
  }
  if (!frame.masked) return bytes + frame.payload;
  appendBigEndian(bytes, frame.mask, 4);
  unsigned shift = 32;
  for (const char byte : frame.payload) {
    shift = shift == 0 ? 24 : shift - 8;
    bytes += static_cast<char>(static_cast<unsigned char>(byte) ^ (frame.mask >> shift & 0xFFU));
  }
  return bytes;
}

std::optional<unsigned> ServerFrame::closeCode() const {
  constexpr std::size_t codeSize = 2;
  if (kind != closing || payload.size() < codeSize) return std::nullopt;
  return static_cast<unsigned>(bigEndianIn(std::string_view(payload).substr(0, codeSize)));
}

std::optional<ServerFrame> serverFrameIn(std::string_view bytes) {
  std::size_t head = 2;
  if (bytes.size() < head) return std::nullopt;
  const auto first = static_cast<unsigned char>(bytes[0]);
  const auto second = static_cast<unsigned char>(bytes[1]);
  std::uint64_t length = second & 0x7FU;
  const std::size_t more = length == twoBytes ? 2 : length == eightBytes ? 8 : 0;
  if (bytes.size() < head + more) return std::nullopt;
  if (more > 0) length = bigEndianIn(bytes.substr(head, more));
  head += more;
  if (bytes.size() - head < length) return std::nullopt;
  const auto size = static_cast<std::size_t>(length);
  return ServerFrame{.kind = first & 15U,
                     .whole = (first & 0xF0U) == 0x80U,
                     .masked = (second & 0x80U) != 0,
                     .payload = std::string(bytes.substr(head, size)),
                     .size = head + size};
}

}  // namespace web
