// SPDX-License-Identifier: MIT
#include <hosts/vitals/raw_samples.h>

namespace Zephly::hosts {

void RawSamples::note(const capture::CharacteristicsDiscovered& discovered) {
  for (const capture::Listed& listed : discovered.characteristics) {
    const auto uuid = CBUUID::parse(listed.UUID);
    for (const Stream stream : {Stream::ecg, Stream::respiration}) {
      if (uuid != characteristicUUID(stream)) continue;
      // Every connection has new numbers; those of the ones before do not come again.
      std::erase_if(streams_, [&](const auto& entry) { return entry.second == stream; });
      streams_[listed.id] = stream;
    }
  }
}

}  // namespace Zephly::hosts
