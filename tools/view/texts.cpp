// SPDX-License-Identifier: MIT
#include <tools/view/texts.h>

#include <tools/common/json_object.h>
#include <tools/view/sample_track.h>
#include <zephly/motion/exercise.h>
#include <zephly/protocol/streams.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <functional>
#include <variant>

namespace Zephly::view {

namespace {

using tools::JsonArray;
using tools::JsonObject;

// The converter's range.
constexpr double ecgFullScale = 2.42;

constexpr std::size_t shownLinkLosses = 20;

std::optional<double> optionalSeconds(const std::optional<StrapTime>& time) {
  return time ? std::optional(seconds(*time)) : std::nullopt;
}

JsonArray linkLosses(const watch::SessionModel& model) {
  JsonArray losses;
  const auto& all = model.linkLosses();
  const std::size_t count = std::min(all.size(), shownLinkLosses);
  for (auto loss = all.end() - static_cast<std::ptrdiff_t>(count); loss != all.end(); ++loss) {
    losses.add(JsonObject()
                   .add("t", seconds(loss->time))
                   .add("reason", loss->reason)
                   .add("recovery", optionalSeconds(loss->recovery)));
  }
  return losses;
}

std::optional<JsonObject> temperature(const std::optional<TemperatureReading>& reading) {
  if (!reading) return std::nullopt;
  JsonObject json;
  json.add("object", reading->skin)
      .add("ambient", reading->ambient)
      .add("body", reading->body)
      .add("bodyReadings", reading->bodyReadings)
      .add("t", seconds(reading->time));
  return json;
}

std::optional<JsonObject> battery(const std::optional<BatteryStatus>& status) {
  if (!status) return std::nullopt;
  JsonObject json;
  json.add("soc", status->soc).add("inCharge", status->inCharge);
  return json;
}

// With four decimals: more than the numbers are good for, and short.
double rounded(double value) { return std::round(value * 1e4) / 1e4; }

std::optional<double> rounded(const std::optional<double>& value) {
  return value ? std::optional(rounded(*value)) : std::nullopt;
}

JsonObject vitalsJson(const vitals::Second& second) {
  return JsonObject()
      .add("t", seconds(second.time))
      .add("heartRate", rounded(second.heartRate))
      .add("heartRateQuality", rounded(second.heartRateQuality))
      .add("breathingRate", rounded(second.breathingRate))
      .add("breathingQuality", rounded(second.breathingQuality))
      .add("breathingDerived", second.breathingDerived);
}

JsonObject streams(const watch::SessionModel& model, StrapTime now) {
  JsonObject all;
  for (const Stream stream : allStreams) {
    const watch::GapMeter& gaps = model.gaps(stream);
    const auto share = gaps.share(now);
    all.add(streamInfo(stream).name,
            JsonObject()
                .add("received", model.received(stream))
                .add("perSecond", model.perSecond(stream, now))
                .add("longestGap", optionalSeconds(model.arrivals(stream).longestGap()))
                .add("missing", optionalSeconds(gaps.missing(now)))
                .add("missingPercent", share ? std::optional(*share * 100) : std::nullopt));
  }
  return all;
}

// The streams whose samples are counted, the fastest first.
JsonArray countedStreams() {
  std::array<Stream, allStreams.size()> ordered = allStreams;
  std::ranges::stable_sort(ordered, std::ranges::greater{},
                           [](Stream stream) { return streamInfo(stream).rate; });
  JsonArray list;
  for (const Stream stream : ordered) {
    list.add(
        JsonObject().add("name", streamInfo(stream).name).add("title", streamInfo(stream).title));
  }
  return list;
}

JsonObject traces() {
  JsonObject all;
  for (const Trace trace : allTraces) {
    JsonObject description;
    description.add("rate", traceRate(trace));
    if (trace == Trace::ecg) {
      description.add("low", -ecgFullScale).add("high", ecgFullScale);
    } else if (trace != Trace::motion) {  // normalised by the engine
      description.add("low", 0).add("high", 1);
    }
    all.add(traceName(trace), description);
  }
  return all;
}

// The name of an event in the protocol, and its text if it has one.
struct EventName {
  std::string_view event;
  const std::string* text = nullptr;
};

struct EventNamer {
  std::optional<EventName> operator()(const watch::Connected& /*what*/) const {
    return EventName{"connected"};
  }
  std::optional<EventName> operator()(const watch::Disconnected& /*what*/) const {
    return EventName{"disconnected"};
  }
  std::optional<EventName> operator()(const watch::LeadOff& what) const {
    return EventName{what.off ? "electrodesOff" : "electrodesOn"};
  }
  std::optional<EventName> operator()(const watch::Repetition& what) const {
    switch (what.exercise) {
      case Exercise::pushUp:
        return EventName{"pushUp"};
      case Exercise::sitUp:
        return EventName{"sitUp"};
      case Exercise::jump:
        break;
    }
    return EventName{"jump"};
  }
  std::optional<EventName> operator()(const watch::Diagnostic& what) const {
    return EventName{"diagnostic", &what.text};
  }
  std::optional<EventName> operator()(const watch::HostLine& what) const {
    return EventName{"host", &what.text};
  }
  template <class Other>
  std::optional<EventName> operator()(const Other& /*what*/) const {
    return std::nullopt;
  }
};

}  // namespace

std::string helloText(const Greeting& greeting) {
  return JsonObject()
      .add("type", "hello")
      .add("protocol", protocolVersion)
      .add("program", greeting.program)
      .add("title", greeting.title)
      .add("pace", greeting.pace)
      .add("session", greeting.session)
      .add("now", seconds(greeting.now))
      .add("historySeconds", SampleTrack::historyTime.count())
      .add("streams", traces())
      .add("counted", countedStreams())
      .text();
}

std::string stateText(const State& state) {
  const watch::SessionModel& model = state.model;
  const Repetitions& repetitions = model.repetitions();
  const auto vitals = state.ended ? std::nullopt : model.vitalsAt(state.now);
  return JsonObject()
      .add("type", "state")
      .add("now", seconds(state.now))
      .add("connected", model.connected())
      .add("linkChanged", optionalSeconds(model.linkChanged()))
      .add("connections", model.connections())
      .add("disconnections", model.disconnections())
      .add("linkLosses", linkLosses(model))
      .add("electrodesOff", model.leadOff())
      .add("temperature", temperature(state.temperature))
      .add("battery", battery(model.battery()))
      .add("vitals", vitals ? std::optional(vitalsJson(*vitals)) : std::nullopt)
      .add("repetitions", JsonObject()
                              .add("pushUps", repetitions.pushUps)
                              .add("sitUps", repetitions.sitUps)
                              .add("jumps", repetitions.jumps))
      .add("streams", streams(model, state.now))
      .add("hostLine", model.hostLine())
      .add("ended", state.ended)
      .text();
}

std::optional<std::string> eventText(const watch::Event& event) {
  const std::optional<EventName> named = std::visit(EventNamer{}, event.what);
  if (!named) return std::nullopt;
  JsonObject json;
  json.add("type", "event").add("t", seconds(event.time)).add("event", named->event);
  if (named->text != nullptr) json.add("text", *named->text);
  return json.text();
}

std::string vitalsText(const VitalsBatch& batch) {
  JsonArray beats;
  for (const vitals::Beat& beat : batch.beats) {
    beats.add(JsonObject()
                  .add("t", seconds(beat.time))
                  .add("rr", rounded(beat.rr))
                  .add("class", vitals::beatClassName(beat.kind))
                  .add("quality", rounded(beat.quality))
                  .add("late", beat.late));
  }
  JsonArray breaths;
  for (const vitals::Breath& breath : batch.breaths) {
    breaths.add(JsonObject()
                    .add("t", seconds(breath.time))
                    .add("duration", rounded(breath.duration))
                    .add("depth", rounded(breath.depth))
                    .add("quality", rounded(breath.quality))
                    .add("derived", breath.derived));
  }
  JsonArray list;
  for (const vitals::Second& second : batch.seconds) list.add(vitalsJson(second));
  return JsonObject()
      .add("type", "vitals")
      .add("beats", beats)
      .add("breaths", breaths)
      .add("seconds", list)
      .text();
}

std::string lostText(std::uint64_t messages,
                     const std::array<std::uint64_t, allTraces.size()>& samples) {
  JsonObject bySamples;
  for (const Trace trace : allTraces) {
    bySamples.add(traceName(trace), samples[static_cast<std::size_t>(trace)]);
  }
  return JsonObject()
      .add("type", "lost")
      .add("messages", messages)
      .add("samples", bySamples)
      .text();
}

}  // namespace Zephly::view
