// SPDX-License-Identifier: MIT
#include <tools/inspect/contents.h>

#include <zephly/ble/gatt_profile.h>
#include <zephly/protocol/streams.h>

#include <algorithm>
#include <chrono>
#include <utility>
#include <variant>

namespace Zephly::inspect {

namespace {

// Counts the entry, and keeps it if the list has room.
template <class Entry>
void add(std::vector<Entry>& list, std::uint64_t& count, Entry entry) {
  ++count;
  if (list.size() < longestList) list.push_back(std::move(entry));
}

}  // namespace

Contents::Contents() {
  for (const Stream stream : allStreams) {
    streams_[stream].gaps = watch::GapMeter(watch::gapLimit(stream));
  }
}

const StreamContents& Contents::of(Stream stream) const { return streams_[stream]; }

void Contents::take(const capture::Record& record) {
  ++records_;
  // A file may hold times that run backwards.
  now_ = std::max(now_, std::chrono::duration_cast<StrapTime>(record.stamp.monotonic));
  std::visit([this](const auto& what) { note(what); }, record.what);
}

void Contents::finish() {
  for (const Stream stream : allStreams) {
    streams_[stream].arrivals.stop(now_);
    endSilence(stream, std::nullopt);
  }
}

void Contents::note(const capture::StateChanged& /*what*/) {}
void Contents::note(const capture::Discovered& /*what*/) {}
void Contents::note(const capture::Ended& /*what*/) {}

void Contents::note(const capture::Connected& /*what*/) {
  connected_ = true;
  add(connections_, connectionCount_, now_);
  // Ends the latest loss, unless that is one beyond the end of the list.
  if (!linkLosses_.empty() && linkLosses_.size() == linkLossCount_ &&
      !linkLosses_.back().recovery) {
    linkLosses_.back().recovery = now_;
  }
}

void Contents::note(const capture::FailedToConnect& what) {
  add(failures_, failureCount_,
      Failure{now_, "connection", what.error.value_or("no reason given")});
}

void Contents::note(const capture::Disconnected& what) {
  connected_ = false;
  add(linkLosses_, linkLossCount_, LinkLoss{now_, what.error, std::nullopt});
  for (const Stream stream : allStreams) {
    streams_[stream].arrivals.stop(now_);
    if (auto& silence = silences_[stream]) silence->linkLost = true;
  }
}

void Contents::note(const capture::ServicesDiscovered& what) {
  fail("discovery of services", what.error);
}

void Contents::note(const capture::CharacteristicsDiscovered& what) {
  fail("discovery of characteristics", what.error);
  for (const capture::Listed& one : what.characteristics) {
    const auto uuid = CBUUID::parse(one.UUID);
    for (const Stream stream : allStreams) {
      if (uuid == characteristicUUID(stream)) characteristics_[one.id] = stream;
    }
  }
}

void Contents::note(const capture::SubscriptionChanged& what) { fail("subscription", what.error); }

void Contents::note(const capture::Value& what) {
  fail("notification", what.error);
  if (!what.bytes || what.error) return;
  const auto found = characteristics_.find(what.characteristic);
  if (found == characteristics_.end()) {
    ++otherNotifications_;
  } else {
    count(found->second, what.bytes->size());
  }
}

void Contents::fail(const char* what, const capture::ErrorText& error) {
  if (error) add(failures_, failureCount_, Failure{now_, what, *error});
}

// Each notification ends the silence before it and begins the next one.
void Contents::count(Stream stream, std::size_t bytes) {
  StreamContents& contents = streams_[stream];
  ++contents.notifications;
  if (bytes != streamInfo(stream).bytesPerFrame) ++contents.unusualSize;
  for (int i = 0; i < streamInfo(stream).samplesPerFrame; ++i) {
    ++contents.samples;
    contents.arrivals.count(now_);
  }
  contents.gaps.count(now_);
  endSilence(stream, now_);
  silences_[stream] = Silence{now_, false};
}

// A silence longer than the limit becomes a gap. `to` is empty at the end of the capture.
void Contents::endSilence(Stream stream, std::optional<StrapTime> to) {
  const auto silence = std::exchange(silences_[stream], std::nullopt);
  if (!silence || to.value_or(now_) - silence->since <= watch::gapLimit(stream)) return;
  add(gaps_, gapCount_, Gap{stream, silence->since, to, silence->linkLost});
}

}  // namespace Zephly::inspect
