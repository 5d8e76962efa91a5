// SPDX-License-Identifier: MIT
#include <hosts/replay/capture_vitals.h>

#include <zephly/protocol/streams.h>

#include <cstddef>

namespace Zephly::replay {

CaptureVitals::CaptureVitals(const Timeline& timeline, vitals::Receiver& receiver, bool searchBack)
    : ecg_(timeline.clock(Stream::ecg)),
      respiration_(timeline.clock(Stream::respiration)),
      vitals_({.ecgRate = streamInfo(Stream::ecg).rate,
               .respirationRate = streamInfo(Stream::respiration).rate,
               .searchBack = searchBack},
              receiver) {}

void CaptureVitals::take(const PlayedRecord& record) {
  for (const float value : record.ecg) vitals_.ecg(ecg_.next().time, value);
  auto change = record.contacts.begin();
  for (std::size_t i = 0; i < record.respiration.size(); ++i) {
    const timing::Nanoseconds time = respiration_.next().time;
    for (; change != record.contacts.end() && change->sample == i; ++change) {
      vitals_.contact(time, !change->off);
    }
    vitals_.respiration(time, record.respiration[i].raw);
  }
}

}  // namespace Zephly::replay
