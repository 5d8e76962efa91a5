// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Frames of a WebSocket (RFC 6455, section 5), as bytes.
///
///   client.send(clientFrame({.kind = FrameKind::ping, .payload = "x"}));
///   const Frames frames = framesIn(answersIn(client.received()).rest);

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace fuzz {

/// Other numbers are reserved.
namespace frame_kind {
inline constexpr unsigned text = 1;
inline constexpr unsigned binary = 2;
inline constexpr unsigned close = 8;
inline constexpr unsigned ping = 9;
inline constexpr unsigned pong = 10;
}  // namespace frame_kind

/// A frame of a client, right or wrong.
struct ClientFrame {
  unsigned kind = frame_kind::text;
  bool last = true;  ///< of its message
  unsigned reserved = 0;
  bool masked = true;
  std::uint32_t mask = 0;
  std::string payload = {};
  std::optional<std::uint64_t> length = std::nullopt;  ///< claimed; empty: the right one
};

std::string clientFrame(const ClientFrame& frame);

struct ServerFrame {
  unsigned kind = 0;
  std::string payload;
};

struct Frames {
  std::vector<ServerFrame> all;
  bool complete = false;  ///< nothing follows the last frame
};

/// The frames of the server. Ends the program when one is not valid, or a frame follows the one
/// that closes.
Frames framesIn(std::string_view bytes);

/// The code in the frame that closes; empty without such a frame, or without a code in it.
std::optional<unsigned> closeCode(const Frames& frames);

}  // namespace fuzz
