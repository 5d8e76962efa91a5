// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// One WebSocket message to viewers, serialised once and shared by all of them.
///
///   const Message samples = samplesMessage(Trace::ecg, 0, 1.5, values);
///   const Message state = textMessage(Message::Kind::state, json);
///
/// docs/view-protocol.md describes the bytes.

#include <zephly/protocol/streams.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

namespace Zephly::view {

/// The curves of the page; the number is that of the protocol.
enum class Trace : std::uint8_t { ecg, filteredEcg, respiration, motion };

inline constexpr std::array<Trace, 4> allTraces = {Trace::ecg, Trace::filteredEcg,
                                                   Trace::respiration, Trace::motion};

/// What a curve shows, in the order of the enumeration.
struct TraceInfo {
  std::string_view name;        ///< in the protocol
  Stream stream;                ///< that it is computed from, sample by sample
  std::size_t valuesPerSample;  ///< of motion the high-passed velocity and the displacement
};

inline constexpr std::array<TraceInfo, 4> traceTable = {{{"ecg", Stream::ecg, 1},
                                                         {"filteredEcg", Stream::ecg, 1},
                                                         {"respiration", Stream::respiration, 1},
                                                         {"motion", Stream::motion, 2}}};

constexpr const TraceInfo& traceInfo(Trace trace) {
  return traceTable[static_cast<std::size_t>(trace)];
}

constexpr std::string_view traceName(Trace trace) { return traceInfo(trace).name; }

/// Samples per second.
constexpr int traceRate(Trace trace) { return streamInfo(traceInfo(trace).stream).rate; }

constexpr std::size_t valuesPerSample(Trace trace) { return traceInfo(trace).valuesPerSample; }

/// One message; cheap to copy.
struct Message {
  enum class Kind {
    samples,  ///< binary; a viewer that is too slow loses the oldest of these
    state,    ///< text; one that has not been sent is replaced by the next
    other,    ///< text
  };

  Kind kind = Kind::other;
  Trace trace = Trace::ecg;   ///< of samples
  std::uint32_t samples = 0;  ///< how many
  std::shared_ptr<const std::string> bytes = nullptr;
};

/// Consecutive samples of a curve, evenly spaced: `index` is the number of the first one since the
/// session began, `seconds` its time; `values` holds valuesPerSample() numbers for each.
Message samplesMessage(Trace trace, std::uint64_t index, double seconds,
                       std::span<const float> values);

/// A text message, whose text is JSON.
Message textMessage(Message::Kind kind, std::string json);

}  // namespace Zephly::view
