// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The frames that a strap sends, each one notification of a stream, and their source.
///
/// A simulated strap is a FrameSource. Its carrier (the simulated radio, a Bluetooth adapter) takes
/// the frames in order of time and sends those that have a subscriber.

#include <zephly/platform/cb_uuid.h>
#include <zephly/platform/export.h>
#include <zephly/protocol/streams.h>

#include <cstdint>
#include <optional>
#include <vector>

namespace Zephly::simulator {

/// The identifier of the service that holds the characteristics. No session looks for it: the strap
/// is recognised by its name.
ZEPHLY_EXPORT const CBUUID& serviceUUID();

/// One notification.
struct Frame {
  StrapTime time;                   ///< when the strap sends it
  Stream stream;                    ///< which characteristic it belongs to
  std::vector<std::uint8_t> bytes;  ///< its value

  friend bool operator==(const Frame&, const Frame&) = default;
};

/// Frames in order of time.
class ZEPHLY_EXPORT FrameSource {
 public:
  virtual ~FrameSource() = default;

  /// Every stream has a subscriber for the first time, at `now`. Called once. A source that plays
  /// something with a beginning (a recording) begins here.
  virtual void allSubscribed(StrapTime now) = 0;

  /// When the next frame is due; empty while there is none (before a recording begins, after it
  /// ends). Never earlier than a frame taken before; allSubscribed may make it earlier.
  virtual std::optional<StrapTime> nextFrameTime() const = 0;

  /// Takes the next frame out. Only when nextFrameTime() is not empty.
  virtual Frame nextFrame() = 0;
};

}  // namespace Zephly::simulator
