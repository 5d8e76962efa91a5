// SPDX-License-Identifier: MIT
#include <tools/report/report_json.h>

#include <hosts/replay/contact_intervals.h>
#include <tools/vitals/vitals_summary.h>
#include <vitals/hrv.h>
#include <zephly/protocol/streams.h>

#include <algorithm>
#include <chrono>
#include <iterator>
#include <optional>

namespace Zephly::reporting {

namespace {

using namespace std::chrono_literals;
using recorders::rounded;
using tools::JsonArray;
using tools::JsonObject;

constexpr timing::Nanoseconds windowLength = 5min;
constexpr double milliseconds = 1000;

// A value for each row.
template <class Row, class ValueOf>
JsonArray column(std::span<const Row> rows, const ValueOf& valueOf) {
  JsonArray values;
  for (const Row& row : rows) values.add(valueOf(row));
  return values;
}

std::vector<vitals::Beat> inOrder(std::span<const vitals::Beat> beats) {
  std::vector<vitals::Beat> sorted(beats.begin(), beats.end());
  std::stable_sort(sorted.begin(), sorted.end(),
                   [](const vitals::Beat& a, const vitals::Beat& b) { return a.time < b.time; });
  return sorted;
}

// Those with a time from `from` on and before `to`.
template <class Timed>
std::span<const Timed> within(std::span<const Timed> all, timing::Nanoseconds from,
                              timing::Nanoseconds to) {
  const auto before = [](const Timed& one, timing::Nanoseconds time) { return one.time < time; };
  const auto begin = std::lower_bound(all.begin(), all.end(), from, before);
  return {begin, std::lower_bound(begin, all.end(), to, before)};
}

// Median, lowest and highest of what is known, and the share of the window in which it is.
JsonObject rateJson(std::span<const vitals::Second> its,
                    std::optional<double> vitals::Second::*rate, timing::Nanoseconds length) {
  std::vector<double> known;
  for (const vitals::Second& second : its) {
    if (second.*rate) known.push_back(*(second.*rate));
  }
  std::sort(known.begin(), known.end());
  const auto of = [&](std::size_t index) {
    return known.empty() ? std::nullopt : rounded(known[index], 2);
  };
  const double share =
      static_cast<double>(known.size()) / std::chrono::duration<double>(length).count();
  return JsonObject()
      .add("median", of(known.size() / 2))
      .add("lowest", of(0))
      .add("highest", of(known.size() - 1))
      .add("known", rounded(std::min(share, 1.0), 4));
}

const char* classLetter(vitals::BeatClass kind) {
  switch (kind) {
    case vitals::BeatClass::normal:
      return "n";
    case vitals::BeatClass::ectopic:
      return "e";
    case vitals::BeatClass::artefact:
      break;
  }
  return "a";
}

}  // namespace

double seconds(timing::Nanoseconds time) {
  constexpr int digits = 3;
  return *rounded(std::chrono::duration<double>(time).count(), digits);
}

JsonObject contactJson(const std::vector<replay::Annotation>& annotations,
                       timing::Nanoseconds end) {
  const std::vector<replay::ContactInterval> known = replay::contactIntervals(annotations, end);
  JsonArray intervals;
  for (const replay::ContactInterval& one : known) {
    intervals.add(JsonObject()
                      .add("from", seconds(one.from))
                      .add("to", seconds(one.to))
                      .add("contact", one.contact));
  }
  return JsonObject()
      .add("share", rounded(replay::contactShare(known, end), 4))
      .add("intervals", intervals);
}

JsonArray windowsJson(std::span<const vitals::Beat> beats, std::span<const vitals::Second> all,
                      timing::Nanoseconds end) {
  const std::vector<vitals::Beat> sorted = inOrder(beats);
  JsonArray windows;
  for (timing::Nanoseconds from{}; from < end; from += windowLength) {
    const timing::Nanoseconds to = std::min(end, from + windowLength);
    // A second has the time of its end.
    const auto its = within<vitals::Second>(all, from + 1ns, to + 1ns);
    windows.add(
        JsonObject()
            .add("from", seconds(from))
            .add("to", seconds(to))
            .add("heartRate", rateJson(its, &vitals::Second::heartRate, to - from))
            .add("breathingRate", rateJson(its, &vitals::Second::breathingRate, to - from))
            .add("hrv", recorders::hrvJson(vitals::hrvOf(within<vitals::Beat>(sorted, from, to)))));
  }
  return windows;
}

JsonObject secondsColumns(std::span<const vitals::Second> all) {
  using vitals::Second;
  constexpr int digits = 2;
  const auto numbers = [&](auto member) {
    return column(all, [member](const Second& one) { return rounded(one.*member, digits); });
  };
  return JsonObject()
      .add("t", column(all, [](const Second& one) { return one.time / 1s; }))
      .add("heartRate", numbers(&Second::heartRate))
      .add("heartRateQuality", numbers(&Second::heartRateQuality))
      .add("ecgQuality", numbers(&Second::ecgQuality))
      .add("breathingRate", numbers(&Second::breathingRate))
      .add("breathingQuality", numbers(&Second::breathingQuality))
      .add("breathingDerived",
           column(all, [](const Second& one) { return int{one.breathingDerived}; }))
      .add("respirationQuality", numbers(&Second::respirationQuality))
      .add("contact", column(all, [](const Second& one) {
             return one.contact ? std::optional<int>(*one.contact) : std::nullopt;
           }));
}

JsonObject beatColumns(std::span<const vitals::Beat> beats) {
  constexpr int digits = 1;
  const std::vector<vitals::Beat> sorted = inOrder(beats);
  const std::span<const vitals::Beat> all = sorted;
  std::string classes;
  for (const vitals::Beat& beat : all) classes += classLetter(beat.kind);
  return JsonObject()
      .add("t", column(all, [](const vitals::Beat& beat) { return seconds(beat.time); }))
      .add("rr", column(all,
                        [](const vitals::Beat& beat) {
                          return beat.rr ? rounded(milliseconds * *beat.rr, digits) : std::nullopt;
                        }))
      .add("class", classes);
}

JsonObject temperatureColumns(const TimedReadings<replay::TemperatureSample>& readings) {
  constexpr int digits = 2;
  using Reading = std::pair<timing::Nanoseconds, replay::TemperatureSample>;
  const std::span<const Reading> all = readings;
  return JsonObject()
      .add("t", column(all, [](const Reading& one) { return seconds(one.first); }))
      .add("skin",
           column(all, [](const Reading& one) { return rounded(one.second.object, digits); }))
      .add("ambient",
           column(all, [](const Reading& one) { return rounded(one.second.ambient, digits); }))
      .add("body", column(all, [](const Reading& one) {
             return rounded(one.second.bodyEstimate, digits);
           }));
}

JsonObject batteryColumns(const TimedReadings<BatteryStatus>& readings) {
  using Reading = std::pair<timing::Nanoseconds, BatteryStatus>;
  const std::span<const Reading> all = readings;
  return JsonObject()
      .add("t", column(all, [](const Reading& one) { return seconds(one.first); }))
      .add("charge", column(all, [](const Reading& one) { return rounded(one.second.soc, 1); }))
      .add("charging", column(all, [](const Reading& one) { return int{one.second.inCharge}; }));
}

JsonArray eventsJson(const std::vector<replay::Annotation>& annotations) {
  JsonArray events;
  for (const replay::Annotation& annotation : annotations) {
    JsonObject event;
    event.add("t", seconds(annotation.time)).add("event", replay::annotationName(annotation.kind));
    if (annotation.duration) event.add("duration", seconds(*annotation.duration));
    if (annotation.stream) event.add("stream", streamInfo(*annotation.stream).name);
    events.add(event);
  }
  return events;
}

JsonArray stripsJson(const std::vector<EcgStrip>& strips) {
  constexpr int digits = 4;
  JsonArray json;
  for (const EcgStrip& strip : strips) {
    const std::span<const float> values = strip.values;
    json.add(
        JsonObject()
            .add("reason", strip.reason)
            .add("from", seconds(strip.from))
            .add("to", seconds(strip.to))
            .add("heartRate", rounded(strip.second.heartRate, 2))
            .add("values", column(values, [](float value) { return rounded(value, digits); })));
  }
  return json;
}

std::string embeddable(std::string_view json) {
  std::string embedded;
  embedded.reserve(json.size());
  // Only texts have one. A browser would end the data at "</script>".
  for (const char character : json) {
    if (character == '<') {
      embedded += "\\u003c";
    } else {
      embedded += character;
    }
  }
  return embedded;
}

}  // namespace Zephly::reporting
