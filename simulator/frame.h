#pragma once
/// @file
/// What a strap sends: one notification of one of its five streams, and where such frames come
/// from.
///
/// A strap made of software is a FrameSource; whoever carries its frames (the simulated radio, a
/// Bluetooth adapter) takes them out in order of time and sends those that somebody is subscribed
/// to.

#include <zephly/platform/cb_uuid.h>
#include <zephly/platform/export.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace Zephly::simulator {

/// Time on the strap: nanoseconds since it was switched on.
using StrapTime = std::chrono::nanoseconds;

inline double seconds(StrapTime time) { return std::chrono::duration<double>(time).count(); }

/// The five streams, in the order of their characteristic identifiers.
enum class Stream { temperature, ecg, battery, respiration, motion };

inline constexpr std::array<Stream, 5> allStreams = {
    Stream::temperature, Stream::ecg, Stream::battery, Stream::respiration, Stream::motion};

/// The stream's name in lower case, as programs print it.
ZEPHLY_EXPORT std::string_view streamName(Stream stream);

/// The identifier of the characteristic that carries the stream.
ZEPHLY_EXPORT const CBUUID& characteristicUUID(Stream stream);

/// The identifier of the service that the characteristics stand on. Nobody looks for it: the strap
/// is known by its name.
ZEPHLY_EXPORT const CBUUID& serviceUUID();

/// Measured values in one frame of the stream: six ECG or respiration samples, else one reading.
ZEPHLY_EXPORT int samplesPerFrame(Stream stream);

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

  /// Tells that somebody has subscribed to all five streams for the first time, at `now`. A source
  /// that plays something with a beginning (a recording) begins here; it is told once.
  virtual void listenerReady(StrapTime now) = 0;

  /// When the next frame is due; empty while there is none (before a recording begins, after it
  /// ends). Never earlier than a frame taken before; listenerReady may bring it forward.
  virtual std::optional<StrapTime> nextFrameTime() const = 0;

  /// Takes the next frame out. Only when nextFrameTime() is not empty.
  virtual Frame nextFrame() = 0;
};

}  // namespace Zephly::simulator
