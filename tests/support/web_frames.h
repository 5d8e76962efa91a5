// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Frames of a WebSocket (RFC 6455, section 5), as bytes.
///
///   client.send(web::clientFrame({.kind = web::ping, .payload = "x"}));
///   while (const auto frame = web::serverFrameIn(received)) {
///     take(frame->kind, frame->payload);
///     received.erase(0, frame->size);
///   }

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace web {

/// Kinds of frames; other numbers are reserved.
inline constexpr unsigned continuation = 0;
inline constexpr unsigned text = 1;
inline constexpr unsigned binary = 2;
inline constexpr unsigned closing = 8;
inline constexpr unsigned ping = 9;
inline constexpr unsigned pong = 10;

/// The longest payload of a control frame, and of one whose length is a single byte.
inline constexpr std::size_t shortLength = 125;

/// A frame of a client, right or wrong.
struct ClientFrame {
  unsigned kind = text;
  bool last = true;  ///< of its message
  unsigned reserved = 0;
  bool masked = true;
  std::uint32_t mask = 0;
  std::string payload = {};
  std::optional<std::uint64_t> length = std::nullopt;  ///< claimed; empty: the right one
};

std::string clientFrame(const ClientFrame& frame);

/// A frame of the server.
struct ServerFrame {
  unsigned kind = 0;
  bool whole = false;   ///< a whole message without reserved bits
  bool masked = false;  ///< as a server's must not be
  std::string payload;
  std::size_t size = 0;  ///< of all its bytes

  /// The code of a frame that closes; empty for another one, or without a code in it.
  std::optional<unsigned> closeCode() const;
};

/// The frame at the beginning; empty when more bytes are needed.
std::optional<ServerFrame> serverFrameIn(std::string_view bytes);

}  // namespace web
