// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The strap's streams: what each is called, which characteristic carries it, how often it comes
/// and what is in a frame. Everything that names or counts streams derives from this table; a new
/// stream begins with a row here.
///
///   for (const Stream stream : allStreams) std::cout << streamInfo(stream).name << '\n';
///   streamInfo(Stream::ecg).rate;     // 500
///   frameInterval(Stream::ecg);       // 12 ms
///
/// How the bytes of a frame become numbers is in frame_decoders.h.

#include <zephly/protocol/strap_time.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <optional>
#include <span>
#include <string_view>

namespace Zephly {

/// In the order of the characteristics' identifiers.
enum class Stream { temperature, ecg, battery, respiration, motion };

/// One number of a sample.
struct Channel {
  std::string_view name;
  std::string_view unit;  ///< empty: none
};

/// One row of the table.
struct StreamInfo {
  Stream stream;
  std::string_view name;            ///< in lower case, for programs: "ecg"
  std::string_view title;           ///< for people: "ECG"
  std::string_view characteristic;  ///< its identifier
  /// Samples per second; 0 for a stream that reports when a value changes.
  int rate;
  /// Of a stream without a rate: the longest time between two reports. Else 0.
  StrapTime reportInterval;
  int samplesPerFrame;
  std::size_t bytesPerFrame;
  std::span<const Channel> channels;  ///< in the order in which they are sent
  /// Whether the application receives it. A stream that it does not receive feeds a detector only.
  bool delivered;
};

namespace channels {

inline constexpr std::array<Channel, 2> temperature = {{{"skin", "degC"}, {"ambient", "degC"}}};
inline constexpr std::array<Channel, 1> ecg = {{{"ecg", "mV"}}};
inline constexpr std::array<Channel, 2> battery = {{{"charge", "percent"}, {"charging", ""}}};
inline constexpr std::array<Channel, 1> respiration = {{{"respiration", ""}}};
/// Orientation as a unit quaternion, scalar first, and acceleration with gravity.
inline constexpr std::array<Channel, 7> motion = {
    {{"qw", ""}, {"qx", ""}, {"qy", ""}, {"qz", ""}, {"ax", "g"}, {"ay", "g"}, {"az", "g"}}};

}  // namespace channels

/// The table, in the order of the enumeration.
inline constexpr std::array<StreamInfo, 5> streamTable = {{
    {.stream = Stream::temperature,
     .name = "temperature",
     .title = "temperature",
     .characteristic = "45366E80-CF3A-11E1-9AB4-0002A5D5C51B",
     .rate = 1,
     .reportInterval = {},
     .samplesPerFrame = 1,
     .bytesPerFrame = 4,
     .channels = channels::temperature,
     .delivered = true},
    {.stream = Stream::ecg,
     .name = "ecg",
     .title = "ECG",
     .characteristic = "46366E80-CF3A-11E1-9AB4-0002A5D5C51B",
     .rate = 500,
     .reportInterval = {},
     .samplesPerFrame = 6,
     .bytesPerFrame = 18,
     .channels = channels::ecg,
     .delivered = true},
    {.stream = Stream::battery,
     .name = "battery",
     .title = "battery",
     .characteristic = "47366E80-CF3A-11E1-9AB4-0002A5D5C51B",
     .rate = 0,
     .reportInterval = std::chrono::seconds(10),
     .samplesPerFrame = 1,
     .bytesPerFrame = 3,
     .channels = channels::battery,
     .delivered = true},
    {.stream = Stream::respiration,
     .name = "respiration",
     .title = "respiration",
     .characteristic = "48366E80-CF3A-11E1-9AB4-0002A5D5C51B",
     .rate = 500,
     .reportInterval = {},
     .samplesPerFrame = 6,
     .bytesPerFrame = 18,
     .channels = channels::respiration,
     .delivered = true},
    {.stream = Stream::motion,
     .name = "motion",
     .title = "motion",
     .characteristic = "49366E80-CF3A-11E1-9AB4-0002A5D5C51B",
     .rate = 30,
     .reportInterval = {},
     .samplesPerFrame = 1,
     .bytesPerFrame = 20,
     .channels = channels::motion,
     .delivered = false},
}};

namespace streams_detail {

constexpr std::array<Stream, streamTable.size()> streamsOfTable() {
  std::array<Stream, streamTable.size()> all{};
  for (std::size_t i = 0; i < streamTable.size(); ++i) all[i] = streamTable[i].stream;
  return all;
}

constexpr bool rowsAreInOrder() {
  for (std::size_t i = 0; i < streamTable.size(); ++i) {
    if (static_cast<std::size_t>(streamTable[i].stream) != i) return false;
  }
  return true;
}

}  // namespace streams_detail

static_assert(streams_detail::rowsAreInOrder(), "the rows are in the order of the enumeration");

/// Every stream, in the order of the table.
inline constexpr std::array<Stream, streamTable.size()> allStreams =
    streams_detail::streamsOfTable();

/// Every stream, in the order in which a session subscribes to them.
inline constexpr std::array<Stream, streamTable.size()> subscriptionOrder = {
    Stream::temperature, Stream::battery, Stream::ecg, Stream::respiration, Stream::motion};

/// The row of `stream`. Undefined for a number that is none of the enumeration's.
constexpr const StreamInfo& streamInfo(Stream stream) {
  return streamTable[static_cast<std::size_t>(stream)];
}

/// The stream with that name; empty when there is none.
constexpr std::optional<Stream> streamNamed(std::string_view name) {
  for (const StreamInfo& info : streamTable) {
    if (info.name == name) return info.stream;
  }
  return std::nullopt;
}

/// The longest time between two frames of a strap that sends without interruption.
constexpr StrapTime frameInterval(Stream stream) {
  const StreamInfo& info = streamInfo(stream);
  return info.rate > 0 ? sampleTime(info.samplesPerFrame, info.rate) : info.reportInterval;
}

/// One value for each stream: PerStream<int> counts{}; ++counts[Stream::ecg];
template <class Value>
struct PerStream : std::array<Value, streamTable.size()> {
  using Array = std::array<Value, streamTable.size()>;

  constexpr Value& operator[](Stream stream) {
    return Array::operator[](static_cast<std::size_t>(stream));
  }
  constexpr const Value& operator[](Stream stream) const {
    return Array::operator[](static_cast<std::size_t>(stream));
  }
};

}  // namespace Zephly
