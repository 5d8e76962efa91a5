// SPDX-License-Identifier: MIT
#include <fuzz/page/frames.h>

#include <fuzz/support/require.h>

#include <utility>

namespace fuzz {

namespace {

void check(const web::ServerFrame& frame) {
  require(!frame.masked, "a server does not mask");
  require(frame.whole, "whole messages without reserved bits");
  require(frame.kind == web::text || frame.kind == web::binary || frame.kind == web::closing ||
              frame.kind == web::pong,
          "a frame of a kind that the server sends");
  const bool control = (frame.kind & 8U) != 0;
  require(!control || frame.payload.size() <= web::shortLength, "a short control frame");
  require(frame.kind != web::closing || frame.payload.size() != 1, "a code of two bytes");
}

}  // namespace

Frames framesIn(std::string_view bytes) {
  Frames frames;
  while (auto frame = web::serverFrameIn(bytes)) {
    require(frames.all.empty() || frames.all.back().kind != web::closing,
            "nothing follows the end");
    check(*frame);
    bytes.remove_prefix(frame->size);
    frames.all.push_back(std::move(*frame));
  }
  frames.complete = bytes.empty();
  return frames;
}

std::optional<unsigned> closeCode(const Frames& frames) {
  return frames.all.empty() ? std::nullopt : frames.all.back().closeCode();
}

}  // namespace fuzz
