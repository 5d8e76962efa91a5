// SPDX-License-Identifier: MIT
#include <hosts/replay/survey.h>

#include <zephly/motion/exercise.h>
#include <zephly/protocol/streams.h>

#include <algorithm>
#include <array>

namespace Zephly::replay {

namespace {

using namespace std::chrono_literals;
using Kind = Annotation::Kind;

// A Bluetooth link can delay frames by a second or two while the radio is busy, without losing any.
// Five frames missing in a row are a gap even of a slow stream.
timing::StreamRate rateOf(Stream stream) {
  const StreamInfo& info = streamInfo(stream);
  return {info.rate, info.samplesPerFrame, std::max<StrapTime>(2s, 5 * frameInterval(stream))};
}

Kind kindOf(Exercise exercise) {
  switch (exercise) {
    case Exercise::pushUp:
      return Kind::pushUp;
    case Exercise::sitUp:
      return Kind::sitUp;
    case Exercise::jump:
      break;
  }
  return Kind::jump;
}

Annotation gap(Stream stream, timing::Nanoseconds from, timing::Nanoseconds to) {
  return {.kind = Kind::gap, .time = from, .duration = to - from, .stream = stream};
}

}  // namespace

const char* annotationName(Annotation::Kind kind) {
  constexpr std::array<const char*, 8> names = {"connected",     "link lost", "electrodes off",
                                                "electrodes on", "push-up",   "sit-up",
                                                "jump",          "gap"};
  return names[static_cast<std::size_t>(kind)];
}

Survey::Survey() {
  for (const Stream stream : allStreams) fits_.emplace_back(rateOf(stream));
}

void Survey::take(const PlayedRecord& record) {
  if (record.connected || record.disconnected) takeLink(record);
  for (const ContactChange& contact : record.contacts) {
    atSamples_.push_back(
        {contact.off ? Kind::electrodesOff : Kind::electrodesOn, Stream::respiration,
         fit(Stream::respiration).samples() + static_cast<std::int64_t>(contact.sample)});
  }
  for (const Exercise exercise : record.repetitions) {
    atSamples_.push_back({kindOf(exercise), Stream::motion, fit(Stream::motion).samples()});
  }
  if (!record.ecg.empty()) fit(Stream::ecg).frame(record.time);
  if (!record.respiration.empty()) fit(Stream::respiration).frame(record.time);
  if (record.temperature) fit(Stream::temperature).frame(record.time);
  if (record.motion) fit(Stream::motion).frame(record.time);
}

void Survey::takeLink(const PlayedRecord& record) {
  if (record.connected) {
    if (!links_.empty() && links_.back().kind == Kind::linkLost) {
      links_.back().duration = record.time - links_.back().time;
    }
    links_.push_back({.kind = Kind::connected, .time = record.time});
    for (timing::ClockFit& fit : fits_) fit.beginLink(record.time);
  }
  if (record.disconnected) links_.push_back({.kind = Kind::linkLost, .time = record.time});
}

Timeline Survey::finish(timing::Nanoseconds duration) const {
  Timeline timeline;
  timeline.end = duration;
  for (const Stream stream : exportOrder) {
    if (!isMeasured(stream)) continue;
    timing::StreamClock& clock = timeline.clocks[stream];
    clock = fits_[static_cast<std::size_t>(stream)].finish();
    timeline.end = std::max(timeline.end, clock.end());
  }
  timeline.annotations = links_;
  if (!links_.empty() && links_.back().kind == Kind::linkLost) {
    timeline.annotations.back().duration = timeline.end - links_.back().time;
  }
  addAtSamples(timeline);
  addGaps(timeline);
  std::stable_sort(timeline.annotations.begin(), timeline.annotations.end(),
                   [](const Annotation& a, const Annotation& b) { return a.time < b.time; });
  return timeline;
}

void Survey::addAtSamples(Timeline& timeline) const {
  // The events of each stream are in the order of its samples, so one pass over its segments is
  // enough.
  struct Place {
    std::size_t segment = 0;
    std::int64_t before = 0;  // samples of the segments that have been passed
  };
  PerStream<Place> places;
  for (const AtSample& at : atSamples_) {
    const std::vector<timing::Segment>& segments = timeline.clock(at.stream).segments;
    Place& place = places[at.stream];
    while (at.sample - place.before >= segments[place.segment].samples) {
      place.before += segments[place.segment++].samples;
    }
    const auto index = static_cast<double>(at.sample - place.before);
    timeline.annotations.push_back({.kind = at.kind, .time = segments[place.segment].time(index)});
  }
}

void Survey::addGaps(Timeline& timeline) const {
  for (const Stream stream : exportOrder) {
    if (!isMeasured(stream)) continue;
    const timing::StreamClock& clock = timeline.clock(stream);
    for (const timing::Segment& segment : clock.segments) {
      if (segment.gap > timing::Nanoseconds{}) {
        timeline.annotations.push_back(gap(stream, segment.begin - segment.gap, segment.begin));
      }
    }
    // A shorter rest is the delay of the last frames.
    if (timeline.end - clock.end() >= clock.rate.silence) {
      timeline.annotations.push_back(gap(stream, clock.end(), timeline.end));
    }
  }
}

std::optional<timing::SampleTime> BatteryTimes::take(const PlayedRecord& record) {
  if (record.disconnected && !unknownSince_) unknownSince_ = record.time;
  if (!record.battery) return std::nullopt;
  last_ = std::max(record.time, last_ + 1ns);
  const timing::Nanoseconds gap = unknownSince_ ? last_ - *unknownSince_ : timing::Nanoseconds{};
  unknownSince_.reset();
  return timing::SampleTime{.time = last_, .gap = gap};
}

}  // namespace Zephly::replay
