#include <tools/inspect/contents.h>

#include <simulator/rates.h>

#include <algorithm>
#include <chrono>
#include <utility>
#include <variant>

namespace Zephly::inspect {

namespace {

using namespace std::chrono_literals;

// Bytes of a whole notification, as docs/streams.md has them.
std::size_t frameSize(simulator::Stream stream) {
  switch (stream) {
    case simulator::Stream::temperature:
      return 4;
    case simulator::Stream::battery:
      return 3;
    case simulator::Stream::motion:
      return 20;
    case simulator::Stream::ecg:
    case simulator::Stream::respiration:
      break;
  }
  return 18;
}

template <class Entry>
void add(std::vector<Entry>& list, std::uint64_t& count, Entry entry) {
  ++count;
  if (list.size() < longestList) list.push_back(std::move(entry));
}

std::size_t indexOf(simulator::Stream stream) { return static_cast<std::size_t>(stream); }

}  // namespace

simulator::StrapTime gapLimit(simulator::Stream stream) {
  switch (stream) {
    case simulator::Stream::temperature:
      return 2500ms;
    case simulator::Stream::battery:
      return simulator::batteryInterval * 5 / 2;
    case simulator::Stream::motion:
    case simulator::Stream::ecg:
    case simulator::Stream::respiration:
      break;
  }
  return 500ms;
}

const StreamContents& Contents::of(simulator::Stream stream) const {
  return streams_[indexOf(stream)];
}

void Contents::take(const capture::Record& record) {
  ++records_;
  // Whatever a file says: time does not run backwards.
  now_ = std::max(now_, std::chrono::duration_cast<simulator::StrapTime>(record.stamp.monotonic));
  std::visit([this](const auto& what) { note(what); }, record.what);
}

void Contents::finish() {
  for (const simulator::Stream stream : simulator::allStreams) {
    streams_[indexOf(stream)].arrivals.stop(now_);
    endSilence(stream, std::nullopt);
  }
}

void Contents::note(const capture::StateChanged& /*what*/) {}
void Contents::note(const capture::Discovered& /*what*/) {}
void Contents::note(const capture::Ended& /*what*/) {}

void Contents::note(const capture::Connected& /*what*/) {
  connected_ = true;
  add(connections_, connectionCount_, now_);
  if (!linkLosses_.empty() && linkLosses_.size() == linkLossCount_ &&
      !linkLosses_.back().recovery) {
    linkLosses_.back().recovery = now_;
  }
}

void Contents::note(const capture::FailedToConnect& what) {
  add(failures_, failureCount_, Failure{now_, "connection", what.error.value_or("no reason told")});
}

void Contents::note(const capture::Disconnected& what) {
  connected_ = false;
  add(linkLosses_, linkLossCount_, LinkLoss{now_, what.error, std::nullopt});
  for (const simulator::Stream stream : simulator::allStreams) {
    streams_[indexOf(stream)].arrivals.stop(now_);
    if (auto& silence = silences_[indexOf(stream)]) silence->linkLost = true;
  }
}

void Contents::note(const capture::ServicesDiscovered& what) {
  fail("discovery of services", what.error);
}

void Contents::note(const capture::CharacteristicsDiscovered& what) {
  fail("discovery of characteristics", what.error);
  for (const capture::Listed& one : what.characteristics) {
    const auto uuid = CBUUID::parse(one.UUID);
    for (const simulator::Stream stream : simulator::allStreams) {
      if (uuid == simulator::characteristicUUID(stream)) characteristics_[one.id] = stream;
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

void Contents::count(simulator::Stream stream, std::size_t bytes) {
  StreamContents& contents = streams_[indexOf(stream)];
  ++contents.notifications;
  if (bytes != frameSize(stream)) ++contents.unusualSize;
  for (int i = 0; i < simulator::samplesPerFrame(stream); ++i) {
    ++contents.samples;
    contents.arrivals.count(now_);
  }
  endSilence(stream, now_);
  silences_[indexOf(stream)] = Silence{now_, false};
}

void Contents::endSilence(simulator::Stream stream, std::optional<simulator::StrapTime> to) {
  const auto silence = std::exchange(silences_[indexOf(stream)], std::nullopt);
  if (!silence || to.value_or(now_) - silence->since <= gapLimit(stream)) return;
  add(gaps_, gapCount_, Gap{stream, silence->since, to, silence->linkLost});
}

}  // namespace Zephly::inspect
