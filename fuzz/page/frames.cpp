// SPDX-License-Identifier: MIT
#include <fuzz/page/frames.h>

#include <fuzz/support/require.h>

#include <cstddef>

namespace fuzz {

namespace {

constexpr std::size_t shortLength = 125;
constexpr unsigned char twoBytes = 126;
constexpr unsigned char eightBytes = 127;

void append(std::string& bytes, std::uint64_t number, unsigned count) {
  while (count-- > 0) bytes += static_cast<char>(number >> (8U * count));
}

std::uint64_t numberIn(std::string_view bytes) {
  std::uint64_t number = 0;
  for (const char byte : bytes) number = number << 8U | static_cast<unsigned char>(byte);
  return number;
}

void check(const ServerFrame& frame, unsigned first, bool control) {
  require((first & 0xF0U) == 0x80U, "whole messages without reserved bits");
  require(frame.kind == frame_kind::text || frame.kind == frame_kind::binary ||
              frame.kind == frame_kind::close || frame.kind == frame_kind::pong,
          "a frame of a kind that the server sends");
  require(!control || frame.payload.size() <= shortLength, "a short control frame");
  require(frame.kind != frame_kind::close || frame.payload.size() != 1, "a code of two bytes");
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
    append(bytes, length, two ? 2 : 8);
  }
  if (!frame.masked) return bytes + frame.payload;
  append(bytes, frame.mask, 4);
  unsigned shift = 32;
  for (const char byte : frame.payload) {
    shift = shift == 0 ? 24 : shift - 8;
    bytes += static_cast<char>(static_cast<unsigned char>(byte) ^ (frame.mask >> shift & 0xFFU));
  }
  return bytes;
}

Frames framesIn(std::string_view bytes) {
  Frames frames;
  constexpr std::size_t smallest = 2;
  while (bytes.size() >= smallest) {
    const auto first = static_cast<unsigned char>(bytes[0]);
    const auto second = static_cast<unsigned char>(bytes[1]);
    require((second & 0x80U) == 0, "a server does not mask");
    const std::size_t more = second == twoBytes ? 2 : second == eightBytes ? 8 : 0;
    if (bytes.size() < smallest + more) break;
    const std::uint64_t length = more == 0 ? second : numberIn(bytes.substr(smallest, more));
    if (bytes.size() - smallest - more < length) break;
    ServerFrame frame{first & 15U, std::string(bytes.substr(smallest + more, length))};
    require(frames.all.empty() || frames.all.back().kind != frame_kind::close,
            "nothing follows the end");
    check(frame, first, (first & 8U) != 0);
    frames.all.push_back(std::move(frame));
    bytes.remove_prefix(smallest + more + length);
  }
  frames.complete = bytes.empty();
  return frames;
}

std::optional<unsigned> closeCode(const Frames& frames) {
  if (frames.all.empty() || frames.all.back().kind != frame_kind::close) return std::nullopt;
  const std::string& payload = frames.all.back().payload;
  if (payload.size() < 2) return std::nullopt;
  return static_cast<unsigned>(numberIn(std::string_view(payload).substr(0, 2)));
}

}  // namespace fuzz
