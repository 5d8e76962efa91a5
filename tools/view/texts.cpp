// SPDX-License-Identifier: MIT
#include <tools/view/texts.h>

#include <tools/view/sample_track.h>
#include <zephly/motion/exercise.h>
#include <zephly/protocol/streams.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <chrono>
#include <functional>
#include <variant>

namespace Zephly::view {

namespace {

using Json = nlohmann::json;

// The converter's range.
constexpr double ecgFullScale = 2.42;

constexpr std::size_t shownLinkLosses = 20;

Json orNull(const std::optional<StrapTime>& time) { return time ? Json(seconds(*time)) : Json(); }

std::string dump(const Json& json) {
  return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

Json linkLosses(const watch::SessionModel& model) {
  Json losses = Json::array();
  const auto& all = model.linkLosses();
  const std::size_t count = std::min(all.size(), shownLinkLosses);
  for (auto loss = all.end() - static_cast<std::ptrdiff_t>(count); loss != all.end(); ++loss) {
    losses.push_back({{"t", seconds(loss->time)},
                      {"reason", loss->reason ? Json(*loss->reason) : Json()},
                      {"recovery", orNull(loss->recovery)}});
  }
  return losses;
}

Json temperature(const std::optional<TemperatureReading>& reading) {
  if (!reading) return {};
  return {{"object", reading->skin},
          {"ambient", reading->ambient},
          {"body", reading->body ? Json(*reading->body) : Json()},
          {"bodyReadings", reading->bodyReadings},
          {"t", seconds(reading->time)}};
}

Json battery(const std::optional<BatteryStatus>& status) {
  if (!status) return {};
  return {{"soc", status->soc}, {"inCharge", status->inCharge}};
}

Json streams(const watch::SessionModel& model, StrapTime now) {
  Json all = Json::object();
  for (const Stream stream : allStreams) {
    const auto rate = model.perSecond(stream, now);
    const watch::GapMeter& gaps = model.gaps(stream);
    const auto share = gaps.share(now);
    all[std::string(streamInfo(stream).name)] = {
        {"received", model.received(stream)},
        {"perSecond", rate ? Json(*rate) : Json()},
        {"longestGap", orNull(model.arrivals(stream).longestGap())},
        {"missing", orNull(gaps.missing(now))},
        {"missingPercent", share ? Json(*share * 100) : Json()}};
  }
  return all;
}

// The streams whose samples are counted, the fastest first.
Json countedStreams() {
  std::array<Stream, allStreams.size()> ordered = allStreams;
  std::ranges::stable_sort(ordered, std::ranges::greater{},
                           [](Stream stream) { return streamInfo(stream).rate; });
  Json list = Json::array();
  for (const Stream stream : ordered) {
    list.push_back({{"name", streamInfo(stream).name}, {"title", streamInfo(stream).title}});
  }
  return list;
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
  Json traces = Json::object();
  for (const Trace trace : allTraces) {
    Json& description = traces[std::string(traceName(trace))];
    description["rate"] = traceRate(trace);
    if (trace == Trace::ecg) {
      description.update({{"low", -ecgFullScale}, {"high", ecgFullScale}});
    } else if (trace != Trace::motion) {  // normalised by the engine
      description.update({{"low", 0}, {"high", 1}});
    }
  }
  return dump({{"type", "hello"},
               {"protocol", protocolVersion},
               {"program", greeting.program},
               {"title", greeting.title},
               {"pace", greeting.pace},
               {"session", greeting.session},
               {"now", seconds(greeting.now)},
               {"historySeconds", SampleTrack::historyTime.count()},
               {"streams", traces},
               {"counted", countedStreams()}});
}

std::string stateText(const State& state) {
  const watch::SessionModel& model = state.model;
  const auto off = model.leadOff();
  const Repetitions& repetitions = model.repetitions();
  return dump({{"type", "state"},
               {"now", seconds(state.now)},
               {"connected", model.connected()},
               {"linkChanged", orNull(model.linkChanged())},
               {"connections", model.connections()},
               {"disconnections", model.disconnections()},
               {"linkLosses", linkLosses(model)},
               {"electrodesOff", off ? Json(*off) : Json()},
               {"temperature", temperature(state.temperature)},
               {"battery", battery(model.battery())},
               {"repetitions",
                {{"pushUps", repetitions.pushUps},
                 {"sitUps", repetitions.sitUps},
                 {"jumps", repetitions.jumps}}},
               {"streams", streams(model, state.now)},
               {"hostLine", model.hostLine()},
               {"ended", state.ended}});
}

std::optional<std::string> eventText(const watch::Event& event) {
  const std::optional<EventName> named = std::visit(EventNamer{}, event.what);
  if (!named) return std::nullopt;
  Json json = {{"type", "event"}, {"t", seconds(event.time)}, {"event", named->event}};
  if (named->text != nullptr) json["text"] = *named->text;
  return dump(json);
}

std::string lostText(std::uint64_t messages,
                     const std::array<std::uint64_t, allTraces.size()>& samples) {
  Json bySamples = Json::object();
  for (const Trace trace : allTraces) {
    bySamples[std::string(traceName(trace))] = samples[static_cast<std::size_t>(trace)];
  }
  return dump({{"type", "lost"}, {"messages", messages}, {"samples", bySamples}});
}

}  // namespace Zephly::view
