// SPDX-License-Identifier: MIT
#include <tools/export/edf_annotations.h>
#include <tools/export/edf_records.h>
#include <zephly/protocol/streams.h>

#include <algorithm>
#include <cstddef>
#include <utility>

namespace Zephly::exporting {

namespace {

using namespace std::chrono_literals;
using Kind = replay::Annotation::Kind;
using Spans = std::vector<EdfSpan>;

constexpr const char* notConnected = "BAD_not connected";
constexpr const char* linkLost = "BAD_link lost";
constexpr const char* noSamples = "BAD_gap";

// The time without samples next to a lost link belongs to it, up to the longest supervision timeout
// of Bluetooth, after which a link without packets is lost.
constexpr timing::Nanoseconds belongsToLink = 32s;

// A stretch without ECG and without respiration.
struct Interruption {
  EdfSpan span;
  const char* text;
};

// Where the stream has no samples. A sample covers half a period to either side.
Spans gapsOf(const timing::StreamClock& clock, const EdfSpan& file) {
  Spans gaps;
  timing::Nanoseconds covered = file.from;
  const auto addGap = [&](timing::Nanoseconds until) {
    if (covered < until) gaps.push_back({covered, until});
  };
  for (const timing::Segment& segment : clock.segments) {
    // A short break between two segments does not count.
    if (segment.gap > timing::Nanoseconds::zero() || covered == file.from)
      addGap(segment.time(-0.5));
    covered = segment.time(static_cast<double>(segment.samples) - 0.5);
  }
  // The last slot is one period before the end.
  if (file.to - covered >= timing::Nanoseconds(1s) / clock.rate.perSecond) addGap(file.to);
  return gaps;
}

Spans intersection(const Spans& a, const Spans& b) {
  Spans both;
  std::size_t i = 0;
  std::size_t j = 0;
  while (i < a.size() && j < b.size()) {
    const EdfSpan span{std::max(a[i].from, b[j].from), std::min(a[i].to, b[j].to)};
    if (span.from < span.to) both.push_back(span);
    a[i].to < b[j].to ? ++i : ++j;
  }
  return both;
}

// `span` without what the interruptions cover, which are in order and do not overlap.
Spans uncovered(EdfSpan span, const std::vector<Interruption>& interruptions) {
  Spans rest;
  auto one = std::lower_bound(
      interruptions.begin(), interruptions.end(), span.from,
      [](const Interruption& before, timing::Nanoseconds from) { return before.span.to < from; });
  for (; one != interruptions.end() && one->span.from < span.to; ++one) {
    if (one->span.from > span.from) rest.push_back({span.from, one->span.from});
    span.from = std::max(span.from, one->span.to);
  }
  if (span.from < span.to) rest.push_back(span);
  return rest;
}

// The time before the first link, and between two links.
std::vector<Interruption> withoutLink(const replay::Timeline& timeline, const EdfSpan& file) {
  std::vector<Interruption> all;
  Interruption current{{file.from, file.to}, notConnected};
  bool linked = false;
  for (const replay::Annotation& event : timeline.annotations) {
    if (event.kind == Kind::connected && !linked) {
      current.span.to = event.time;
      all.push_back(current);
      linked = true;
    } else if (event.kind == Kind::linkLost && linked) {
      current = {{event.time, file.to}, linkLost};
      linked = false;
    }
  }
  if (!linked) all.push_back(current);
  return all;
}

// Extends each to the silence next to it. Without a sample between two, they are one. Drops what is
// empty: a link from the first moment on.
void addSilenceOfLinks(std::vector<Interruption>& interruptions, const Spans& silences) {
  std::vector<Interruption> extended;
  std::size_t next = 0;
  for (Interruption one : interruptions) {
    const EdfSpan link = one.span;
    while (next < silences.size() && silences[next].to < link.from) ++next;
    for (std::size_t i = next; i < silences.size() && silences[i].from <= link.to; ++i) {
      const auto from = std::max(silences[i].from, link.from - belongsToLink);
      const auto to = std::min(silences[i].to, link.to + belongsToLink);
      one.span = {std::min(one.span.from, from), std::max(one.span.to, to)};
    }
    if (!extended.empty() && one.span.from <= extended.back().span.to) {
      extended.back().span.to = std::max(extended.back().span.to, one.span.to);
    } else {
      extended.push_back(one);
    }
  }
  std::erase_if(extended, [](const Interruption& one) { return one.span.from == one.span.to; });
  interruptions = std::move(extended);
}

void addOtherSilence(std::vector<Interruption>& interruptions, const Spans& silences) {
  std::vector<Interruption> others;
  for (const EdfSpan& silence : silences) {
    for (const EdfSpan& rest : uncovered(silence, interruptions)) {
      others.push_back({rest, noSamples});
    }
  }
  interruptions.insert(interruptions.end(), others.begin(), others.end());
  std::sort(interruptions.begin(), interruptions.end(),
            [](const Interruption& a, const Interruption& b) { return a.span.from < b.span.from; });
}

// One stream ends a little earlier and begins a little later than the other.
void roundUp(std::vector<Interruption>& interruptions, const Spans& gaps,
             timing::Nanoseconds atMost) {
  std::size_t next = 0;
  for (std::size_t i = 0; i < interruptions.size(); ++i) {
    EdfSpan& span = interruptions[i].span;
    while (next < gaps.size() && gaps[next].to < span.from) ++next;
    if (next == gaps.size()) break;
    for (std::size_t j = next; j < gaps.size() && gaps[j].from <= span.to; ++j) {
      const EdfSpan& gap = gaps[j];
      const bool first = i == 0 || interruptions[i - 1].span.to <= gap.from;
      const bool last = i + 1 == interruptions.size() || gap.to <= interruptions[i + 1].span.from;
      if (first && span.from - gap.from <= atMost) span.from = std::min(span.from, gap.from);
      if (last && gap.to - span.to <= atMost) span.to = std::max(span.to, gap.to);
    }
  }
}

std::vector<Interruption> interruptionsOf(const replay::Timeline& timeline, const EdfSpan& file) {
  const timing::StreamClock& ecg = timeline.clock(Stream::ecg);
  const timing::StreamClock& respiration = timeline.clock(Stream::respiration);
  const Spans ecgGaps = gapsOf(ecg, file);
  const Spans respirationGaps = gapsOf(respiration, file);
  const Spans silences = intersection(ecgGaps, respirationGaps);
  std::vector<Interruption> all = withoutLink(timeline, file);
  addSilenceOfLinks(all, silences);
  addOtherSilence(all, silences);
  roundUp(all, ecgGaps, ecg.rate.silence);
  roundUp(all, respirationGaps, respiration.rate.silence);
  return all;
}

// Gaps of one stream while others have samples.
void addGaps(std::vector<EdfAnnotation>& annotations, const replay::Timeline& timeline,
             const EdfSpan& file, const std::vector<Interruption>& interruptions) {
  for (const Stream stream : edfStreams) {
    const timing::StreamClock& clock = timeline.clock(stream);
    // Temperature has a sample a second, so that its gaps are always longer than a lost link. Its
    // gaps do not affect ECG and respiration, and are not to be excluded.
    const bool isSlow = stream == Stream::temperature;
    const timing::Nanoseconds ignored = isSlow ? clock.rate.silence : timing::Nanoseconds::zero();
    const std::string text =
        (isSlow ? "gap: " : "BAD_gap: ") + std::string(streamInfo(stream).name);
    for (const EdfSpan& gap : gapsOf(clock, file)) {
      timing::Nanoseconds alone{};
      for (const EdfSpan& rest : uncovered(gap, interruptions)) alone += rest.to - rest.from;
      if (alone > ignored) annotations.push_back({.span = gap, .hasDuration = true, .text = text});
    }
  }
}

// From each loss of contact to the next contact. A lost link does not end it.
void addElectrodes(std::vector<EdfAnnotation>& annotations, const replay::Timeline& timeline,
                   const EdfSpan& file) {
  std::optional<timing::Nanoseconds> offSince;
  const auto add = [&](timing::Nanoseconds until) {
    if (!offSince) return;
    annotations.push_back(
        {.span = {*offSince, until}, .hasDuration = true, .text = "BAD_electrodes off"});
    offSince.reset();
  };
  for (const replay::Annotation& event : timeline.annotations) {
    if (event.kind == Kind::electrodesOff && !offSince) offSince = event.time;
    if (event.kind == Kind::electrodesOn) add(event.time);
  }
  add(file.to);
}

}  // namespace

std::vector<EdfAnnotation> edfAnnotations(const replay::Timeline& timeline, const EdfSpan& file,
                                          const std::vector<EdfAnnotation>& more) {
  std::vector<EdfAnnotation> annotations = more;
  const std::vector<Interruption> interruptions = interruptionsOf(timeline, file);
  for (const Interruption& one : interruptions) {
    annotations.push_back({.span = one.span, .hasDuration = true, .text = one.text});
  }
  addGaps(annotations, timeline, file, interruptions);
  addElectrodes(annotations, timeline, file);
  for (const replay::Annotation& event : timeline.annotations) {
    if (event.kind == Kind::pushUp || event.kind == Kind::sitUp || event.kind == Kind::jump) {
      annotations.push_back({.span = {event.time, event.time},
                             .hasDuration = false,
                             .text = replay::annotationName(event.kind)});
    }
  }
  std::stable_sort(
      annotations.begin(), annotations.end(),
      [](const EdfAnnotation& a, const EdfAnnotation& b) { return a.span.from < b.span.from; });
  return annotations;
}

void EdfVitals::beat(const vitals::Beat& beat) {
  if (beat.kind == vitals::BeatClass::artefact) return;
  annotations_.push_back(
      {.span = {beat.time, beat.time},
       .hasDuration = false,
       .text = beat.kind == vitals::BeatClass::ectopic ? "ectopic beat" : "beat"});
}

void EdfVitals::breath(const vitals::Breath& breath) {
  annotations_.push_back(
      {.span = {breath.time, breath.time}, .hasDuration = false, .text = "breath"});
}

}  // namespace Zephly::exporting
