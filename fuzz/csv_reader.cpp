// SPDX-License-Identifier: MIT
// Recordings as CSV: any text at any rate. Refused text is reported by a RecordingError with its
// position; accepted text has as many numbers in each column as there are rows, and can be played.

#include <simulator/playback.h>
#include <simulator/recording.h>
#include <zephly/protocol/streams.h>
#include <fuzz/support/input.h>
#include <fuzz/support/require.h>
#include <fuzz/support/target.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

namespace {

using fuzz::require;
using Zephly::simulator::Recording;
using Zephly::simulator::RecordingError;

// At one row per second a long file would be an hour of frames: only the beginning is played.
constexpr double longestPlayed = 4;  // seconds

double rateOf(fuzz::Input& input) {
  constexpr std::array<double, 5> everyday = {1, 30, 250, 700, 100'000};
  const unsigned choice = input.below(8);
  return choice < everyday.size() ? everyday.at(choice) : input.real<double>();
}

void checkColumn(const Recording& recording, const std::vector<double>& values, bool has) {
  require(values.size() == (has ? recording.rows() : 0), "a value for each row");
  require(std::ranges::all_of(values,
                              [](double value) {
                                return std::isfinite(value) &&
                                       std::abs(value) <= Recording::largestNumber;
                              }),
          "finite values");
}

void check(const Recording& recording) {
  using Zephly::Stream;
  require(recording.rows() > 0, "a row at least");
  require(!std::ranges::all_of(Zephly::allStreams, [&](Stream one) { return recording.has(one); }),
          "never every stream");
  checkColumn(recording, recording.ecg(), recording.has(Stream::ecg));
  checkColumn(recording, recording.respiration(), recording.has(Stream::respiration));
  checkColumn(recording, recording.skinTemperature(), recording.has(Stream::temperature));
  for (const auto& axis : recording.acceleration()) {
    checkColumn(recording, axis, recording.has(Stream::motion));
  }
  for (const auto& axis : recording.rotation()) {
    checkColumn(recording, axis, recording.has(Stream::motion));
  }
}

void play(const Recording& recording) {
  if (static_cast<double>(recording.rows()) > longestPlayed * recording.rowsPerSecond()) return;
  bool any = false;
  for (const auto stream : Zephly::allStreams) {
    if (!recording.has(stream)) continue;
    any = true;
    const auto playback = Zephly::simulator::playBack(recording, stream, 1);
    for (const auto& frame : playback.frames) require(!frame.empty(), "a frame has bytes");
  }
  require(any, "a stream at least");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const double rate = rateOf(input);
  const auto bytes = input.remaining();
  const std::string text(bytes.begin(), bytes.end());
  try {
    const auto recording = Recording::parse(text, "input", rate);
    check(recording);
    play(recording);
  } catch (const RecordingError& error) {
    require(std::string(error.what()).starts_with("input:"), "an error names the file");
    require(std::string(error.what()).find('\n') == std::string::npos, "an error is one line");
    require(error.line() > 0 && error.column() > 0, "an error has its place");
  }
  return 0;
}
