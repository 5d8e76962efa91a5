// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The raw samples of ECG and respiration in the records of a session. The kit passes respiration
/// to an application only after its filters.
///
///   RawSamples samples;
///   samples.take(record, [&](Stream stream, std::span<const float> frame) { ... });

#include <capture/record.h>
#include <hosts/foundation/data.h>
#include <zephly/ble/gatt_profile.h>
#include <zephly/protocol/frame_decoders.h>
#include <zephly/protocol/streams.h>

#include <map>
#include <span>
#include <variant>

namespace Zephly::hosts {

/// Finds the raw samples in the records of one session.
class RawSamples {
 public:
  /// Every record of the session, in order. Calls `use(Stream, std::span<const float>)` if it is a
  /// frame of ECG or respiration; full scale is +-2.42.
  template <class Use>
  void take(const capture::Record& record, const Use& use) {
    if (const auto* discovered = std::get_if<capture::CharacteristicsDiscovered>(&record.what)) {
      note(*discovered);
    } else if (const auto* value = std::get_if<capture::Value>(&record.what)) {
      if (!value->bytes || value->error) return;
      const auto found = streams_.find(value->characteristic);
      if (found == streams_.end()) return;
      const auto frame = FrameDecoders::calculateECGValue(Data(*value->bytes));
      use(found->second, std::span<const float>(frame));
    }
  }

 private:
  void note(const capture::CharacteristicsDiscovered& discovered);

  std::map<capture::ObjectId, Stream> streams_;
};

}  // namespace Zephly::hosts
