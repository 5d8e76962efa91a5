// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The objects of the simulated bluetoothd, and the frames of its strap.

#include <simulator/random.h>
#include <zephly/protocol/streams.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace schedules {

inline constexpr const char* adapterPath = "/org/bluez/hci0";
inline constexpr const char* devicePath = "/org/bluez/hci0/dev_AA_BB_CC_DD_EE_01";

inline std::string servicePath(int index) {
  return devicePath + std::string(index == 0 ? "/service000a" : "/service0014");
}

/// The first three characteristics belong to the first service, the others to the second.
inline std::string characteristicPath(Zephly::Stream stream) {
  const int index = static_cast<int>(stream);
  return servicePath(index < 3 ? 0 : 1) + "/char000" + std::to_string(index);
}

inline std::optional<Zephly::Stream> streamAt(const std::string& path) {
  for (const Zephly::Stream stream : Zephly::allStreams) {
    if (path == characteristicPath(stream)) return stream;
  }
  return std::nullopt;
}

inline std::string uniqueName(int number) { return ":1." + std::to_string(number); }

/// Arbitrary bytes that are valid for the stream, different for each frame.
inline std::vector<std::uint8_t> bytesOf(Zephly::Stream stream, std::uint64_t number) {
  std::vector<std::uint8_t> bytes(streamInfo(stream).bytesPerFrame);
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    bytes[i] = static_cast<std::uint8_t>(Zephly::simulator::scramble(number, i) & 0xFFU);
  }
  return bytes;
}

}  // namespace schedules
