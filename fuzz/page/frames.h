// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// What the server of the live page sends on a WebSocket, checked.
///
///   const Frames frames = framesIn(answersIn(client.received()).rest);

#include <tests/support/web_frames.h>

#include <optional>
#include <string_view>
#include <vector>

namespace fuzz {

struct Frames {
  std::vector<web::ServerFrame> all;
  bool complete = false;  ///< nothing follows the last frame
};

/// The frames of the server. Ends the program when one is not valid, or a frame follows the one
/// that closes.
Frames framesIn(std::string_view bytes);

/// The code in the frame that closes; empty without such a frame, or without a code in it.
std::optional<unsigned> closeCode(const Frames& frames);

}  // namespace fuzz
