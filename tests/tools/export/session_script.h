// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Writes a capture for tests, frame by frame.
///
///   SessionScript script;
///   script.connect(1s);
///   script.ecg(1012ms, {1, 2, 3, 4, 5, 6});
///   script.end(2s);
///   writeFile(path, script.bytes());

#include <capture/record.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <vector>

namespace exporting_test {

using Nanoseconds = std::chrono::nanoseconds;

class SessionScript {
 public:
  /// The session begins at 2026-03-01T09:30:00.25Z, with the radio on.
  SessionScript();

  void connect(Nanoseconds time);
  void disconnect(Nanoseconds time);
  /// Counts of the strap's converter: 24 bits with sign.
  void ecg(Nanoseconds time, const std::array<int, 6>& counts);
  void respiration(Nanoseconds time, const std::array<int, 6>& counts);
  /// In 0.02 K above absolute zero.
  void temperature(Nanoseconds time, unsigned skin, unsigned ambient);
  static std::vector<std::uint8_t> temperatureFrame(unsigned skin, unsigned ambient);
  void battery(Nanoseconds time, unsigned tenthsOfPercent, bool charging);
  /// 16-bit components of the orientation, 2^-16 g.
  void motion(Nanoseconds time, const std::array<int, 4>& orientation,
              const std::array<int, 3>& acceleration);
  /// A value of the stream's characteristic (in the order of the profile) of any size.
  void value(Nanoseconds time, std::size_t characteristic, std::vector<std::uint8_t> bytes);
  void end(Nanoseconds time);

  /// May be changed by the test.
  std::vector<Zephly::capture::Record> records;
  Zephly::capture::Preamble preamble;

  /// The whole file.
  std::vector<std::uint8_t> bytes() const;

 private:
  template <class What>
  void add(Nanoseconds time, What what);

  Zephly::capture::ObjectId nextId_ = 1;
  Zephly::capture::ObjectId firstCharacteristic_ = 0;
  bool known_ = false;
};

}  // namespace exporting_test
