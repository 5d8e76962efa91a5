#pragma once
/// @file
/// One WebSocket message to viewers, serialised once and shared by all of them.
///
///   const Message samples = samplesMessage(Trace::ecg, 0, 1.5, values);
///   const Message state = textMessage(Message::Kind::state, json);
///
/// docs/view-protocol.md describes the bytes.

#include <simulator/rates.h>

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

/// The curve's name in the protocol.
constexpr std::string_view traceName(Trace trace) {
  constexpr std::array<std::string_view, allTraces.size()> names = {"ecg", "filteredEcg",
                                                                    "respiration", "motion"};
  return names[static_cast<std::size_t>(trace)];
}

/// Samples per second.
constexpr int traceRate(Trace trace) {
  return trace == Trace::motion ? simulator::motionRate : simulator::waveformRate;
}

/// Values in one sample: 1, or for motion 2, the high-passed acceleration and the displacement.
constexpr std::size_t valuesPerSample(Trace trace) { return trace == Trace::motion ? 2 : 1; }

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
