#include <tools/export/survey.h>

#include <simulator/rates.h>

#include <algorithm>
#include <array>

namespace Zephly::exporting {

namespace {

using namespace std::chrono_literals;
using Kind = Annotation::Kind;

// A Bluetooth link holds back frames for a second or two where the radio is busy, and delivers them
// all.
constexpr std::array<timing::StreamRate, allTracks.size()> rates = {{
    {simulator::waveformRate, simulator::samplesPerWaveformFrame, 2s},
    {simulator::waveformRate, simulator::samplesPerWaveformFrame, 2s},
    {simulator::temperatureRate, 1, 5s},
    {simulator::motionRate, 1, 2s},
}};

Kind kindOf(simulator::Exercise exercise) {
  switch (exercise) {
    case simulator::Exercise::pushUp:
      return Kind::pushUp;
    case simulator::Exercise::sitUp:
      return Kind::sitUp;
    case simulator::Exercise::jump:
      break;
  }
  return Kind::jump;
}

Annotation gap(Track track, timing::Nanoseconds from, timing::Nanoseconds to) {
  return {.kind = Kind::gap, .time = from, .duration = to - from, .track = track};
}

}  // namespace

const char* trackName(Track track) {
  constexpr std::array<const char*, allTracks.size()> names = {"ecg", "respiration", "temperature",
                                                               "motion"};
  return names[static_cast<std::size_t>(track)];
}

const char* annotationName(Annotation::Kind kind) {
  constexpr std::array<const char*, 8> names = {"connected",     "link lost", "electrodes off",
                                                "electrodes on", "push-up",   "sit-up",
                                                "jump",          "gap"};
  return names[static_cast<std::size_t>(kind)];
}

Survey::Survey() : fits_(rates.begin(), rates.end()) {}

void Survey::take(const PlayedRecord& record) {
  if (record.connected || record.disconnected) takeLink(record);
  for (const Contact& contact : record.contacts) {
    atSamples_.push_back(
        {contact.off ? Kind::electrodesOff : Kind::electrodesOn, Track::respiration,
         fit(Track::respiration).samples() + static_cast<std::int64_t>(contact.sample)});
  }
  for (const simulator::Exercise exercise : record.repetitions) {
    atSamples_.push_back({kindOf(exercise), Track::motion, fit(Track::motion).samples()});
  }
  if (!record.ecg.empty()) fit(Track::ecg).frame(record.time);
  if (!record.respiration.empty()) fit(Track::respiration).frame(record.time);
  if (record.temperature) fit(Track::temperature).frame(record.time);
  if (record.motion) fit(Track::motion).frame(record.time);
}

void Survey::takeLink(const PlayedRecord& record) {
  if (record.connected) {
    if (!links_.empty() && links_.back().kind == Kind::linkLost) {
      links_.back().duration = record.time - links_.back().time;
    }
    links_.push_back({.kind = Kind::connected, .time = record.time});
    for (const Track track : allTracks) fit(track).beginLink(record.time);
  }
  if (record.disconnected) links_.push_back({.kind = Kind::linkLost, .time = record.time});
}

Timeline Survey::finish(timing::Nanoseconds duration) const {
  Timeline timeline;
  timeline.end = duration;
  for (const Track track : allTracks) {
    timing::StreamClock& clock = timeline.clocks[static_cast<std::size_t>(track)];
    clock = fits_[static_cast<std::size_t>(track)].finish();
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
  // The samples of each stream come in order: one walk along its segments.
  struct Place {
    std::size_t segment = 0;
    std::int64_t before = 0;  // samples of the segments that have been passed
  };
  std::array<Place, allTracks.size()> places;
  for (const AtSample& at : atSamples_) {
    const std::vector<timing::Segment>& segments = timeline.clock(at.track).segments;
    Place& place = places[static_cast<std::size_t>(at.track)];
    while (at.sample - place.before >= segments[place.segment].samples) {
      place.before += segments[place.segment++].samples;
    }
    const auto index = static_cast<double>(at.sample - place.before);
    timeline.annotations.push_back({.kind = at.kind, .time = segments[place.segment].time(index)});
  }
}

void Survey::addGaps(Timeline& timeline) const {
  for (const Track track : allTracks) {
    const timing::StreamClock& clock = timeline.clock(track);
    for (const timing::Segment& segment : clock.segments) {
      if (segment.gap > timing::Nanoseconds{}) {
        timeline.annotations.push_back(gap(track, segment.begin - segment.gap, segment.begin));
      }
    }
    // What the last frames took to arrive is none.
    if (timeline.end - clock.end() >= clock.rate.silence) {
      timeline.annotations.push_back(gap(track, clock.end(), timeline.end));
    }
  }
}

}  // namespace Zephly::exporting
